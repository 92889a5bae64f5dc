// The storage information file.
#include <tovan/shared_storage_utils.h>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "tests/storage/storage_support.h"
#include "tests/support/failing_system_call.h"
#include "tests/support/property_list_support.h"

namespace {

using namespace test;
using Utils = tovan::CSharedStorageUtils;

class InfoFileTest : public ::testing::Test {
 protected:
  const std::string folder_ = scratchFolder("with blank & 'quote'");
  const std::string info_ = folder_ + "/.mervane.plist";
  const std::string marker_ = folder_ + "/.metadata_never_index";
  void add(const std::string& id = "client") { Utils::addSharedInfoFile(folderURL(folder_), CSTR(id)); }
  // The dictionary in the file, or what is wrong with it.
  std::string content() const {
    const Parsed parsed = parse(readFile(info_));
    return parsed.list ? canonical(parsed.list.get()) : parsed.error;
  }
  static std::string expected(const std::string& id) {
    return canonical(parseValue("<dict><key>storage-uuid</key><string>" + id + "</string></dict>").list.get());
  }
};

TEST_F(InfoFileTest, HoldsTheIdentifierAlone) {
  add("0123ABCD-client");
  EXPECT_EQ(content(), expected("0123ABCD-client"));
}

TEST_F(InfoFileTest, AndItsMarkerCanBeReadByAll) {
  const mode_t former = ::umask(077);
  add();
  ::umask(former);
  EXPECT_EQ(modeOf(info_), "644");
  EXPECT_EQ(modeOf(marker_), "644");
  EXPECT_EQ(readFile(marker_), "");
}

TEST_F(InfoFileTest, AnExistingMarkerIsLeftAsItIs) {
  writeFile(marker_, "kept");
  ASSERT_EQ(::chmod(marker_.c_str(), 0600), 0);
  add();
  EXPECT_EQ(readFile(marker_), "kept");
  EXPECT_EQ(modeOf(marker_), "600");
}

TEST_F(InfoFileTest, ALongerOldFileIsReplacedWhole) {
  writeFile(info_, std::string(5000, 'x'));
  ASSERT_EQ(::chmod(info_.c_str(), 0600), 0);
  add();
  EXPECT_EQ(content(), expected("client"));
  EXPECT_EQ(readFile(info_).find('x', readFile(info_).find("</plist>")), std::string::npos);
  EXPECT_EQ(modeOf(info_), "644");
}

TEST_F(InfoFileTest, HostileIdentifiersComeBackWhole) {
  for (const char* const id : kHostileNames) {
    add(id);
    const Parsed parsed = parse(readFile(info_));
    ASSERT_TRUE(parsed.list) << parsed.error;
    const auto* value = static_cast<CFStringRef>(
        CFDictionaryGetValue(static_cast<CFDictionaryRef>(parsed.list.get()), CFSTR("storage-uuid")));
    EXPECT_EQ(text(value), id);
  }
  Utils::addSharedInfoFile(folderURL(folder_), nullptr);
  EXPECT_EQ(content(), expected(""));
}

TEST_F(InfoFileTest, SomethingElseThanAFolderIsRefused) {
  const std::string file = folder_ + "/file";
  writeFile(file, "");
  EXPECT_EQ(thrown([&] { Utils::addSharedInfoFile(folderURL(file), CSTR("id")); }),
            "3/6 Path [" + file + "] not a directory");
  EXPECT_EQ(thrown([&] { Utils::addSharedInfoFile(folderURL(folder_ + "/no"), CSTR("id")); }),
            "3/2 Non-existent path = [" + folder_ + "/no]");
  EXPECT_EQ(thrown([&] { Utils::addSharedInfoFile(nullptr, CSTR("id")); }), "Error: url is null!");
}

TEST_F(InfoFileTest, APathThatIsNotUTF8IsNamedByItsURL) {
  EXPECT_EQ(thrown([] { Utils::addSharedInfoFile(urlOf("file:///tmp/%FF/"), CSTR("id")); }),
            "3/2 Non-existent path = [file:///tmp/%FF/]");
}

TEST_F(InfoFileTest, AFolderThatMayNotBeWrittenIsRefused) {
  std::string text;
  withoutWritePermission(folder_, [&] { text = thrown([&] { add(); }); });
  EXPECT_EQ(text, "3/5 Path [" + folder_ + "] not read/write");
}

TEST_F(InfoFileTest, NothingIsWrittenThroughALink) {
  const std::string victim = folder_ + "/victim";
  writeFile(victim, "precious");
  ASSERT_EQ(::symlink("victim", info_.c_str()), 0);
  EXPECT_EQ(thrown([&] { add(); }), "3/12 Couldn't write info file [" + info_ + "]");
  EXPECT_EQ(readFile(victim), "precious");
}

TEST_F(InfoFileTest, NothingIsWrittenIntoAFileWithASecondName) {
  const std::string victim = folder_ + "/victim";
  writeFile(victim, "precious");
  ASSERT_EQ(::link(victim.c_str(), info_.c_str()), 0);
  EXPECT_EQ(thrown([&] { add(); }), "3/12 Couldn't write info file [" + info_ + "]");
  EXPECT_EQ(readFile(victim), "precious");
}

TEST_F(InfoFileTest, AFIFOOrFolderInItsPlaceIsRefusedAtOnce) {
  ASSERT_EQ(::mkfifo(info_.c_str(), 0666), 0);
  EXPECT_EQ(thrown([&] { add(); }), "3/12 Couldn't write info file [" + info_ + "]");
  ASSERT_EQ(::unlink(info_.c_str()), 0);
  ASSERT_EQ(::mkdir(info_.c_str(), 0777), 0);
  EXPECT_EQ(thrown([&] { add(); }), "3/12 Couldn't write info file [" + info_ + "]");
}

TEST_F(InfoFileTest, AMarkerThatLeadsElsewhereMakesNothingThere) {
  ASSERT_EQ(::symlink("elsewhere", marker_.c_str()), 0);
  add();
  EXPECT_FALSE(exists(folder_ + "/elsewhere"));
}

// What adding the file throws where no file may have more than a few bytes.
std::string thrownWithoutRoom(const std::function<void()>& add) {
  rlimit former{};
  EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
  rlimit small = former;
  small.rlim_cur = 16;
  EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  std::string text = thrown(add);
  EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &former), 0);
  return text;
}

