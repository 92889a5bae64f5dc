#include <tovan/file_util.h>

#include "tests/support/failing_system_call.h"
#include "tests/support/scratch_home.h"

#include <plinth/shared_cf_ref.h>

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using plinth::CSharedCFRef;
using tovan::CFileUtil;
using String = CSharedCFRef<CFStringRef>;

String string(const std::string& text) {
  return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
}
std::string text(const String& string) {
  return string ? CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8) : "(null)";
}
std::string expanded(const char* path) {
  const std::unique_ptr<char, void (*)(void*)> result(expandTildeInFilePath(path), std::free);
  return result ? result.get() : "(null)";
}

// An environment variable for one scope.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (const char* const old = std::getenv(name)) old_ = std::make_unique<std::string>(old);
    set(value);
  }
  ~ScopedVariable() { set(old_ ? old_->c_str() : nullptr); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  void set(const char* value) const {
    if (value != nullptr) {
      setenv(name_, value, 1);
    } else {
      unsetenv(name_);
    }
  }
  const char* name_;
  std::unique_ptr<std::string> old_;
};

// What a function of the open-file limit did in a child of its own.
struct LimitOutcome {
  pid_t child;
  std::int64_t result;
  rlim_t soft;
  rlim_t hard;
  std::string messages;
};

template <class Call>
LimitOutcome inChildWithLimits(rlim_t soft, rlim_t hard, Call call) {
  const std::string errors = test::scratchFolder("limit") + "/errors";
  int channel[2];
  EXPECT_EQ(pipe(channel), 0);
  const pid_t child = fork();
  if (child == 0) {
    const rlimit limits{soft, hard};
    if (setrlimit(RLIMIT_NOFILE, &limits) != 0) _exit(2);
    if (std::freopen(errors.c_str(), "w", stderr) == nullptr) _exit(3);
    std::int64_t seen[3] = {call(), -1, -1};
    rlimit after{};
    if (getrlimit(RLIMIT_NOFILE, &after) == 0) {
      seen[1] = static_cast<std::int64_t>(after.rlim_cur);
      seen[2] = static_cast<std::int64_t>(after.rlim_max);
    }
    std::fflush(stderr);
    _exit(write(channel[1], seen, sizeof seen) == static_cast<ssize_t>(sizeof seen) ? 0 : 4);
  }
  close(channel[1]);
  std::int64_t seen[3] = {-99, -99, -99};
  EXPECT_EQ(read(channel[0], seen, sizeof seen), static_cast<ssize_t>(sizeof seen)) << "the child told nothing";
  close(channel[0]);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
  return {child, seen[0], static_cast<rlim_t>(seen[1]), static_cast<rlim_t>(seen[2]), test::readFile(errors)};
}

TEST(OpenFileLimitTest, TheLimitIsTheSoftOne) {
  const LimitOutcome outcome = inChildWithLimits(256, 512, [] { return getMaxOpenFiles(); });
  EXPECT_EQ(outcome.result, 256);
  EXPECT_EQ(outcome.messages, "");
}

TEST(OpenFileLimitTest, TheLimitIsNeverLowered) {
  const LimitOutcome outcome = inChildWithLimits(256, 512, [] { return setMaxOpenFiles(100); });
  EXPECT_EQ(outcome.result, 256);
  EXPECT_EQ(outcome.soft, 256u);
  EXPECT_EQ(outcome.hard, 512u);
  EXPECT_EQ(outcome.messages, "");
}

TEST(OpenFileLimitTest, NegativeAndZeroChangeNothing) {
  for (const std::int64_t n : {std::int64_t{0}, std::int64_t{-1}, INT64_MIN}) {
    const LimitOutcome outcome = inChildWithLimits(256, 512, [n] { return setMaxOpenFiles(n); });
    EXPECT_EQ(outcome.result, 256) << n;
    EXPECT_EQ(outcome.soft, 256u) << n;
  }
}

TEST(OpenFileLimitTest, TheLimitThatHoldsAlreadyIsGivenBack) {
  EXPECT_EQ(inChildWithLimits(256, 512, [] { return setMaxOpenFiles(256); }).result, 256);
}

