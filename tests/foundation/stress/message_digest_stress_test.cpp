#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/foundation/message_digest_support.h"
#include "tests/support/notification_log.h"

namespace {

using namespace test;

// In a process of its own, so that the threads' first digests are also the process's.
TEST(MessageDigestStressTest, ThreadsThatBeginAtOnceAllGetTheirDigests) {
  for (int round = 0; round < 20; ++round) {
    EXPECT_EQ(inChild([] {
                std::atomic<int> wrong{0};
                std::vector<std::thread> threads;
                for (int i = 0; i < 8; ++i) {
                  threads.emplace_back([&wrong, i] {
                    for (int n = 0; n < 200; ++n) {
                      const bool right = i % 3 == 0 ? digestOfText("abc", 2) == "900150983cd24fb0d6963f7d28e17f72"
                                         : i % 3 == 1
                                             ? digestOfText("abc", 4) == "a9993e364706816aba3e25717850c26c9cd0d89d"
                                             : digestOfText("abc", 6) == "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc";
                      if (!right) ++wrong;
                    }
                  });
                }
                for (std::thread& thread : threads) thread.join();
                return wrong == 0 ? 0 : 1;
              }),
              0)
        << "round " << round;
  }
}

// Under ThreadSanitizer, which makes each exit take a second, this is about races: a few rounds show them.
#ifdef TOVAN_SANITIZED
constexpr int kExits = 5;
#else
constexpr int kExits = 100;
#endif

TEST(MessageDigestStressTest, AProcessMayExitWhileThreadsCompute) {
  const std::string path = scratchFolder("digest") + "/file";
  writeFile(path, std::string(100000, 'x'));
  for (int round = 0; round < kExits; ++round) {
    const int status = inChild([&] {
      std::atomic<int> digests{0};
      for (int i = 0; i < 4; ++i) {
        std::thread([&, i] {
          for (;;) {
            try {
              static_cast<void>(i % 2 == 0 ? digestOfFile(path, 2) : digestOfText("abc", 4));
            } catch (const plinth::CException&) {  // libcrypto is being taken down
            }
            ++digests;
          }
        }).detach();
      }
      while (digests < 4 + round) std::this_thread::yield();
      std::exit(7);
      return 0;
    });
    ASSERT_EQ(status, 7) << "round " << round;
  }
}

}  // namespace
