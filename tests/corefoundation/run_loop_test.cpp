// Runs and modes.
#include <gtest/gtest.h>

#include <cmath>
#include <future>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/corefoundation/run_loop_support.h"

namespace {

using namespace run_loops;

std::string modeOf(CFRunLoopRef loop) { return values::textOfOwned(CFRunLoopCopyCurrentMode(loop)); }

// Keeps a mode from being empty.
Held<CFRunLoopTimerRef> idleTimer() {
  return timer(now() + kFarAway, kFarAway, [] {});
}

TEST(CFRunLoopTest, EachThreadHasOneLoopOfItsOwn) {
  const CFRunLoopRef own = CFRunLoopGetCurrent();
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(CFRunLoopGetCurrent(), own);
  EXPECT_EQ(CFGetTypeID(own), CFRunLoopGetTypeID());
  std::thread([own] { EXPECT_NE(CFRunLoopGetCurrent(), own); }).join();
}

TEST(CFRunLoopTest, TheMainLoopIsTheMainThreadsFromWhereverItIsAskedFor) {
  // The test runs on the main thread; here another one asks first.
  CFRunLoopRef seenElsewhere = nullptr;
  std::thread([&] { seenElsewhere = CFRunLoopGetMain(); }).join();
  EXPECT_EQ(seenElsewhere, CFRunLoopGetCurrent());
  EXPECT_EQ(CFRunLoopGetMain(), CFRunLoopGetCurrent());
}

TEST(CFRunLoopTest, AnEmptyModeIsFinishedAtOnce) {
  EXPECT_LT(secondsOf([] { EXPECT_EQ(run(kLong), kCFRunLoopRunFinished); }), kLong / 2);
  EXPECT_EQ(run(0), kCFRunLoopRunFinished);
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunFinished);
  EXPECT_EQ(run(kLong, false, CFSTR("a mode that nobody has heard of")), kCFRunLoopRunFinished);
  CFRunLoopRun();
}

TEST(CFRunLoopTest, AModeWithATimerInAnotherModeOnlyIsFinished) {
  const Installed other(idleTimer(), CFSTR("another"));
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(run(0, false, CFSTR("another")), kCFRunLoopRunTimedOut);
}

TEST(CFRunLoopTest, TheCommonModesCannotBeRun) {
  const Installed common(idleTimer(), kCFRunLoopCommonModes);
  EXPECT_EQ(run(kLong, false, kCFRunLoopCommonModes), kCFRunLoopRunFinished);
  EXPECT_EQ(run(kLong, false, nullptr), kCFRunLoopRunFinished);
}

TEST(CFRunLoopTest, ARunIsTimedOutWhenItsTimeIsOver) {
  const Installed idle(idleTimer());
  const double taken = secondsOf([] { EXPECT_EQ(run(0.05), kCFRunLoopRunTimedOut); });
  EXPECT_GE(taken, 0.05);
  EXPECT_LT(taken, kLong / 2);
}

TEST(CFRunLoopTest, OnePassIsMadeForZeroNegativeAndUndefinedSeconds) {
  for (const double seconds : {0.0, -0.0, -1.0, -std::numeric_limits<double>::infinity(), std::nan("")}) {
    int calls = 0;
    const auto ready = source([&] { ++calls; });
    const Installed installed(ready);
    CFRunLoopSourceSignal(ready);
    const double taken = secondsOf([&] { EXPECT_EQ(run(seconds), kCFRunLoopRunTimedOut) << seconds; });
    EXPECT_EQ(calls, 1) << seconds;
    EXPECT_LT(taken, kLong / 2) << seconds;
  }
}

TEST(CFRunLoopTest, HugeSecondsAreNoLimit) {
  for (const double seconds : {1e9, 1e300, std::numeric_limits<double>::infinity()}) {
    const Installed stopping(timer(now() + 0.01, 0, [] { CFRunLoopStop(CFRunLoopGetCurrent()); }));
    const Installed idle(idleTimer());
    EXPECT_EQ(run(seconds), kCFRunLoopRunStopped) << seconds;
  }
}

TEST(CFRunLoopTest, ARunFinishesWhenItsModeBecomesEmpty) {
  int fired = 0;
  const Installed once(timer(now(), 0, [&] { ++fired; }));
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(fired, 1);
  const Installed again(timer(now(), 0, [&] { ++fired; }));
  CFRunLoopRun();
  EXPECT_EQ(fired, 2);
}

