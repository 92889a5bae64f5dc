// The file of a CPListUpdater: reading, writing, updating, and the folder it lies in.
#include <tovan/plist_updater.h>

#include "tests/launch/lists.h"
#include "tests/launch/thrown.h"
#include "tests/support/scratch_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>

namespace {

using plinth::CNullPointerException;
using plinth::CParamException;
using plinth::CSTR;
using plinth::CStringRef;
using test::dict;
using test::isDict;
using test::thrownBy;
using ::testing::EndsWith;
using ::testing::StartsWith;
using tovan::CPListUpdater;

std::string version(const std::string& text) { return "<key>Version</key><string>" + text + "</string>"; }

unsigned int modeOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

// How many things a folder holds, hidden ones included.
long countIn(const std::string& folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

// Runs the action in a forked child, and gives its exit status; 100 and up for anything that is not an exit.
int inChild(const std::function<int()>& action) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(action());
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

class CPListUpdaterFileTest : public ::testing::Test {
 protected:
  std::string folder_ = test::scratchFolder("lists");
  std::string path_ = folder_ + "/job.plist";
  CStringRef file_ = CSTR(path_);

  void writeXML(const std::string& entries) { test::writeFile(path_, test::document("<dict>" + entries + "</dict>")); }
};

TEST_F(CPListUpdaterFileTest, ReadsTheFileWhenItIsMade) {
  writeXML("<key>a</key><integer>1</integer>");
  const CPListUpdater updater(file_);
  EXPECT_TRUE(isDict("<key>a</key><integer>1</integer>", updater.plistData()));
  EXPECT_EQ(updater.filePath()->str(), path_);
  EXPECT_TRUE(updater.fileExists());
}

TEST_F(CPListUpdaterFileTest, AMissingFileIsNoList) {
  const CPListUpdater updater(file_);
  EXPECT_EQ(updater.plistData(), nullptr);
  EXPECT_FALSE(updater.fileExists());
  EXPECT_FALSE(test::exists(path_)) << "reading must create nothing";
}

TEST_F(CPListUpdaterFileTest, LeavesTheFileAloneWhenAskedTo) {
  test::writeFile(path_, "damaged");
  CPListUpdater updater(file_, CPListUpdater::Reading::never);
  EXPECT_EQ(updater.plistData(), nullptr);
  updater.setPListData(dict("").get());
  updater.flush();
  EXPECT_TRUE(isDict("", CPListUpdater(file_).plistData()));
}

TEST_F(CPListUpdaterFileTest, RefreshFollowsTheFile) {
  CPListUpdater updater(file_);
  writeXML("<key>a</key><integer>1</integer>");
  updater.refresh();
  EXPECT_TRUE(isDict("<key>a</key><integer>1</integer>", updater.plistData()));
  std::filesystem::remove(path_);
  updater.refresh();
  EXPECT_EQ(updater.plistData(), nullptr);
}

TEST_F(CPListUpdaterFileTest, AFileThatIsNoListIsAnErrorWithItsPathAndReason) {
  const std::string start = "Couldn't read property list from file " + path_ + ", error = ";
  for (const char* content : {"", "no list", "<plist><dict><key>a</key></dict></plist>", "<plist><dict>"}) {
    test::writeFile(path_, content);
    const std::string message = thrownBy<CParamException>([&] { CPListUpdater updater(file_); });
    EXPECT_THAT(message, StartsWith(start)) << "for \"" << content << '"';
    EXPECT_GT(message.size(), start.size()) << "the reason is missing for \"" << content << '"';
    EXPECT_EQ(test::readFile(path_), content) << "the unreadable file must stay";
  }
}

TEST_F(CPListUpdaterFileTest, AFailedRefreshKeepsTheList) {
  writeXML("<key>a</key><true/>");
  CPListUpdater updater(file_);
  test::writeFile(path_, "damaged");
  EXPECT_THROW(updater.refresh(), CParamException);
  EXPECT_TRUE(isDict("<key>a</key><true/>", updater.plistData()));
}

// The binary list { "a" = one character }.
std::string binaryList(char character) {
  std::string bytes = "bplist00";
  bytes += {'\xD1', 1, 2, '\x51', 'a', '\x51', character};  // a dictionary of objects 1 and 2, and those
  bytes += {8, 11, 13};                                     // where the objects begin
  bytes += std::string(6, '\0') + std::string(2, '\1');     // sizes of offsets and references
  for (const char number : {'\3', '\0', '\17'}) bytes += std::string(7, '\0') + number;  // objects, root, offset table
  return bytes;
}

TEST_F(CPListUpdaterFileTest, ReadsBinaryListsAndRefusesWhatXMLCannotCarry) {
  test::writeFile(path_, binaryList('x'));
  EXPECT_TRUE(isDict("<key>a</key><string>x</string>", CPListUpdater(file_).plistData()));
  test::writeFile(path_, binaryList('\x07'));
  EXPECT_EQ(thrownBy<CParamException>([&] { CPListUpdater updater(file_); }), "Property list not valid xml format");
}

TEST_F(CPListUpdaterFileTest, ReadingNeedsAPathAndAFile) {
  const CPListUpdater updater(nullptr);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.readFile(nullptr); }), "Error: filePath is null!");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.readFile(CSTR("")); }), "Error: filePath is null!");
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.readFile(file_); }),
            "Couldn't open read stream from file " + path_ + ", error = 2");
}

