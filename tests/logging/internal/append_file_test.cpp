#include "platform/system/append_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>

#include "platform/system/process_manager.h"
#include "tests/support/scratch_home.h"

namespace {

using platform::AppendFile;
constexpr auto kAllowed = AppendFile::FolderLink::allowed;
constexpr auto kRefused = AppendFile::FolderLink::refused;

TEST(AppendFileTest, ItsPositionIsTheEndFromTheStart) {
  const std::string path = test::scratchFolder("append") + "/log";
  test::writeFile(path, "12345");
  AppendFile file = AppendFile::open(path, kAllowed);
  ASSERT_TRUE(file);
  EXPECT_EQ(file.position(), 5);
  ASSERT_TRUE(file.write("678"));
  EXPECT_EQ(file.position(), 8);
  EXPECT_EQ(test::readFile(path), "12345678");
  ASSERT_TRUE(file.truncate());
  EXPECT_EQ(file.position(), 0);
  ASSERT_TRUE(file.write("9"));
  EXPECT_EQ(test::readFile(path), "9");
}

TEST(AppendFileTest, NothingButARegularFileIsOpened) {
  const std::string folder = test::scratchFolder("others");
  test::writeFile(folder + "/elsewhere", "untouched");
  std::filesystem::create_symlink("elsewhere", folder + "/link");
  ASSERT_EQ(::mkfifo((folder + "/fifo").c_str(), 0600), 0);
  const platform::Descriptor reader = platform::Descriptor::open((folder + "/fifo").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_TRUE(reader);
  for (const char* const name : {"/link", "/fifo", "", "/missing/log", "/elsewhere/log"}) {
    EXPECT_FALSE(AppendFile::open(folder + name, kAllowed)) << name;
    EXPECT_FALSE(AppendFile::open(folder + name, kRefused)) << name;
  }
  EXPECT_EQ(test::readFile(folder + "/elsewhere"), "untouched");
}

TEST(AppendFileTest, AFolderThatIsALinkIsRefusedOnDemand) {
  const std::string folder = test::scratchFolder("linked");
  std::filesystem::create_directory(folder + "/real");
  std::filesystem::create_directory_symlink("real", folder + "/link");
  EXPECT_FALSE(AppendFile::open(folder + "/link//log", kRefused));
  EXPECT_FALSE(test::exists(folder + "/real/log"));
  EXPECT_TRUE(AppendFile::open(folder + "/real//log", kRefused));
  EXPECT_TRUE(AppendFile::open(folder + "/link//log", kAllowed));
}

TEST(AppendFileTest, DevicesAndLinksBelowDevAreOpened) {
  AppendFile null = AppendFile::open("/dev/null", kAllowed);
  ASSERT_TRUE(null);
  EXPECT_FALSE(null.isRegular());
  EXPECT_TRUE(null.write("gone"));
  AppendFile full = AppendFile::open("/dev/full", kAllowed);
  ASSERT_TRUE(full);
  EXPECT_FALSE(full.write("x"));
  EXPECT_EQ(errno, ENOSPC);
}

TEST(AppendFileTest, AFileSizeLimitIsAnErrorAndNoSignal) {
  const std::string path = test::scratchFolder("limit") + "/log";
  const auto writeBeyondTheLimit = [&path] {
    const struct rlimit limit { 10, 10 };
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::signal(SIGXFSZ, SIG_DFL);
    AppendFile file = AppendFile::open(path, kAllowed);
    const bool isWritten = file.write("12345678901234567890");
    std::_Exit(!isWritten && errno == EFBIG ? 0 : 1);
  };
  EXPECT_EXIT(writeBeyondTheLimit(), testing::ExitedWithCode(0), "");
}

TEST(AppendFileTest, AStandardErrorThatLeadsNowhereSwallowsWhatIsWritten) {
  const auto writeToClosed = [] {
    ::close(STDERR_FILENO);
    std::_Exit(AppendFile::standardError().write("x") ? 0 : 1);
  };
  EXPECT_EXIT(writeToClosed(), testing::ExitedWithCode(0), "");
  const auto writeToPipeWithoutReader = [] {
    int ends[2];
    if (::pipe(ends) != 0) std::_Exit(2);
    ::close(ends[0]);
    ::dup2(ends[1], STDERR_FILENO);
    ::signal(SIGPIPE, SIG_DFL);
    std::_Exit(AppendFile::standardError().write("x") ? 0 : 1);
  };
  EXPECT_EXIT(writeToPipeWithoutReader(), testing::ExitedWithCode(0), "");
}

TEST(AppendFileTest, ATurnIsTakenAfterTheOtherAndNotWaitedForWithoutEnd) {
  const std::string path = test::scratchFolder("turn") + "/log";
  const AppendFile first = AppendFile::open(path, kAllowed);
  const AppendFile second = AppendFile::open(path, kAllowed);
  const auto seconds = [&second] {
    const auto start = std::chrono::steady_clock::now();
    const AppendFile::Turn turn(second);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  {
    const AppendFile::Turn turn(first);
    EXPECT_GE(seconds(), 1.0);
  }
  EXPECT_LT(seconds(), 0.9);
}

TEST(AppendFileTest, NoneFailsToWrite) {
  AppendFile none;
  EXPECT_FALSE(none);
  EXPECT_FALSE(none.write("x"));
  EXPECT_EQ(none.position(), -1);
}

TEST(ProcessManagerTest, ASerialNumberWithOneInTheHighWordIsAProcess) {
  const auto self = static_cast<std::uint32_t>(::getpid());
  EXPECT_EQ(platform::copyProcessName({1, self}), "logging_internal_tests");
  EXPECT_EQ(platform::copyProcessName({0, self}), std::nullopt);
  EXPECT_EQ(platform::copyProcessName({1, 0}), std::nullopt);
  EXPECT_EQ(platform::copyProcessName({1, 0xFFFFFFFF}), std::nullopt);
}

}  // namespace