TEST(OpenFileLimitTest, TheSoftLimitIsRaisedUpToTheHardOne) {
  for (const std::int64_t n : {257, 400, 512}) {
    const LimitOutcome outcome = inChildWithLimits(256, 512, [n] { return setMaxOpenFiles(n); });
    EXPECT_EQ(outcome.result, n);
    EXPECT_EQ(outcome.soft, static_cast<rlim_t>(n));
    EXPECT_EQ(outcome.hard, 512u);
    EXPECT_EQ(outcome.messages, "");
  }
}

TEST(OpenFileLimitTest, MoreThanTheHardLimitIsRefusedSilently) {
  for (const std::int64_t n : {std::int64_t{513}, INT64_MAX}) {
    const LimitOutcome outcome = inChildWithLimits(256, 512, [n] { return setMaxOpenFiles(n); });
    EXPECT_EQ(outcome.result, 256) << n;
    EXPECT_EQ(outcome.soft, 256u) << n;
    EXPECT_EQ(outcome.messages, "") << n;
  }
}

TEST(OpenFileLimitTest, TheDefaultIs2048) {
  const LimitOutcome raised = inChildWithLimits(256, 4096, [] { return TovanSetDefaultMaxOpenFiles(); });
  EXPECT_EQ(raised.result, 2048);
  EXPECT_EQ(raised.soft, 2048u);
  EXPECT_EQ(inChildWithLimits(256, 512, [] { return TovanSetDefaultMaxOpenFiles(); }).result, 256);
}

TEST(OpenFileLimitTest, EveryNameDoesTheSame) {
  EXPECT_EQ(inChildWithLimits(256, 512, [] { return TovanGetMaxOpenFiles(); }).result, 256);
  EXPECT_EQ(inChildWithLimits(256, 512, [] { return CFileUtil::getMaxOpenFiles(); }).result, 256);
  EXPECT_EQ(inChildWithLimits(256, 512, [] { return TovanSetMaxOpenFiles(300); }).soft, 300u);
  EXPECT_EQ(inChildWithLimits(256, 512, [] { return CFileUtil::setMaxOpenFiles(300); }).soft, 300u);
  EXPECT_EQ(inChildWithLimits(256, 4096, [] { return CFileUtil::setDefaultMaxOpenFiles(); }).soft, 2048u);
}

TEST(OpenFileLimitTest, AFailureToReadTheLimitIsMinusOneAndALine) {
  for (auto* const function : {+[] { return getMaxOpenFiles(); }, +[] { return setMaxOpenFiles(400); }}) {
    const LimitOutcome outcome = inChildWithLimits(
        256, 512, [function] { return test::makeGetrlimitFail(EPERM) ? function() : std::int64_t{-98}; });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.messages,
              "[" + std::to_string(outcome.child) + "]: getrlimit(RLIMIT_NOFILE) failed: Operation not permitted\n");
  }
}

TEST(OpenFileLimitTest, AFailureToSetTheLimitIsMinusOneAndALineWithBothLimits) {
  const LimitOutcome outcome = inChildWithLimits(
      256, 512, [] { return test::makeSetrlimitFail(EPERM) ? setMaxOpenFiles(400) : std::int64_t{-98}; });
  EXPECT_EQ(outcome.result, -1);
  EXPECT_EQ(outcome.soft, 256u);
  EXPECT_EQ(outcome.messages, "[" + std::to_string(outcome.child) +
                                  "]: setrlimit(RLIMIT_NOFILE, 400/512) failed: Operation not permitted\n");
}

TEST(FileTest, TheCurrentUserOwnsTheConsole) {
  struct stat console {};
  const bool isThere = stat("/dev/console", &console) == 0;
  EXPECT_EQ(currentUser(), isThere ? console.st_uid : static_cast<uid_t>(-1));
}

