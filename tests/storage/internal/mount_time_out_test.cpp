// Commands that do not end by themselves.
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

#include "platform/system/process_table.h"
#include "storage/mount_command.h"
#include "tests/storage/nfs_subscriber_support.h"
#include "tests/support/notification_log.h"
#include "tests/tools/mount/mount_testing.h"

namespace {

using namespace test;

class MountTimeOutTest : public NFSSubscriberTest {
 protected:
  ~MountTimeOutTest() override { tovan::setMountTimeLimitsForTesting(tovan::standardMountTimeLimits()); }

  // Processes that wrote their ids into files "pid-…" of the tools' folder and have not ended.
  std::string running() const {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(tools_.folder())) {
      const std::string name = entry.path().filename();
      if (!name.starts_with("pid-")) continue;
      const std::string id = readFile(entry.path());
      if (!id.empty() && platform::processName(std::stoi(id))) text += name + " ";
    }
    return text;
  }
  // What the children of orphaned ends leave is collected by whoever adopts them, which takes a moment.
  void expectAllGone() const {
    EXPECT_TRUE(runLoopUntil([this] { return running().empty(); })) << running() << "still run";
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child was not collected";
  }
  // What the action throws when the command is given up, with all these files written before: on a busy machine a tool
  // may take its time to come up, and gets more then.
  std::string failureAfter(const std::vector<std::string>& files, const std::function<void()>& action) {
    for (double run = 0.5;; run *= 2) {
      tovan::setMountTimeLimitsForTesting({.run = run, .grace = grace_});
      const std::string failure = thrown(action);
      const bool isUp = std::all_of(files.begin(), files.end(),
                                    [this](const std::string& file) { return exists(tools_.folder() + "/" + file); });
      if (isUp) return failure;
      if (run > 10) return "the tool did not come up";
    }
  }
  std::string mountFailureAfter(const std::vector<std::string>& files) {
    return failureAfter(files, [this] { subscribe("nfs://host/srv", mnt_ + "/a"); });
  }

  double grace_ = 0.5;
};

const char kTimedOut[] = "1/12 CNFSSharedStorage::_subscribe: command [/sbin/mount host:/srv] timed out";

TEST(MountTimeLimitsTest, LeaveFiveSecondsOfTheRequest) {
  EXPECT_EQ(tovan::standardMountTimeLimits().run, 55.0);
  EXPECT_LT(tovan::standardMountTimeLimits().grace, 5.0);
}

