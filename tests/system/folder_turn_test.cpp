#include "platform/system/folder_turn.h"

#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>

#include <sys/file.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>
#include <vector>

namespace {

using platform::Descriptor;
using platform::FolderTurn;

class FolderTurnTest : public ::testing::Test {
 protected:
  const std::string folder_ = test::scratchFolder("turns");
};

TEST_F(FolderTurnTest, OneAtATime) {
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int time = 0; time < 20; ++time) {
        const FolderTurn turn(folder_);
        if (!turn.isTaken()) continue;  // on a machine that is too busy
        const int now = ++inside;
        if (now > most) most = now;
        std::this_thread::yield();
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(most, 1);
}

TEST_F(FolderTurnTest, OneWhoKeepsItIsWaitedForASecondAtMost) {
  const Descriptor keeper = Descriptor::open(folder_.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::flock(keeper.get(), LOCK_EX), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(FolderTurn(folder_).isTaken());
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited.count(), 1.0);
  ASSERT_EQ(::flock(keeper.get(), LOCK_UN), 0);
  EXPECT_TRUE(FolderTurn(folder_).isTaken());
}

TEST_F(FolderTurnTest, AChildThatWasForkedMeanwhileDoesNotKeepIt) {
  pid_t child = 0;
  {
    const FolderTurn turn(folder_);
    ASSERT_TRUE(turn.isTaken());
    child = ::fork();
    if (child == 0) {
      for (;;) ::pause();
    }
  }
  EXPECT_TRUE(FolderTurn(folder_).isTaken());
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

TEST_F(FolderTurnTest, WhatIsNoFolderIsNotWaitedFor) {
  test::writeFile(folder_ + "/file", "");
  EXPECT_FALSE(FolderTurn(folder_ + "/file").isTaken());
  EXPECT_FALSE(FolderTurn(folder_ + "/missing").isTaken());
  EXPECT_FALSE(FolderTurn("").isTaken());
}

}  // namespace