TEST(FileTest, AFileExistsWhenItCanBeExamined) {
  const std::string folder = test::scratchFolder("files");
  const std::string file = folder + "/a file\nof \xC3\xA9";
  EXPECT_FALSE(fileExists(file.c_str()));
  test::writeFile(file, "12345");
  EXPECT_TRUE(fileExists(file.c_str()));
  EXPECT_TRUE(fileExists(folder.c_str()));
  EXPECT_FALSE(fileExists((file + "/below").c_str()));
  EXPECT_FALSE(fileExists(""));
  EXPECT_FALSE(fileExists(nullptr));
}

TEST(FileTest, TheSizeIsInBytesOrMinusOne) {
  const std::string file = test::scratchFolder("files") + "/file";
  EXPECT_EQ(fileSize(file.c_str()), -1);
  EXPECT_EQ(fileSize(nullptr), -1);
  test::writeFile(file, "");
  EXPECT_EQ(fileSize(file.c_str()), 0);
  test::writeFile(file, "12345");
  EXPECT_EQ(fileSize(file.c_str()), 5);
}

TEST(FileTest, ASizeAbove32BitsIsWhole) {
  const std::string file = test::scratchFolder("files") + "/sparse";
  test::writeFile(file, "");
  constexpr off_t size = (off_t{5} << 30) + 7;
  ASSERT_EQ(truncate(file.c_str(), size), 0);
  EXPECT_EQ(fileSize(file.c_str()), size);
}

TEST(FileTest, SymbolicLinksAreFollowed) {
  const std::string folder = test::scratchFolder("files");
  const std::string link = folder + "/link";
  ASSERT_EQ(symlink("target", link.c_str()), 0);
  EXPECT_FALSE(fileExists(link.c_str())) << "a link that leads nowhere";
  EXPECT_EQ(fileSize(link.c_str()), -1);
  test::writeFile(folder + "/target", "123");
  EXPECT_TRUE(fileExists(link.c_str()));
  EXPECT_EQ(fileSize(link.c_str()), 3);
}

TEST(ExpandTildeInFilePathTest, ATildeOfAnExistingFileIsExpanded) {
  test::writeFile(test::scratchHome() + "/existing", "");
  EXPECT_EQ(expanded("~/existing"), test::scratchHome() + "/existing");
  EXPECT_EQ(expanded("~"), test::scratchHome());
}

TEST(ExpandTildeInFilePathTest, AMissingFileIsNull) {
  EXPECT_EQ(expanded("~/no such file"), "(null)");
  EXPECT_EQ(expanded("/no such file"), "(null)");
  EXPECT_EQ(expanded(""), "(null)");
  EXPECT_EQ(expanded(nullptr), "(null)");
}

TEST(ExpandTildeInFilePathTest, ATildeWithAUserNameIsExpanded) {
  const passwd* const entry = getpwuid(getuid());
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(expanded((std::string("~") + entry->pw_name).c_str()), entry->pw_dir);
}

TEST(ExpandTildeInFilePathTest, WildcardsGiveTheFirstMatchInOrder) {
  const std::string folder = test::scratchFolder("wild");
  for (const char* name : {"/b1", "/a2", "/a1"}) test::writeFile(folder + name, "");
  EXPECT_EQ(expanded((folder + "/a*").c_str()), folder + "/a1");
  EXPECT_EQ(expanded((folder + "/?2").c_str()), folder + "/a2");
  EXPECT_EQ(expanded((folder + "/[b-c]1").c_str()), folder + "/b1");
  EXPECT_EQ(expanded((folder + "/c*").c_str()), "(null)");
}

TEST(HomeDirectoryTest, TheEnvironmentNamesIt) {
  EXPECT_EQ(text(TovanGetHomeDirectory()), test::scratchHome());
  EXPECT_EQ(text(CFileUtil::getHomeDirectory()), test::scratchHome());
}

TEST(HomeDirectoryTest, SlashesAtItsEndAreDropped) {
  const ScopedVariable home("HOME", "/some where//");
  EXPECT_EQ(text(TovanGetHomeDirectory()), "/some where");
}

