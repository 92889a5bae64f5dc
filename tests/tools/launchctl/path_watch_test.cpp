// Paths that come and go, and what a watch tells of them.
#include "tools/launchctl/path_watch.h"

#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using Told = std::vector<std::string>;

class PathWatchTest : public ::testing::Test {
 protected:
  PathWatchTest() { watch_.setPaths({trigger_}); }

  Told handled(bool& layoutChanged) {
    Told told;
    layoutChanged = watch_.handle([&](const std::string& path, bool exists) {
      EXPECT_EQ(path, trigger_);
      told.emplace_back(exists ? "came" : "went");
    });
    return told;
  }

  const std::string folder_ = test::scratchFolder("watched");
  const std::string trigger_ = folder_ + "/one/trigger";
  launchctl::PathWatch watch_;
};

TEST_F(PathWatchTest, WhatComesAndGoesInAFolderThatStaysIsAllTold) {
  std::filesystem::create_directory(folder_ + "/one");
  bool layoutChanged = false;
  EXPECT_EQ(handled(layoutChanged), Told{});
  EXPECT_TRUE(layoutChanged);
  test::writeFile(trigger_, "");
  std::filesystem::remove(trigger_);
  EXPECT_EQ(handled(layoutChanged), (Told{"came", "went"}));
  EXPECT_FALSE(layoutChanged);
  EXPECT_FALSE(watch_.exists(trigger_));
}

TEST_F(PathWatchTest, WhatCameAndWentWithItsFolderIsAnnouncedAsPossible) {
  std::filesystem::create_directory(folder_ + "/one");
  test::writeFile(trigger_, "");
  std::filesystem::remove_all(folder_ + "/one");
  bool layoutChanged = false;
  EXPECT_EQ(handled(layoutChanged), Told{});
  EXPECT_TRUE(layoutChanged) << "nobody saw the trigger, but it may have been there";
}

TEST_F(PathWatchTest, AFolderThatComesWithItsTriggerIsTold) {
  std::filesystem::create_directory(folder_ + "/other");
  test::writeFile(folder_ + "/other/trigger", "");
  std::filesystem::rename(folder_ + "/other", folder_ + "/one");
  bool layoutChanged = false;
  EXPECT_EQ(handled(layoutChanged), Told{"came"});
  EXPECT_TRUE(watch_.exists(trigger_));
}

TEST_F(PathWatchTest, OtherFilesOfAWatchedFolderAreNoNews) {
  test::writeFile(folder_ + "/something else", "");
  bool layoutChanged = true;
  EXPECT_EQ(handled(layoutChanged), Told{});
  EXPECT_FALSE(layoutChanged);
}

}  // namespace