TEST_F(CPListUpdaterFileTest, AFolderInTheFilesPlaceIsRefusedBothWays) {
  test::makeFolders(path_);
  EXPECT_EQ(thrownBy<CParamException>([&] { CPListUpdater updater(file_); }),
            "Couldn't open read stream from file " + path_ + ", error = 21");
  const CPListUpdater updater(nullptr);
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.writeFile(file_, dict("").get()); }),
            "Couldn't open write stream to file " + path_ + ", error = 21");
  EXPECT_TRUE(std::filesystem::is_directory(path_));
}

TEST_F(CPListUpdaterFileTest, AFifoInTheFilesPlaceIsRefusedWithoutWaiting) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  ::alarm(20);
  EXPECT_THAT(thrownBy<CParamException>([&] { CPListUpdater updater(file_); }),
              StartsWith("Couldn't open read stream from file " + path_ + ", error = "));
  const CPListUpdater updater(nullptr);
  EXPECT_THAT(thrownBy<CParamException>([&] { updater.writeFile(file_, dict("").get()); }),
              StartsWith("Couldn't open write stream to file " + path_ + ", error = "));
  ::alarm(0);
  EXPECT_TRUE(std::filesystem::is_fifo(path_));
}

TEST_F(CPListUpdaterFileTest, WritesWhatItReads) {
  CPListUpdater updater(file_);
  updater.setPListData(dict(version("1") + "<key>a b\n</key><array><string>&lt;ä&amp;</string></array>").get());
  EXPECT_TRUE(updater.flush());
  EXPECT_TRUE(CFEqual(updater.plistData(), CPListUpdater(file_).plistData())) << test::readFile(path_);
  EXPECT_THAT(test::readFile(path_), StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
}

TEST_F(CPListUpdaterFileTest, ANewFileHasTheUsualPermissionsAndAnOldOneKeepsItsOwn) {
  const CPListUpdater updater(nullptr);
  const mode_t before = ::umask(022);
  updater.writeFile(file_, dict("").get());
  EXPECT_EQ(modeOf(path_), 0644u);
  ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
  updater.writeFile(file_, dict(version("1")).get());
  ::umask(before);
  EXPECT_EQ(modeOf(path_), 0600u);
  EXPECT_TRUE(isDict(version("1"), CPListUpdater(file_).plistData()));
}

TEST_F(CPListUpdaterFileTest, WritingFollowsASymbolicLink) {
  const std::string elsewhere = test::scratchFolder("elsewhere");
  test::writeFile(elsewhere + "/real.plist", test::document("<dict/>"));
  std::filesystem::create_symlink(elsewhere + "/real.plist", path_);
  const CPListUpdater updater(nullptr);
  updater.writeFile(file_, dict(version("1")).get());
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_TRUE(isDict(version("1"), CPListUpdater(CSTR(elsewhere + "/real.plist")).plistData()));
  EXPECT_EQ(countIn(folder_) + countIn(elsewhere), 2);
}

TEST_F(CPListUpdaterFileTest, WritingThroughALinkToNothingMakesTheFile) {
  std::filesystem::create_symlink(folder_ + "/real.plist", path_);
  const CPListUpdater updater(nullptr);
  updater.writeFile(file_, dict(version("1")).get());
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_TRUE(isDict(version("1"), CPListUpdater(CSTR(folder_ + "/real.plist")).plistData()));
}

TEST_F(CPListUpdaterFileTest, WritesARelativePath) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_);
  const CPListUpdater updater(nullptr);
  updater.writeFile(CSTR("job.plist"), dict(version("1")).get());
  std::filesystem::current_path(before);
  EXPECT_TRUE(isDict(version("1"), CPListUpdater(file_).plistData()));
}