TEST_F(InfoFileTest, AFileSizeLimitLeavesTheOldContent) {
  add("before");
  EXPECT_EQ(thrownWithoutRoom([&] { add("after"); }), "3/12 Couldn't write info file [" + info_ + "]");
  EXPECT_EQ(content(), expected("before"));
}

TEST_F(InfoFileTest, AFirstFileThatDoesNotFitLeavesNone) {
  EXPECT_EQ(thrownWithoutRoom([&] { add(); }), "3/12 Couldn't write info file [" + info_ + "]");
  EXPECT_FALSE(exists(info_));
  EXPECT_FALSE(exists(marker_));
}

// As of a file of somebody else's that everybody may write.
TEST_F(InfoFileTest, AModeThatCannotBeSetIsNoFailure) {
  add("before");
  ASSERT_EQ(::chmod(info_.c_str(), 0666), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (!makeSystemCallFail(SYS_fchmod, EPERM)) ::_exit(1);
    ::_exit(thrown([&] { add("after"); }) == "nothing" ? 0 : 2);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0) << (WEXITSTATUS(status) == 1 ? "no call can be made to fail here" : "it threw");
  EXPECT_EQ(content(), expected("after"));
  EXPECT_EQ(modeOf(info_), "666");
}

TEST_F(InfoFileTest, ForJobsLiesInTheirFolder) {
  Utils::addJobsInfoFile(folderURL(folder_), CSTR("client"));
  EXPECT_EQ(modeOf(folder_ + "/jobs"), "777");
  EXPECT_EQ(canonical(parse(readFile(folder_ + "/jobs/.mervane.plist")).list.get()), expected("client"));
  EXPECT_TRUE(exists(folder_ + "/jobs/.metadata_never_index"));
  EXPECT_FALSE(exists(info_));
}

}  // namespace