TEST(HomeDirectoryTest, WithoutAnAbsoluteOneThePasswordEntryTells) {
  const passwd* const entry = getpwuid(getuid());
  ASSERT_NE(entry, nullptr);
  for (const char* value : {static_cast<const char*>(nullptr), "", "relative/home"}) {
    const ScopedVariable home("HOME", value);
    EXPECT_EQ(text(TovanGetHomeDirectory()), entry->pw_dir) << (value != nullptr ? value : "(unset)");
  }
}

TEST(HomeDirectoryTest, ConcurrentCallersAllGetIt) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (int& count : wrong) {
    threads.emplace_back([&count] {
      for (int i = 0; i < 1000; ++i) count += text(TovanGetHomeDirectory()) != test::scratchHome();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(HomeDirectoryTest, TheCallerOwnsTheString) {
  const String home = TovanGetHomeDirectory();
  EXPECT_EQ(CFGetRetainCount(home.get()), 1);
}

TEST(TemporaryDirectoryTest, TheEnvironmentNamesItAndItEndsInASlash) {
  EXPECT_EQ(text(TovanGetTemporaryDirectory()), test::scratchHome() + "/tmp/");
  EXPECT_EQ(text(CFileUtil::getTemporaryDirectory()), test::scratchHome() + "/tmp/");
  const ScopedVariable folder("TMPDIR", "/elsewhere/");
  EXPECT_EQ(text(TovanGetTemporaryDirectory()), "/elsewhere/");
}

TEST(TemporaryDirectoryTest, WithoutAnAbsoluteOneItIsTmp) {
  for (const char* value : {static_cast<const char*>(nullptr), "", "relative"}) {
    const ScopedVariable folder("TMPDIR", value);
    EXPECT_EQ(text(TovanGetTemporaryDirectory()), "/tmp/") << (value != nullptr ? value : "(unset)");
  }
}

std::string inPath(const char* path) {
  const String expandedPath = TovanExpandTildeInPath(string(path).get());
  return text(expandedPath);
}

TEST(ExpandTildeInPathTest, TheHomeReplacesATildeBeforeASlash) {
  EXPECT_EQ(inPath("~/name"), test::scratchHome() + "/name");
  EXPECT_EQ(inPath("~/no such/file \xC3\xA9\xF0\x9F\x98\x80*"),
            test::scratchHome() + "/no such/file \xC3\xA9\xF0\x9F\x98\x80*");
  EXPECT_EQ(inPath("~/"), test::scratchHome() + "/");
  EXPECT_EQ(inPath("~//name"), test::scratchHome() + "//name");
}

TEST(ExpandTildeInPathTest, EveryOtherPathStays) {
  const passwd* const entry = getpwuid(getuid());
  ASSERT_NE(entry, nullptr);
  const std::string user = std::string("~") + entry->pw_name + "/name";
  for (const char* path : {"~", user.c_str(), "", "/absolute/~/name", "relative", " ~/name", "a~/b"}) {
    EXPECT_EQ(inPath(path), path);
  }
}

TEST(ExpandTildeInPathTest, APathThatStaysIsTheSameObjectRetained) {
  const String path = string("/a path of its own");
  const String result = TovanExpandTildeInPath(path.get());
  EXPECT_EQ(result.get(), path.get());
  EXPECT_EQ(CFGetRetainCount(path.get()), 2);
}

TEST(ExpandTildeInPathTest, AnExpandedPathBelongsToTheCaller) {
  const String result = TovanExpandTildeInPath(CFSTR("~/name"));
  EXPECT_EQ(CFGetRetainCount(result.get()), 1);
}

TEST(ExpandTildeInPathTest, NullIsNull) { EXPECT_EQ(TovanExpandTildeInPath(nullptr), nullptr); }

TEST(ExpandTildeInPathTest, TheClassFunctionDoesTheSame) {
  EXPECT_EQ(text(CFileUtil::expandTildeInPath(CFSTR("~/name"))), test::scratchHome() + "/name");
  EXPECT_EQ(text(CFileUtil::expandTildeInPath(CFSTR("~"))), "~");
}

}  // namespace