TEST(CFRunLoopTest, AHandledSourceEndsTheRunOnlyWhenAskedTo) {
  int calls = 0;
  const auto counting = source([&] { ++calls; });
  const Installed installed(counting);
  CFRunLoopSourceSignal(counting);
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  EXPECT_EQ(calls, 1);
  CFRunLoopSourceSignal(counting);
  EXPECT_EQ(run(0.01, false), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, 2);
}

TEST(CFRunLoopTest, ATimerDoesNotCountAsAHandledSource) {
  int fired = 0;
  const Installed repeating(timer(now(), 0.001, [&] { ++fired; }));
  EXPECT_EQ(run(0.05, true), kCFRunLoopRunTimedOut);
  EXPECT_GT(fired, 0);
}

TEST(CFRunLoopTest, AStopFromACallbackEndsTheRun) {
  const Installed stopping(timer(now(), kFarAway, [] { CFRunLoopStop(CFRunLoopGetCurrent()); }));
  EXPECT_EQ(run(kLong), kCFRunLoopRunStopped);
}

TEST(CFRunLoopTest, AStopEndsCFRunLoopRun) {
  const Installed stopping(timer(now(), kFarAway, [] { CFRunLoopStop(CFRunLoopGetCurrent()); }));
  CFRunLoopRun();
  EXPECT_EQ(modeOf(CFRunLoopGetCurrent()), "(null)");
}

TEST(CFRunLoopTest, AStopIsNotHiddenByTheSourceThatMadeIt) {
  const auto stopping = source([] { CFRunLoopStop(CFRunLoopGetCurrent()); });
  const Installed installed(stopping);
  CFRunLoopSourceSignal(stopping);
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunStopped);
  CFRunLoopSourceSignal(stopping);
  EXPECT_EQ(run(0, false), kCFRunLoopRunStopped);
}

TEST(CFRunLoopTest, AStopTakesEffectBeforeTheNextCallback) {
  std::vector<std::string> calls;
  const auto first = source([&] {
    calls.push_back("first");
    CFRunLoopStop(CFRunLoopGetCurrent());
  });
  const auto second = source([&] { calls.push_back("second"); });
  const Installed one(first), two(second);
  const Installed due(timer(now() - 1, 0, [&] { calls.push_back("timer"); }));
  CFRunLoopSourceSignal(first);
  CFRunLoopSourceSignal(second);
  EXPECT_EQ(run(kLong), kCFRunLoopRunStopped);
  EXPECT_EQ(calls, std::vector<std::string>({"first"}));
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, std::vector<std::string>({"first", "second", "timer"})) << "what was ready is still ready";
}

TEST(CFRunLoopTest, AStopWhileTheLoopIsNotRunStopsNothing) {
  const Installed idle(idleTimer());
  CFRunLoopStop(CFRunLoopGetCurrent());
  EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut);
}

TEST(CFRunLoopTest, AStopEndsTheInnermostRunOnly) {
  std::vector<CFRunLoopRunResult> inner;
  int ticks = 0;
  const Installed ticking(timer(now(), 0.001, [&] { ++ticks; }), kCFRunLoopCommonModes);
  const Installed nesting(timer(now(), 0, [&] {
    const Installed stopping(timer(now(), 0, [] { CFRunLoopStop(CFRunLoopGetCurrent()); }));
    inner.push_back(run(kLong));
  }));
  EXPECT_EQ(run(0.05), kCFRunLoopRunTimedOut);
  EXPECT_EQ(inner, std::vector<CFRunLoopRunResult>({kCFRunLoopRunStopped}));
  EXPECT_GT(ticks, 0) << "the outer run went on";
}

TEST(CFRunLoopTest, RunsNestToAnyDepthAndShowTheirModes) {
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  std::vector<std::string> modes;
  std::function<void(int)> nest = [&](int depth) {
    modes.push_back(modeOf(loop));
    if (depth == 0) return;
    const auto name = values::string("level " + std::to_string(depth));
    const Installed next(timer(now(), 0, [&nest, depth] { nest(depth - 1); }), name);
    EXPECT_EQ(run(kLong, false, name), kCFRunLoopRunFinished);
    modes.push_back(modeOf(loop));
  };
  nest(3);
  EXPECT_EQ(modes,
            std::vector<std::string>({"(null)", "level 3", "level 2", "level 1", "level 2", "level 3", "(null)"}));
}