TEST_F(CPListUpdaterFileTest, WritesPathsOfEveryKind) {
  for (const std::string name : {"a b", "a\nb", "a'\"$(x)`y`", "ä日本", "-rf", "%41%", "a#b?c=d;e"}) {
    const CStringRef path = CSTR(folder_ + "/" + name + ".plist");
    CPListUpdater updater(path);
    updater.setPListData(dict(version(name == "a b" ? "1" : "2")).get());
    updater.flush();
    EXPECT_TRUE(test::exists(path->str())) << path->str();
    EXPECT_TRUE(CFEqual(updater.plistData(), CPListUpdater(path).plistData())) << path->str();
  }
}

TEST_F(CPListUpdaterFileTest, WritingNeedsAPathAndAValidList) {
  CPListUpdater updater(nullptr);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.writeFile(nullptr, dict("").get()); }),
            "Error: filePath is null!");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.writeFile(CSTR(""), dict("").get()); }),
            "Error: filePath is null!");
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.writeFile(file_, nullptr); }),
            "Property list not valid xml format");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { updater.flush(); }), "Error: _plistData is null!");
  EXPECT_FALSE(test::exists(path_));
}

TEST_F(CPListUpdaterFileTest, APathWithANulIsNoOtherPath) {
  const std::string path = path_ + std::string(1, '\0') + "tail";
  const CPListUpdater updater(nullptr);
  EXPECT_THAT(thrownBy<CParamException>([&] { updater.writeFile(CSTR(path), dict("").get()); }),
              EndsWith(", error = 22"));
  EXPECT_THAT(thrownBy<CParamException>([&] { updater.readFile(CSTR(path)); }), EndsWith(", error = 22"));
  EXPECT_FALSE(test::exists(path_));
}

TEST_F(CPListUpdaterFileTest, AMissingFolderIsTheWriteStreamsError) {
  const std::string path = folder_ + "/missing/job.plist";
  const CPListUpdater updater(nullptr);
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.writeFile(CSTR(path), dict("").get()); }),
            "Couldn't open write stream to file " + path + ", error = 2");
  EXPECT_FALSE(test::exists(folder_ + "/missing"));
}

TEST_F(CPListUpdaterFileTest, AWriteThatRunsOutOfRoomLeavesTheOldFile) {
  writeXML(version("1"));
  const std::string before = test::readFile(path_);
  const auto list = dict("<key>long</key><string>" + std::string(100000, 'x') + "</string>");
  const int status = inChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1000, 1000};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
    const CPListUpdater updater(nullptr);
    const std::string message = thrownBy<CParamException>([&] { updater.writeFile(file_, list.get()); });
    const std::string start = "Couldn't write property list to file " + path_ + ", error = ";
    return message.rfind(start, 0) == 0 && message.find("File too large") != std::string::npos ? 0 : 2;
  });
  EXPECT_EQ(status, 0) << "1: no limit; 2: another message";
  EXPECT_EQ(test::readFile(path_), before);
  EXPECT_EQ(countIn(folder_), 1) << "something was left behind";
}

TEST_F(CPListUpdaterFileTest, WritesInPlaceWhereTheFolderTakesNoNewFiles) {
  if (::geteuid() == 0) {
    // Root may write any folder: become somebody who may not.
    ASSERT_EQ(::chmod(test::scratchHome().c_str(), 0755), 0);
    writeXML("");
    ASSERT_EQ(::chmod(path_.c_str(), 0666), 0);
  } else {
    writeXML("");
    ASSERT_EQ(::chmod(folder_.c_str(), 0555), 0);
  }
  const int status = inChild([&] {
    if (::geteuid() == 0 && ::setuid(65534) != 0) return 1;
    CPListUpdater updater(nullptr);
    const std::string message = thrownBy<CParamException>([&] { updater.writeFile(file_, dict(version("1")).get()); });
    return message == "no exception" ? 0 : 2;
  });
  ::chmod(folder_.c_str(), 0755);
  EXPECT_EQ(status, 0) << "1: cannot become nobody; 2: an exception";
  EXPECT_TRUE(isDict(version("1"), CPListUpdater(file_).plistData()));
}

