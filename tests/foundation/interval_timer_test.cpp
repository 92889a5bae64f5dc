#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/interval_timer.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <thread>

namespace {

using namespace plinth;
using std::chrono::steady_clock;

constexpr double kLong = 60;  // seconds; a time that no test waits for
constexpr double kInfinity = std::numeric_limits<double>::infinity();

CFAbsoluteTime now() { return CFAbsoluteTimeGetCurrent(); }
CFRunLoopRunResult run(double seconds) { return CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, false); }

TEST(CIntervalTimerTest, CallsBackEachPeriodOnTheThreadThatStartedIt) {
  int calls = 0;
  CIntervalTimer timer(2, now(), [&] {
    if (++calls == 5) CFRunLoopStop(CFRunLoopGetCurrent());
  });
  timer.start();
  const auto start = steady_clock::now();
  EXPECT_EQ(run(kLong), kCFRunLoopRunStopped);
  EXPECT_EQ(calls, 5);
  EXPECT_GE(std::chrono::duration<double>(steady_clock::now() - start).count(), 4 * 0.002 - 1e-3)
      << "the period is in milliseconds";
}

TEST(CIntervalTimerTest, WithoutACallbackItKeepsARunFromReturningAtOnce) {
  EXPECT_EQ(run(0.05), kCFRunLoopRunFinished);
  {
    CIntervalTimer timer(1000, now() + 60);
    timer.start();
    const auto start = steady_clock::now();
    EXPECT_EQ(run(0.05), kCFRunLoopRunTimedOut);
    EXPECT_GE(std::chrono::duration<double>(steady_clock::now() - start).count(), 0.05);
  }
  EXPECT_EQ(run(0.05), kCFRunLoopRunFinished) << "its end removes it";
}

TEST(CIntervalTimerTest, AnEmptyCallbackIsNotCalled) {
  CIntervalTimer timer(1, now(), std::function<void()>());
  timer.start();
  EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut);
}

TEST(CIntervalTimerTest, DoesNothingBeforeItIsStarted) {
  int calls = 0;
  CIntervalTimer timer(1, now(), [&] { ++calls; });
  EXPECT_FALSE(timer.isInstalled());
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(calls, 0);
  timer.start();
  EXPECT_TRUE(timer.isInstalled());
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, 1);
}

TEST(CIntervalTimerTest, StartingTwiceIsStartingOnce) {
  int calls = 0;
  CIntervalTimer timer(1e6, now(), [&] { ++calls; });
  timer.start();
  timer.start();
  std::thread([&] {
    timer.start();
    EXPECT_EQ(run(kLong), kCFRunLoopRunFinished) << "it stays where it was started first";
  }).join();
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, 1);
}

TEST(CIntervalTimerTest, APeriodThatIsNoneFiresOnce) {
  for (const double period : {0.0, -1.0, -kInfinity, std::nan("")}) {
    int calls = 0;
    CIntervalTimer timer(period, now(), [&] { ++calls; });
    timer.start();
    EXPECT_EQ(run(kLong), kCFRunLoopRunFinished) << period;
    EXPECT_EQ(calls, 1) << period;
    EXPECT_FALSE(timer.isInstalled()) << period;
    timer.start();
    EXPECT_EQ(run(kLong), kCFRunLoopRunFinished) << period;
  }
}

TEST(CIntervalTimerTest, AFirstFireInThePastOrUndefinedIsDueAtOnce) {
  for (const double date : {0.0, now() - 1, -kInfinity, std::nan("")}) {
    int calls = 0;
    CIntervalTimer timer(1e6, date, [&] { ++calls; });
    timer.start();
    EXPECT_EQ(run(0), kCFRunLoopRunTimedOut) << date;
    EXPECT_EQ(calls, 1) << date;
  }
}

TEST(CIntervalTimerTest, AFirstFireOutOfReachOnlyKeepsTheRun) {
  for (const double date : {now() + 2e9, 1e300, kInfinity}) {
    CIntervalTimer timer(1, date, [date] { FAIL() << date; });
    timer.start();
    EXPECT_EQ(run(0.005), kCFRunLoopRunTimedOut) << date;
    EXPECT_TRUE(timer.isInstalled()) << date;
  }
}

TEST(CIntervalTimerTest, AHugePeriodDoesNotComeBack) {
  int calls = 0;
  CIntervalTimer timer(kInfinity, now(), [&] { ++calls; });
  timer.start();
  EXPECT_EQ(run(0.005), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(timer.isInstalled());
}

TEST(CIntervalTimerTest, ACallbackMayDestroyItsTimer) {
  std::optional<CIntervalTimer> timer;
  const auto kept = std::make_shared<int>(0);
  timer.emplace(1, now(), [&timer, kept] {
    timer.reset();
    ++*kept;  // what the function holds is still there
  });
  timer->start();
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(*kept, 1);
  EXPECT_EQ(kept.use_count(), 1) << "the callback is gone";
}

TEST(CIntervalTimerTest, AnExceptionLeavesTheRunAndTheTimerGoesOn) {
  int calls = 0;
  CIntervalTimer timer(1, now(), [&] {
    if (++calls == 1) throw CParamException("from the callback");
  });
  timer.start();
  EXPECT_THROW(run(kLong), CParamException);
  EXPECT_EQ(run(0.02), kCFRunLoopRunTimedOut);
  EXPECT_GT(calls, 1);
}

TEST(CIntervalTimerTest, FiresInOtherCommonModesToo) {
  const CFStringRef mode = CFSTR("a mode for interval timers");
  CFRunLoopAddCommonMode(CFRunLoopGetCurrent(), mode);
  int calls = 0;
  CIntervalTimer timer(1e6, now(), [&] { ++calls; });
  timer.start();
  EXPECT_EQ(CFRunLoopRunInMode(mode, 0, false), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, 1);
}

TEST(CIntervalTimerTest, MayBeDestroyedOnAnotherThread) {
  auto timer = std::make_unique<CIntervalTimer>(1, now());
  timer->start();
  std::thread([&] { timer.reset(); }).join();
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
}

TEST(CIntervalTimerTest, IsNotInstalledAnyMoreWhenItsThreadHasEnded) {
  CIntervalTimer timer(1, now());
  std::thread([&] {
    timer.start();
    EXPECT_TRUE(timer.isInstalled());
  }).join();
  EXPECT_FALSE(timer.isInstalled());
}

}  // namespace
