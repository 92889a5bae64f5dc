#include "storage/subexport.h"

#include <gmock/gmock.h>

#include <CoreFoundation/CFBundle.h>

#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "platform/system/transient_lock.h"
#include "tests/storage/mount_table_support.h"
#include "tests/storage/storage_support.h"
#include "tests/support/failing_system_call.h"

namespace {

using namespace test;
using Utils = tovan::CSharedStorageUtils;

const std::string kFramework =
    TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Versions/A/Frameworks/TovanCore.framework";

// Notes what it is asked for.
struct Publisher {
  std::vector<std::string> calls;
  bool fails = false;
  bool portFails = false;
  void note(const char* call, const CURLRef& url, const CStringRef& client, long pid) {
    calls.push_back(std::string(call) + " " + pathOf(url) + " " + client->str() + " " + std::to_string(pid));
    if (fails) throw plinth::CException(plinth::kExceptionTypeUnknown, "no server");
  }
  void publish(const CURLRef& url, const CStringRef& client, long pid) { note("publish", url, client, pid); }
  void unpublish(const CURLRef& url, const CStringRef& client, long pid) { note("unpublish", url, client, pid); }
  int getServerPort() const {
    if (portFails) throw plinth::CException(plinth::kExceptionTypeUnknown, "no port");
    return 2049;
  }
};

class SubexportTest : public ::testing::Test {
 protected:
  void SetUp() override { writeFile(file_, "content"); }
  CURLRef begin() { return tovan::beginSubexport(fileURL(file_), publisher_); }
  void end(const CURLRef& link, bool removesFolder) { tovan::endSubexport(link, removesFolder, publisher_); }
  std::string contents() const {
    std::string text;
    for (const CStringRef& name : Utils::getDirContents(CSTR(subexports_))) text += "[" + name->str() + "]";
    return text;
  }

  const std::string folder_ = Utils::normalizedPath(CSTR(scratchFolder("sub exports")))->str();
  const std::string file_ = folder_ + "/movie.mov";
  const std::string subexports_ = folder_ + "/.mvsubexp";
  Publisher publisher_;
};

TEST_F(SubexportTest, LinksTheFileAndPublishesTheFolder) {
  const CURLRef link = begin();
  EXPECT_EQ(pathOf(link), subexports_ + "/movie.mov");
  EXPECT_EQ(readFile(pathOf(link)), "content");
  EXPECT_EQ(link->getParameterValue(CSTR("port"))->str(), "2049");
  EXPECT_EQ(modeOf(subexports_), "777");
  EXPECT_EQ(publisher_.calls, std::vector<std::string>{"publish " + subexports_ + " mvsubexp 0"});
}

TEST_F(SubexportTest, LeavesNoLockFileBehind) {
  end(begin(), false);
  EXPECT_FALSE(exists(folder_ + "/.mvlock"));
}

TEST_F(SubexportTest, OfATakenNameGetsSixCharactersBeforeTheExtension) {
  begin();
  const std::string second = pathOf(begin());
  const std::string name = second.substr(subexports_.size() + 1);
  ASSERT_EQ(name.size(), std::string("movieXXXXXX.mov").size()) << name;
  EXPECT_EQ(name.substr(0, 5), "movie");
  EXPECT_EQ(name.substr(11), ".mov");
  EXPECT_NE(name, "movieXXXXXX.mov");
  EXPECT_EQ(readFile(second), "content");
}

TEST_F(SubexportTest, OfATakenNameSaysSoOnTheConsole) {
  begin();
  testing::internal::CaptureStderr();
  const std::string second = pathOf(begin());
  EXPECT_NE(testing::internal::GetCapturedStderr().find("link() failed: file " + subexports_ +
                                                        "/movie.mov already exists, trying to link again as " + second +
                                                        ".\n"),
            std::string::npos);
}

TEST_F(SubexportTest, HostileNamesAreLinkedWhole) {
  for (const char* const name : kHostileNames) {
    writeFile(folder_ + "/" + name, name);
    for (int time = 0; time < 2; ++time) {
      const CURLRef link = tovan::beginSubexport(fileURL(folder_ + "/" + name), publisher_);
      EXPECT_EQ(readFile(pathOf(link)), name);
      const bool isPlain = pathOf(link) == subexports_ + "/" + name;
      EXPECT_EQ(isPlain, time == 0) << pathOf(link);
    }
  }
}

TEST_F(SubexportTest, ManyAtOnceNeverReplaceOneAnother) {
  constexpr int kThreads = 8;
  constexpr int kEach = 20;
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([this] {
      for (int n = 0; n < kEach; ++n) tovan::makeSubexport(fileURL(file_));
    });
  }
  for (std::thread& thread : threads) thread.join();
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(Utils::getDirContents(CSTR(subexports_)).size(), static_cast<std::size_t>(kThreads * kEach));
  EXPECT_FALSE(exists(folder_ + "/.mvlock"));
}

