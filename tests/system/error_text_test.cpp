#include "platform/system/error_text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

namespace {

TEST(ErrorTextTest, GivesTheSystemsWords) {
  EXPECT_EQ(platform::errorText(ENOENT), "No such file or directory");
  EXPECT_EQ(platform::errorText(EACCES), "Permission denied");
  EXPECT_EQ(platform::errorText(0), "Success");
  EXPECT_EQ(platform::errorText(12345), "Unknown error 12345");
  EXPECT_EQ(platform::errorText(-1), "Unknown error -1");
}

TEST(ErrorTextTest, KeepsErrno) {
  errno = ENOTTY;
  EXPECT_EQ(platform::errorText(99999), "Unknown error 99999");
  EXPECT_EQ(errno, ENOTTY);
}

TEST(ErrorTextTest, KeepsTheTextsOfThreadsApart) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int thread = 1; thread <= 4; ++thread) {
    threads.emplace_back([&, thread] {
      const int value = thread * 100000;
      for (int i = 0; i < 2000; ++i) {
        if (platform::errorText(value) != "Unknown error " + std::to_string(value)) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