TEST_F(MountTimeOutTest, AMountThatHangsIsEndedAndCollected) {
  tools_.makeTool("mount", "echo $$ > \"$here/pid-tool\"; exec sleep 1000");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(mountFailureAfter({"pid-tool"}), kTimedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
  expectAllGone();
  EXPECT_EQ(held(), "");
}

TEST_F(MountTimeOutTest, ItsChildrenGoToo) {
  tools_.makeTool("mount",
                  "sleep 1000 & echo $! > \"$here/pid-one\"; (sleep 1000 & echo $! > \"$here/pid-two\"; wait) & "
                  "echo $! > \"$here/pid-three\"; echo $$ > \"$here/pid-tool\"; wait");
  EXPECT_EQ(mountFailureAfter({"pid-one", "pid-two", "pid-three", "pid-tool"}), kTimedOut);
  expectAllGone();
}

TEST_F(MountTimeOutTest, ItsChildrenAreAskedBeforeTheyAreKilled) {
  grace_ = 20;
  tools_.makeTool("mount",
                  "(trap ': > \"$here/asked\"; kill $!; exit' TERM; sleep 1000 & : > \"$here/up\"; wait) & "
                  "echo $$ > \"$here/pid-tool\"; wait");
  EXPECT_EQ(mountFailureAfter({"pid-tool", "up"}), kTimedOut);
  EXPECT_TRUE(runLoopUntil([this] { return exists(tools_.folder() + "/asked"); }));
  expectAllGone();
}

TEST_F(MountTimeOutTest, WhatDoesNotHeedTheRequestIsKilled) {
  tools_.makeTool("mount",
                  "trap '' TERM; sleep 1000 & echo $! > \"$here/pid-child\"; echo $$ > \"$here/pid-tool\"; "
                  "while :; do sleep 1; done");
  EXPECT_EQ(mountFailureAfter({"pid-child", "pid-tool"}), kTimedOut);
  expectAllGone();
}

// The tool itself ends when asked, its child has to be killed.
TEST_F(MountTimeOutTest, AChildThatOutlivesTheToolIsKilled) {
  tools_.makeTool("mount",
                  "(trap '' TERM; echo \"$(exec sh -c 'echo $PPID')\" > \"$here/pid-child\"; while :; do sleep 1; "
                  "done) & echo $$ > \"$here/pid-tool\"; wait");
  EXPECT_EQ(mountFailureAfter({"pid-child", "pid-tool"}), kTimedOut);
  expectAllGone();
}

TEST_F(MountTimeOutTest, AStoppedToolIsKilled) {
  tools_.makeTool("mount", "echo $$ > \"$here/pid-tool\"; kill -STOP $$");
  EXPECT_EQ(mountFailureAfter({"pid-tool"}), kTimedOut);
  expectAllGone();
}

// As the Linux tools do: the helper lies outside the group, and is the tool's to end.
TEST_F(MountTimeOutTest, AToolHasTimeToEndItsHelpers) {
  grace_ = 20;
  tools_.makeTool("mount",
                  "trap 'sleep 0.3; kill -KILL $helper; exit 1' TERM; setsid sleep 1000 & helper=$!; "
                  "echo $helper > \"$here/pid-helper\"; wait");
  EXPECT_EQ(mountFailureAfter({"pid-helper"}), kTimedOut);
  expectAllGone();
}

// The port's own mount, with a mount of the host that hangs and has a helper which will not end.
TEST_F(MountTimeOutTest, TheLinuxMountEndsTheHostsHelpers) {
  platform::setToolFolderForTesting(TOVAN_BUILD_DIR "/lib/tovan/bin");
  grace_ = 20;
  tools_.makeTool("mount",
                  "trap '' TERM; sleep 1000 & trap - TERM; echo $! > \"$here/pid-helper\"; "
                  "echo $$ > \"$here/pid-tool\"; wait");
  const ScopedVariable hostTool("TOVAN_HOST_MOUNT", tools_.folder() + "/mount");
  EXPECT_EQ(mountFailureAfter({"pid-helper", "pid-tool"}), kTimedOut);
  expectAllGone();
}

TEST_F(MountTimeOutTest, TheRestOfThisProcesssGroupIsLeftAlone) {
  const pid_t neighbour = ::fork();
  if (neighbour == 0) {
    ::pause();
    ::_exit(0);
  }
  tools_.makeTool("mount", "exec sleep 1000");
  EXPECT_EQ(mountFailureAfter({}), kTimedOut);
  EXPECT_EQ(::waitpid(neighbour, nullptr, WNOHANG), 0);
  ::kill(neighbour, SIGKILL);
  ::waitpid(neighbour, nullptr, 0);
}

TEST_F(MountTimeOutTest, AnUnmountThatHangsTakesTheEntryAllTheSame) {
  subscribe("nfs://host/srv", mnt_ + "/a");
  tools_.makeTool("umount", "echo $$ > \"$here/pid-tool\"; exec sleep 1000");
  EXPECT_EQ(failureAfter({"pid-tool"}, [this] { unsubscribe(mnt_ + "/a"); }),
            "1/12 CNFSSharedStorage::_unsubscribe: command [/sbin/umount " + mnt_ + "/a] timed out");
  expectAllGone();
  EXPECT_EQ(held(), "");
}

TEST_F(MountTimeOutTest, AHangingUnmountDoesNotKeepTheOthers) {
  for (const char* const name : {"/a", "/b"}) subscribe("nfs://host/srv", mnt_ + name);
  tools_.calls();
  tovan::setMountTimeLimitsForTesting({.run = 3, .grace = 0.5});
  tools_.makeTool("umount", "case $2 in */b) exec sleep 1000;; esac");
  EXPECT_EQ(thrown([&] { subscriber_->cleanMounts(); }),
            "1/12 CNFSSharedStorage::_unsubscribe: command [/sbin/umount " + mnt_ + "/b] timed out");
  EXPECT_EQ(tools_.calls(), umountCall(mnt_ + "/b") + umountCall(mnt_ + "/a"));
}

}  // namespace