TEST(CFRunLoopTest, ModesAreComparedByTheirText) {
  const Installed idle(idleTimer(), CFSTR("mode by name"));
  EXPECT_EQ(run(0, false, values::string("mode by name")), kCFRunLoopRunTimedOut);
}

TEST(CFRunLoopTest, AModeKeepsItsNameWhenTheStringChanges) {
  const Held<CFMutableStringRef> name = CFStringCreateMutable(kCFAllocatorDefault, 0);
  CFStringAppend(name, CFSTR("one"));
  const Installed idle(idleTimer(), name.get());
  CFStringAppend(name, CFSTR("two"));
  EXPECT_EQ(run(0, false, CFSTR("one")), kCFRunLoopRunTimedOut);
  EXPECT_EQ(run(0, false, name.get()), kCFRunLoopRunFinished);
}

TEST(CFRunLoopTest, AnExceptionLeavesTheRunAndTheLoopInOrder) {
  int fired = 0;
  const Installed throwing(timer(now(), 0.001, [&] {
    if (++fired == 1) throw std::runtime_error("from the callback");
  }));
  EXPECT_THROW(run(kLong), std::runtime_error);
  EXPECT_EQ(modeOf(CFRunLoopGetCurrent()), "(null)");
  EXPECT_EQ(run(0.02), kCFRunLoopRunTimedOut);
  EXPECT_GT(fired, 1) << "the timer goes on";
}

TEST(CFRunLoopTest, CommonModesHoldTheDefaultModeAndThoseThatWereAdded) {
  onAFreshLoop([] {
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    const auto before = idleTimer();
    const auto after = idleTimer();
    const Installed one(before, kCFRunLoopCommonModes);
    CFRunLoopAddCommonMode(loop, CFSTR("panel"));
    const Installed two(after, kCFRunLoopCommonModes);
    for (const auto& idle : {before.get(), after.get()}) {
      EXPECT_TRUE(CFRunLoopContainsTimer(loop, idle, kCFRunLoopDefaultMode));
      EXPECT_TRUE(CFRunLoopContainsTimer(loop, idle, CFSTR("panel")));
      EXPECT_TRUE(CFRunLoopContainsTimer(loop, idle, kCFRunLoopCommonModes));
      EXPECT_FALSE(CFRunLoopContainsTimer(loop, idle, CFSTR("other")));
    }
    CFRunLoopRemoveTimer(loop, before, kCFRunLoopCommonModes);
    EXPECT_FALSE(CFRunLoopContainsTimer(loop, before, kCFRunLoopDefaultMode));
    EXPECT_FALSE(CFRunLoopContainsTimer(loop, before, CFSTR("panel")));
    EXPECT_FALSE(CFRunLoopContainsTimer(loop, before, kCFRunLoopCommonModes));
    EXPECT_TRUE(CFRunLoopContainsTimer(loop, after, CFSTR("panel")));
  });
}

TEST(CFRunLoopTest, AddingTheCommonModesToThemselvesChangesNothing) {
  CFRunLoopAddCommonMode(CFRunLoopGetCurrent(), kCFRunLoopCommonModes);
  CFRunLoopAddCommonMode(CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
}

TEST(CFRunLoopTest, NullDoesNothing) {
  CFRunLoopStop(nullptr);
  CFRunLoopWakeUp(nullptr);
  CFRunLoopAddCommonMode(nullptr, kCFRunLoopDefaultMode);
  CFRunLoopAddCommonMode(CFRunLoopGetCurrent(), nullptr);
  EXPECT_FALSE(CFRunLoopIsWaiting(nullptr));
  EXPECT_EQ(CFRunLoopCopyCurrentMode(nullptr), nullptr);
  const auto idle = idleTimer();
  CFRunLoopAddTimer(nullptr, idle, kCFRunLoopDefaultMode);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), nullptr, kCFRunLoopDefaultMode);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), idle, nullptr);
  CFRunLoopRemoveTimer(nullptr, idle, kCFRunLoopDefaultMode);
  EXPECT_FALSE(CFRunLoopContainsTimer(nullptr, idle, kCFRunLoopDefaultMode));
  EXPECT_FALSE(CFRunLoopContainsTimer(CFRunLoopGetCurrent(), idle, nullptr));
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
}

}  // namespace
