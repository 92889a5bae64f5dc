#include "platform/system/scoped_umask.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using platform::ScopedUmask;

mode_t currentMask() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

TEST(ScopedUmaskTest, SetsTheMaskAndPutsItBack) {
  ::umask(027);
  {
    const ScopedUmask scope(0);
    EXPECT_EQ(currentMask(), 0u);
    {
      const ScopedUmask inner(077);
      EXPECT_EQ(currentMask(), 077u);
    }
    EXPECT_EQ(currentMask(), 0u);
  }
  EXPECT_EQ(currentMask(), 027u);
}

TEST(ScopedUmaskTest, NeverLeavesTheMaskOfAnotherThread) {
  ::umask(022);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (mode_t mask = 0; mask < 4; ++mask) {
    threads.emplace_back([&, mask] {
      for (int i = 0; i < 5000; ++i) {
        const ScopedUmask scope(mask);
        if (currentMask() != mask) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(currentMask(), 022u);
}

}  // namespace