TEST_F(CPListUpdaterFileTest, AFileThatMayNotBeWrittenIsNotReplaced) {
  writeXML(version("1"));
  ASSERT_EQ(::chmod(path_.c_str(), 0444), 0);
  ASSERT_EQ(::chmod(folder_.c_str(), 0777), 0);
  ASSERT_EQ(::chmod(test::scratchHome().c_str(), 0755), 0);
  const int status = inChild([&] {
    if (::geteuid() == 0 && ::setuid(65534) != 0) return 1;
    const CPListUpdater updater(nullptr);
    const std::string message = thrownBy<CParamException>([&] { updater.writeFile(file_, dict(version("2")).get()); });
    return message == "Couldn't open write stream to file " + path_ + ", error = 13" ? 0 : 2;
  });
  EXPECT_EQ(status, 0) << "1: cannot become nobody; 2: another message";
  EXPECT_TRUE(isDict(version("1"), CPListUpdater(file_).plistData()));
  EXPECT_EQ(countIn(folder_), 1) << "something was left behind";
}

TEST_F(CPListUpdaterFileTest, AFileOfSomebodyElseThatMayNotBeWrittenIsNotReplaced) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to write as somebody who does not own the file";
  ASSERT_EQ(::chmod(folder_.c_str(), 0777), 0);
  ASSERT_EQ(::chmod(test::scratchHome().c_str(), 0755), 0);
  for (const mode_t mode : {0644, 0600}) {
    writeXML(version("1"));
    ASSERT_EQ(::chmod(path_.c_str(), mode), 0);
    const int status = inChild([&] {
      if (::setuid(65534) != 0) return 1;
      const CPListUpdater updater(nullptr);
      const std::string message =
          thrownBy<CParamException>([&] { updater.writeFile(file_, dict(version("2")).get()); });
      return message == "Couldn't open write stream to file " + path_ + ", error = 13" ? 0 : 2;
    });
    EXPECT_EQ(status, 0) << "1: cannot become nobody; 2: another message; with mode " << std::oct << mode;
    EXPECT_TRUE(isDict(version("1"), CPListUpdater(file_).plistData())) << "with mode " << std::oct << mode;
    EXPECT_EQ(countIn(folder_), 1) << "something was left behind";
  }
}

TEST_F(CPListUpdaterFileTest, AReaderSeesTheOldListOrTheNewOne) {
  constexpr int kWrites = 200;
  const auto small = dict(version("1"));
  const auto large = dict(version("2") + "<key>long</key><string>" + std::string(60000, 'x') + "</string>");
  const CPListUpdater updater(nullptr);
  updater.writeFile(file_, small.get());
  const pid_t writer = ::fork();
  if (writer == 0) {
    const std::string message = thrownBy<CParamException>([&] {
      for (int i = 0; i < kWrites; ++i) updater.writeFile(file_, i % 2 == 0 ? large.get() : small.get());
    });
    ::_exit(message == "no exception" ? 0 : 1);
  }
  int status = 0;
  int reads = 0;
  while (::waitpid(writer, &status, WNOHANG) == 0) {
    const auto seen = updater.readFile(file_);
    ASSERT_TRUE(CFEqual(seen.get(), small.get()) || CFEqual(seen.get(), large.get())) << test::xmlOf(seen.get());
    ++reads;
  }
  EXPECT_EQ(status, 0);
  EXPECT_GT(reads, 0);
  EXPECT_EQ(countIn(folder_), 1);
}

TEST_F(CPListUpdaterFileTest, UpdateWritesAHigherVersionMerged) {
  writeXML(version("2") + "<key>old</key><true/><key>both</key><integer>1</integer>");
  CPListUpdater updater(file_);
  EXPECT_TRUE(updater.updateIfNeeded(dict(version("3") + "<key>both</key><integer>2</integer>").get()));
  EXPECT_TRUE(isDict(version("3") + "<key>old</key><true/><key>both</key><integer>2</integer>",
                     CPListUpdater(file_).plistData()));
}

TEST_F(CPListUpdaterFileTest, UpdateLeavesAnEqualOrHigherVersionAlone) {
  writeXML(version("2"));
  const std::string before = test::readFile(path_);
  CPListUpdater updater(file_);
  EXPECT_FALSE(updater.updateIfNeeded(dict(version("2") + "<key>a</key><true/>").get()));
  EXPECT_FALSE(updater.updateIfNeeded(dict(version("1.9") + "<key>a</key><true/>").get()));
  EXPECT_EQ(test::readFile(path_), before);
  EXPECT_TRUE(isDict(version("2"), updater.plistData()));
}

