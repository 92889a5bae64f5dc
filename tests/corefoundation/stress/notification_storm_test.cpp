// Storms, and many threads at once.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/support/notification_log.h"
#include "tests/support/private_bus.h"

namespace {

using test::NotificationLog;
using test::post;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kStorm = 10000;
#else
constexpr int kStorm = 100000;
#endif

// Resident memory of this process in KiB.
long residentMemory() {
  std::ifstream file("/proc/self/statm");
  long pages = 0;
  file >> pages >> pages;
  return pages * (::sysconf(_SC_PAGESIZE) / 1024);
}

void countNotification(CFNotificationCenterRef, void* observer, CFStringRef, const void*, CFDictionaryRef) {
  ++*static_cast<int*>(observer);
}

TEST(NotificationStormTest, AHundredThousandArriveInBoundedMemory) {
  const test::PrivateBus bus;
  const CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  int count = 0;
  CFNotificationCenterAddObserver(center, &count, countNotification, CFSTR("Storm2"), nullptr,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
  const pid_t poster = ::fork();
  if (poster == 0) {
    for (int i = 0; i < kStorm; ++i) post(CFSTR("Storm2"), CFSTR("poster"));
    ::_exit(0);
  }
  ASSERT_TRUE(test::runLoopUntil([&] { return count >= kStorm / 10; }, 300)) << count;
  const long early = residentMemory();
  ASSERT_TRUE(test::runLoopUntil([&] { return count >= kStorm; }, 600)) << count << " of " << kStorm;
  EXPECT_LT(residentMemory() - early, 16 * 1024) << "KiB more after the storm than at its beginning";
  int status = 0;
  ::waitpid(poster, &status, 0);
  EXPECT_EQ(status, 0);
  CFNotificationCenterRemoveEveryObserver(center, &count);
}

// A poster that observes and never looks: what it is sent piles up at the bus, not with it.
TEST(NotificationStormTest, APosterThatNeverTurnsItsLoopDoesNotGrow) {
  const test::PrivateBus bus;
  NotificationLog log;
  log.observe(CFSTR("Storm2"), nullptr);
  for (int i = 0; i < kStorm / 10; ++i) post(CFSTR("Storm2"), nullptr);
  const long early = residentMemory();
  for (int i = 0; i < kStorm; ++i) post(CFSTR("Storm2"), nullptr);
  EXPECT_LT(residentMemory() - early, 16 * 1024);
}

TEST(NotificationThreadsTest, ThreadsPostObserveAndRemoveAtTheSameTime) {
  const test::PrivateBus bus;
  constexpr int kThreads = 8;
  constexpr int kRounds = 20;
  std::atomic<int> failures = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const plinth::CSharedCFRef<CFStringRef> own(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("Thread%d"), t));
      for (int round = 0; round < kRounds; ++round) {
        NotificationLog mine, everybodys;
        everybodys.observe(CFSTR("Shared2"), nullptr);
        mine.observe(CFSTR("Shared2"), own.get());
        for (int i = 0; i < 5; ++i) post(CFSTR("Shared2"), own.get());
        if (!mine.await(5)) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

// Other threads remove what a thread observes while it is called.
TEST(NotificationThreadsTest, ObserversAreTakenAwayUnderTraffic) {
  const test::PrivateBus bus;
  static std::atomic<int> called = 0;
  static char observers[64];
  const CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
  std::atomic<bool> stop = false;
  std::thread observing([&] {
    for (char& observer : observers) {
      CFNotificationCenterAddObserver(
          center, &observer,
          [](CFNotificationCenterRef, void*, CFStringRef, const void*, CFDictionaryRef) { ++called; }, CFSTR("Taken2"),
          nullptr, CFNotificationSuspensionBehaviorDeliverImmediately);
    }
    while (!stop) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
  });
  while (called == 0) post(CFSTR("Taken2"), nullptr);
  for (char& observer : observers) {
    post(CFSTR("Taken2"), nullptr);
    CFNotificationCenterRemoveEveryObserver(center, &observer);
  }
  stop = true;
  observing.join();
}

}  // namespace