TEST_F(SubexportTest, WaitsForWhoeverHasTheLock) {
  const std::string lock = folder_ + "/.mvlock";
  platform::Descriptor held = platform::Descriptor::open(lock.c_str(), O_RDWR | O_CREAT, 0666);
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    held.reset();  // the lock is the open file's, which the child has as well
    tovan::makeSubexport(fileURL(file_));
    ::_exit(0);
  }
  int status = 0;
  ::usleep(100'000);  // in which a child that did not wait would end
  EXPECT_EQ(::waitpid(child, &status, WNOHANG), 0) << "the child did not wait";
  EXPECT_FALSE(exists(subexports_));
  held.reset();
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(exists(subexports_ + "/movie.mov"));
  EXPECT_FALSE(exists(lock));
}

TEST_F(SubexportTest, ALockFileThatCannotBeMadeIsNamed) {
  ASSERT_EQ(::mkdir((folder_ + "/.mvlock").c_str(), 0777), 0);
  EXPECT_EQ(thrown([&] { begin(); }),
            "code 4 Couldn't create lock file: " + folder_ + "/.mvlock (errno = " + std::to_string(EISDIR) + ")");
  ASSERT_EQ(::rmdir((folder_ + "/.mvlock").c_str()), 0);
  ASSERT_EQ(::symlink("elsewhere", (folder_ + "/.mvlock").c_str()), 0);
  EXPECT_EQ(thrown([&] { begin(); }),
            "code 4 Couldn't create lock file: " + folder_ + "/.mvlock (errno = " + std::to_string(ELOOP) + ")");
  EXPECT_FALSE(exists(folder_ + "/elsewhere"));
}

TEST_F(SubexportTest, ALinkThatCannotBeMadeNamesBothPaths) {
  makeFolders(folder_ + "/a folder");
  EXPECT_EQ(thrown([&] { tovan::beginSubexport(fileURL(folder_ + "/a folder"), publisher_); }),
            "code 4 Source subexp link(" + folder_ + "/a folder, " + subexports_ +
                "/a folder) failed: Operation not permitted");
  EXPECT_TRUE(publisher_.calls.empty());
}