TEST_F(CPListUpdaterFileTest, UpdateAlwaysWritesOverAFileWithoutAVersion) {
  writeXML("<key>a</key><true/>");
  CPListUpdater updater(file_);
  EXPECT_TRUE(updater.updateIfNeeded(dict(version("1")).get()));
  EXPECT_TRUE(isDict(version("1") + "<key>a</key><true/>", CPListUpdater(file_).plistData()));
}

TEST_F(CPListUpdaterFileTest, UpdateFromTextMakesAMissingFile) {
  CPListUpdater updater(file_);
  const CStringRef xml = CSTR(test::document("<dict>" + version("1") + "</dict>"));
  EXPECT_TRUE(updater.updateIfNeeded(xml));
  EXPECT_FALSE(updater.updateIfNeeded(xml));
  EXPECT_TRUE(isDict(version("1"), CPListUpdater(file_).plistData()));
}

TEST_F(CPListUpdaterFileTest, PresenceCountsFilesAndFolders) {
  CPListUpdater updater(file_);
  EXPECT_TRUE(updater.isFilePresent(CSTR(folder_)));
  EXPECT_FALSE(updater.isFilePresent(file_));
  test::writeFile(path_, "");
  EXPECT_TRUE(updater.isFilePresent(file_));
  EXPECT_FALSE(updater.isFilePresent(CSTR("")));
  EXPECT_FALSE(updater.isFilePresent(nullptr));
  std::filesystem::create_symlink(folder_ + "/nothing", folder_ + "/link");
  EXPECT_FALSE(updater.isFilePresent(CSTR(folder_ + "/link")));
}

TEST_F(CPListUpdaterFileTest, MakesTheMissingFolderWithExactlyTheGivenMode) {
  const std::string path = folder_ + "/a b/job.plist";
  CPListUpdater updater{CSTR(path)};
  EXPECT_FALSE(updater.parentDirExists());
  const mode_t before = ::umask(077);
  EXPECT_TRUE(updater.makeParentDirIfNeeded(0755));
  EXPECT_EQ(::umask(before), 077u) << "the mask must be put back";
  EXPECT_EQ(modeOf(folder_ + "/a b"), 0755u);
  EXPECT_TRUE(updater.parentDirExists());
  EXPECT_FALSE(updater.makeParentDirIfNeeded(0700));
  EXPECT_EQ(modeOf(folder_ + "/a b"), 0755u);
  updater.setPListData(dict("").get());
  EXPECT_TRUE(updater.flush());
}

TEST_F(CPListUpdaterFileTest, MakesOneLevelOnly) {
  CPListUpdater updater(CSTR(folder_ + "/a/b/job.plist"));
  const mode_t before = ::umask(027);
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.makeParentDir(0755); }),
            "mkdir(" + folder_ + "/a/b) failed, error = No such file or directory");
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.makeParentDirIfNeeded(0755); }),
            "mkdir(" + folder_ + "/a/b) failed, error = No such file or directory");
  EXPECT_EQ(::umask(before), 027u) << "the mask must be put back";
  EXPECT_FALSE(test::exists(folder_ + "/a"));
}

TEST_F(CPListUpdaterFileTest, MakingAFolderThatIsThereFails) {
  CPListUpdater updater(file_);
  EXPECT_EQ(thrownBy<CParamException>([&] { updater.makeParentDir(0755); }),
            "mkdir(" + folder_ + ") failed, error = File exists");
}

TEST_F(CPListUpdaterFileTest, TheFolderPartOfAPathIsFoundInEveryForm) {
  EXPECT_TRUE(CPListUpdater(CSTR("job.plist")).parentDirExists()) << "the current folder";
  EXPECT_TRUE(CPListUpdater(CSTR("/job.plist")).parentDirExists()) << "the root";
  CPListUpdater doubled(CSTR(folder_ + "/made//job.plist"));
  EXPECT_TRUE(doubled.makeParentDirIfNeeded(0700));
  EXPECT_TRUE(std::filesystem::is_directory(folder_ + "/made"));
  CPListUpdater without(nullptr);
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { without.makeParentDir(0755); }), "Error: filePath is null!");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { without.makeParentDirIfNeeded(0755); }), "Error: filePath is null!");
}

}  // namespace
