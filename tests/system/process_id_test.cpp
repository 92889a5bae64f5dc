#include "platform/system/process_id.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

// Whether a child of this process, and a child of that, know their own ids.
int checkInChildren(int depth) {
  const pid_t child = ::fork();
  if (child == 0) {
    int result = platform::processId() == ::getpid() ? 0 : 1;
    if (depth > 1 && result == 0) result = checkInChildren(depth - 1);
    ::_exit(result);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}

TEST(ProcessIdTest, IsThisProcesss) {
  EXPECT_EQ(platform::processId(), ::getpid());
  EXPECT_EQ(platform::processId(), ::getpid());
}

TEST(ProcessIdTest, IsTheChildsInAChild) {
  ASSERT_EQ(platform::processId(), ::getpid());
  EXPECT_EQ(checkInChildren(3), 0);
  EXPECT_EQ(platform::processId(), ::getpid());
}

TEST(ProcessIdTest, IsTheSameInEveryThread) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 1000; ++round) {
        if (platform::processId() != ::getpid()) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
