// The trigger files of CLaunchCtlPList.
#include <tovan/launchctl_plist.h>

#include "tests/launch/thrown.h"
#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace {

using plinth::CNullPointerException;
using plinth::CParamException;
using plinth::CSTR;
using plinth::CStringRef;
using test::thrownBy;

class TriggerFileTest : public ::testing::Test {
 protected:
  std::string folder_ = test::scratchFolder("triggers");
  std::string path_ = folder_ + "/a b.launchagent";
  CStringRef file_ = CSTR(path_);
  tovan::CLaunchCtlPList job_{nullptr};
};

TEST_F(TriggerFileTest, IsMadeEmptyAndReadableByAll) {
  const mode_t before = ::umask(022);
  job_.addTriggerFile(file_);
  ::umask(before);
  struct stat info {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_TRUE(S_ISREG(info.st_mode));
  EXPECT_EQ(info.st_mode & 07777u, 0644u);
  EXPECT_EQ(info.st_size, 0);
}

TEST_F(TriggerFileTest, AddingTwiceSucceedsAndLeavesTheFileAlone) {
  test::writeFile(path_, "content");
  job_.addTriggerFile(file_);
  job_.addTriggerFile(file_);
  EXPECT_EQ(test::readFile(path_), "content");
}

TEST_F(TriggerFileTest, AddingFollowsNoLinkAndWaitsForNoFifo) {
  std::filesystem::create_symlink(folder_ + "/elsewhere", path_);
  job_.addTriggerFile(file_);
  EXPECT_FALSE(test::exists(folder_ + "/elsewhere")) << "the link was followed";
  ASSERT_TRUE(std::filesystem::remove(path_));
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  ::alarm(20);
  job_.addTriggerFile(file_);
  ::alarm(0);
  EXPECT_TRUE(std::filesystem::is_fifo(path_));
}

TEST_F(TriggerFileTest, LeavesNoDescriptorOpen) {
  const int before = ::dup(0);
  ASSERT_GE(before, 0);
  ::close(before);
  job_.addTriggerFile(file_);
  const int after = ::dup(0);
  ::close(after);
  EXPECT_EQ(after, before);
}

TEST_F(TriggerFileTest, AddingInAMissingFolderFails) {
  const std::string path = folder_ + "/missing/x";
  EXPECT_EQ(
      thrownBy<CParamException>([&] { job_.addTriggerFile(CSTR(path)); }),
      "CLaunchCtlPList::addTriggerFile: failed to create trigger file " + path + ", error = No such file or directory");
}

TEST_F(TriggerFileTest, RemovingTellsWhetherThereWasOne) {
  job_.addTriggerFile(file_);
  EXPECT_TRUE(job_.removeTriggerFile(file_));
  EXPECT_FALSE(test::exists(path_));
  EXPECT_FALSE(job_.removeTriggerFile(file_));
  EXPECT_FALSE(job_.removeTriggerFile(CSTR(folder_ + "/missing/x")));
}

TEST_F(TriggerFileTest, RemovingTakesALinkAndNotWhatItLeadsTo) {
  test::writeFile(folder_ + "/elsewhere", "content");
  std::filesystem::create_symlink(folder_ + "/elsewhere", path_);
  EXPECT_TRUE(job_.removeTriggerFile(file_));
  EXPECT_FALSE(test::exists(path_));
  EXPECT_EQ(test::readFile(folder_ + "/elsewhere"), "content");
}

TEST_F(TriggerFileTest, AFolderInItsPlaceStays) {
  test::makeFolders(path_);
  job_.addTriggerFile(file_);
  EXPECT_EQ(thrownBy<CParamException>([&] { job_.removeTriggerFile(file_); }),
            "CLaunchCtlPList::removeTriggerFile: failed to remove trigger file " + path_ + ", error = Is a directory");
  EXPECT_TRUE(std::filesystem::is_directory(path_));
}

TEST_F(TriggerFileTest, NeedsAPath) {
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.addTriggerFile(nullptr); }), "Error: path is null!");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { job_.removeTriggerFile(nullptr); }), "Error: path is null!");
}

}  // namespace
