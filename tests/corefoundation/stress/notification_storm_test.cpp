// Storms, and many threads at once.
#include <CoreFoundation/CFData.h>
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

// How many, and by how many KiB a poster may grow meanwhile: a sanitizer keeps for a while what was freed.
#if defined(TOVAN_SANITIZED)
constexpr int kStorm = 10000;
constexpr long kGrowth = 512 * 1024;
#else
constexpr int kStorm = 100000;
constexpr long kGrowth = 16 * 1024;
#endif

// Resident memory of a process in KiB.
long residentMemory(const std::string& process = "self") {
  std::ifstream file("/proc/" + process + "/statm");
  long pages = 0;
  file >> pages >> pages;
  return pages * (::sysconf(_SC_PAGESIZE) / 1024);
}

void countNotification(CFNotificationCenterRef, void* observer, CFStringRef, const void*, CFDictionaryRef) {
  ++*static_cast<int*>(observer);
}

// A subscriber in a process of its own, which ends well once it has heard "Over2".
class Subscriber {
 public:
  Subscriber() {
    int ready[2];
    EXPECT_EQ(::pipe(ready), 0);
    process_ = ::fork();
    if (process_ == 0) ::_exit(listen(ready[1]));
    char byte;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
    ::close(ready[1]);
  }
  ~Subscriber() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;

  void stop() const { ::kill(process_, SIGSTOP); }
  void resume() const { ::kill(process_, SIGCONT); }
  // False while it runs.
  bool hasEndedWell() const {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
           info.si_code == CLD_EXITED && info.si_status == 0;
  }

 private:
  static int listen(int ready) {
    int storm = 0;
    NotificationLog over;
    CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), &storm, countNotification,
                                    CFSTR("Storm2"), nullptr, CFNotificationSuspensionBehaviorDeliverImmediately);
    over.observe(CFSTR("Over2"), nullptr);
    if (::write(ready, "x", 1) != 1) return 1;
    return over.await(1, 600) && storm > 0 ? 0 : 2;
  }
  pid_t process_ = -1;
};

// The first of these tests: a process that was on a session's bus waits for that one to come back.
//
// On the bus that is started on demand, which keeps 32 MiB for each subscriber and drops what is more: the storm has
// several times that.
TEST(NotificationStormTest, AStoppedSubscriberCostsBoundedMemoryAndHoldsNobodyUp) {
  const test::NoSessionBus bus;
  const Subscriber subscriber;
  NotificationLog log;
  log.observe(CFSTR("Flow2"), nullptr);
  ASSERT_EQ(bus.daemons().size(), 1U);
  const std::string daemon = std::to_string(bus.daemons()[0]);
  const plinth::CSharedCFRef<CFMutableDictionaryRef> info(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  const plinth::CSharedCFRef<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
  CFDataSetLength(data.get(), 200 * 1000 * 1000 / kStorm);
  CFDictionarySetValue(info.get(), CFSTR("data"), data.get());

  subscriber.stop();
  const long daemonBefore = residentMemory(daemon);
  const long before = residentMemory();
  ::testing::internal::CaptureStderr();
  std::size_t heard = 0;
  for (int i = 1; i <= kStorm; ++i) {
    post(CFSTR("Storm2"), nullptr, info.get());
    if (i % (kStorm / 20) != 0) continue;
    post(CFSTR("Flow2"), nullptr);
    ASSERT_TRUE(log.await(++heard, 10)) << "the others hear nothing any more, " << i << " posts into the storm";
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_LT(residentMemory(daemon) - daemonBefore, 96 * 1024) << "KiB more at the bus";
  EXPECT_LT(residentMemory() - before, kGrowth) << "KiB more at the poster";

  // It comes to itself, and is part of everything again.
  subscriber.resume();
  EXPECT_TRUE(test::runLoopUntil(
      [&] {
        post(CFSTR("Over2"), nullptr);
        return subscriber.hasEndedWell();
      },
      60));
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
  EXPECT_LT(residentMemory() - early, kGrowth) << "KiB more after the storm than at its beginning";
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
  EXPECT_LT(residentMemory() - early, kGrowth);
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