// What making a sub-export throws in a child in which every linkat fails.
std::string thrownWithFailingLink(const CURLRef& file, int error) {
  int answer[2];
  if (::pipe(answer) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    std::string text = "not permitted";
    if (makeSystemCallFail(SYS_linkat, error)) text = thrown([&] { tovan::makeSubexport(file); });
    [[maybe_unused]] const ssize_t written = ::write(answer[1], text.data(), text.size());
    ::_exit(0);
  }
  ::close(answer[1]);
  char buffer[4096];
  const ssize_t count = ::read(answer[0], buffer, sizeof buffer);
  ::close(answer[0]);
  ::waitpid(child, nullptr, 0);
  return std::string(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
}

TEST_F(SubexportTest, GivesUpWhenEveryNameIsTaken) {
  const std::string text = thrownWithFailingLink(fileURL(file_), EEXIST);
  if (text == "not permitted") GTEST_SKIP() << "no system call filter here";
  EXPECT_EQ(text, "code 4 mktemp(" + subexports_ + "/movieXXXXXX) failed: File exists");
}

TEST_F(SubexportTest, NamesTheSystemsReasonWhenTheLinkFails) {
  const std::string text = thrownWithFailingLink(fileURL(file_), EMLINK);
  if (text == "not permitted") GTEST_SKIP() << "no system call filter here";
  EXPECT_EQ(text, "code 4 Source subexp link(" + file_ + ", " + subexports_ + "/movie.mov) failed: Too many links");
  EXPECT_FALSE(exists(folder_ + "/.mvlock"));
}

TEST_F(SubexportTest, AFolderThatIsALinkIsRefused) {
  makeFolders(folder_ + "/elsewhere");
  ASSERT_EQ(::symlink("elsewhere", subexports_.c_str()), 0);
  EXPECT_EQ(thrown([&] { begin(); }), "3/6 Path [" + subexports_ + "] not a directory");
  EXPECT_FALSE(exists(folder_ + "/elsewhere/movie.mov"));
}

TEST_F(SubexportTest, OfAMissingFileNamesIt) {
  EXPECT_EQ(thrown([&] { tovan::beginSubexport(fileURL(folder_ + "/no"), publisher_); }),
            "5/12 [" + std::to_string(::getpid()) + "] CSharedStorageUtils::getFilesystemType(): statfs(" + folder_ +
                "/no) failed: No such file or directory");
  EXPECT_EQ(thrown([&] { tovan::beginSubexport(CURLRef(), publisher_); }), "Error: url is null!");
}

TEST_F(SubexportTest, OnAnExFATVolumeIsRefused) {
  const std::string answer = answerWithMounts(everyType("exfat"), [&] {
    const plinth::CSharedCFRef<CFBundleRef> bundle =
        CFBundleCreate(kCFAllocatorDefault, folderURL(kFramework)->getURLRef());
    return bundle.isNull() ? "no bundle at " + kFramework : thrown([&] { begin(); });
  });
  if (answer == "not permitted") GTEST_SKIP() << "no mount namespace of one's own here";
  EXPECT_EQ(answer,
            "3/0 The folder \"" + file_ +
                "\" cannot be published: it lies on an exFAT volume, which the NFS server does not export. Use a "
                "folder on another volume.");
  EXPECT_FALSE(exists(subexports_));
}

TEST_F(SubexportTest, WithoutTheLibrarysBundleTheRefusalSaysThatItIsMissing) {
  // This program holds the library's objects without its framework.
  if (CFBundleGetBundleWithIdentifier(CFSTR("com.brant.mervane.TovanCore")) != nullptr) {
    GTEST_SKIP() << "another test of this process has brought the bundle in";
  }
  const std::string answer = answerWithMounts(everyType("exfat"), [&] { return thrown([&] { begin(); }); });
  if (answer == "not permitted") GTEST_SKIP() << "no mount namespace of one's own here";
  EXPECT_EQ(answer, "5/2 TovanCore.framework not found");
}

TEST_F(SubexportTest, ThatCannotBePublishedLeavesNoLink) {
  publisher_.fails = true;
  EXPECT_EQ(thrown([&] { begin(); }), "code 255 no server");
  EXPECT_EQ(contents(), "");
}

TEST_F(SubexportTest, WithoutAnAnswerAboutThePortNothingStaysPublished) {
  publisher_.portFails = true;
  EXPECT_EQ(thrown([&] { begin(); }), "code 255 no port");
  EXPECT_EQ(publisher_.calls, (std::vector<std::string>{"publish " + subexports_ + " mvsubexp 0",
                                                        "unpublish " + subexports_ + " mvsubexp 0"}));
  EXPECT_EQ(contents(), "");
}

TEST_F(SubexportTest, CarriesTheFilesTypeAndCreator) {
  const CURLRef file = fileURL(file_);
  if (!file->setFinderTypeAndCreator(0x4D6F6F56, 0x54564F44)) GTEST_SKIP() << "no such attributes here";
  const CURLRef link = begin();
  EXPECT_EQ(link->getFinderType(), 0x4D6F6F56U);
  EXPECT_EQ(link->getFinderCreator(), 0x54564F44U);
}

TEST_F(SubexportTest, EndsWithLinkReferenceAndFolderGone) {
  const CURLRef link = begin();
  Utils::addSharedInfoFile(folderURL(subexports_), CSTR("mvsubexp"));
  publisher_.calls.clear();
  end(link, true);
  EXPECT_EQ(publisher_.calls, std::vector<std::string>{"unpublish " + subexports_ + " mvsubexp 0"});
  EXPECT_FALSE(exists(subexports_));
  EXPECT_EQ(readFile(file_), "content");
}

TEST_F(SubexportTest, EndsWithTheFolderLeftWhenAsked) {
  end(begin(), false);
  EXPECT_EQ(contents(), "");
}

TEST_F(SubexportTest, EndsWithTheFolderLeftForAnotherLink) {
  const CURLRef first = begin();
  const CURLRef second = begin();
  Utils::addSharedInfoFile(folderURL(subexports_), CSTR("mvsubexp"));
  end(first, true);
  EXPECT_TRUE(exists(pathOf(second)));
  EXPECT_TRUE(exists(subexports_ + "/.mervane.plist"));
  end(second, true);
  EXPECT_FALSE(exists(subexports_));
}

TEST_F(SubexportTest, ASecondEndOnlyAsksTheServerAgain) {
  const CURLRef link = begin();
  end(link, true);
  end(link, true);
  EXPECT_FALSE(exists(subexports_));
  const std::string call = "unpublish " + subexports_ + " mvsubexp 0";
  EXPECT_THAT(publisher_.calls, ::testing::ElementsAre(::testing::_, call, call));
}

TEST_F(SubexportTest, GivesTheReferenceBackWhenTheFoldersAreGone) {
  const CURLRef link = begin();
  std::filesystem::remove_all(folder_);
  EXPECT_THAT(thrown([&] { end(link, true); }), ::testing::HasSubstr("Couldn't create lock file: " + folder_));
  EXPECT_EQ(publisher_.calls.back(), "unpublish " + subexports_ + " mvsubexp 0");
}

TEST_F(SubexportTest, FilesOfOtherHostsAreRefused) {
  for (const std::string prefix : {"nfs://host", "file://host"}) {
    const std::string url = prefix + "/srv/movie.mov";
    const auto remote = plinth::makeShared<plinth::CURL>(
        plinth::CSharedCFRef<CFURLRef>(CFURLCreateWithString(nullptr, CSTR(url)->getStringRef(), nullptr)).get());
    EXPECT_EQ(thrown([&] { tovan::beginSubexport(remote, publisher_); }), "3/2 Non-existent path = [" + url + "]");
  }
  EXPECT_TRUE(publisher_.calls.empty());
}

TEST_F(SubexportTest, TakesTheFileOutOfReachEvenWhenTheServerIsGone) {
  const CURLRef link = begin();
  publisher_.fails = true;
  EXPECT_EQ(thrown([&] { end(link, true); }), "code 255 no server");
  EXPECT_FALSE(exists(pathOf(link)));
}

TEST_F(SubexportTest, EndsNothingButALinkInItsFolder) {
  const std::string url = fileURL(file_)->getString()->str();
  EXPECT_EQ(thrown([&] { end(fileURL(file_), true); }),
            "3/0 Couldn't remove subexp link: " + url + " (Invalid argument)");
  EXPECT_TRUE(exists(file_));
  makeFolders(subexports_ + "/folder");
  EXPECT_EQ(thrown([&] { end(fileURL(subexports_ + "/folder"), true); }),
            "3/0 Couldn't remove subexp link: " + subexports_ + "/folder (Is a directory)");
  EXPECT_EQ(thrown([&] { end(CURLRef(), true); }), "Error: url is null!");
}

TEST_F(SubexportTest, SaysThatTheFolderCannotBeRemoved) {
  const CURLRef link = begin();
  const std::string inside = folder_ + "/.mvsubexp";
  ASSERT_EQ(::unlink(pathOf(link).c_str()), 0);
  // A mounted folder is busy.
  const pid_t child = ::fork();
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", inside.c_str(), "tmpfs", 0, nullptr) != 0) {
      ::_exit(2);
    }
    const std::string text = thrown([&] { tovan::removeSubexportFolder(link); });
    const std::string expected = "3/0 Couldn't remove subexp directory: " + inside + " (Device or resource busy)";
    if (text != expected) std::fprintf(stderr, "%s\n", text.c_str());
    ::_exit(text == expected ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "no mount namespace of one's own here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
