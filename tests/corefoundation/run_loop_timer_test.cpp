// Timers.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/corefoundation/run_loop_support.h"

namespace {

using namespace run_loops;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Runs the loop until a number of callbacks has come.
void runUntil(const int& count, int wanted) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (count < wanted && std::chrono::steady_clock::now() < limit) run(0.05);
  ASSERT_GE(count, wanted);
}

TEST(CFRunLoopTimerTest, FiresOnceAtItsDateAndIsThenInvalid) {
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFAbsoluteTime firedAt = 0;
  const CFAbsoluteTime date = now() + 0.03;
  const auto once = timer(date, 0, [&] { firedAt = now(); });
  EXPECT_EQ(CFGetTypeID(once.get()), CFRunLoopTimerGetTypeID());
  EXPECT_FALSE(CFRunLoopTimerDoesRepeat(once));
  EXPECT_EQ(CFRunLoopTimerGetInterval(once), 0);
  EXPECT_EQ(CFRunLoopTimerGetNextFireDate(once), date);
  CFRunLoopAddTimer(loop, once, kCFRunLoopDefaultMode);
  EXPECT_TRUE(CFRunLoopContainsTimer(loop, once, kCFRunLoopDefaultMode));
  EXPECT_TRUE(CFRunLoopTimerIsValid(once));
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_GE(firedAt, date - 1e-6);
  EXPECT_FALSE(CFRunLoopTimerIsValid(once));
  EXPECT_FALSE(CFRunLoopContainsTimer(loop, once, kCFRunLoopDefaultMode));
  EXPECT_EQ(CFRunLoopTimerGetNextFireDate(once), 0);
  CFRunLoopTimerSetNextFireDate(once, now());
  CFRunLoopAddTimer(loop, once, kCFRunLoopDefaultMode);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished) << "it does not come back";
}

TEST(CFRunLoopTimerTest, AnIntervalThatIsNoneMakesATimerThatFiresOnce) {
  for (const double interval : {0.0, -0.0, -1.0, -kInfinity, std::nan("")}) {
    int fired = 0;
    const auto once = timer(now(), interval, [&] { ++fired; });
    EXPECT_FALSE(CFRunLoopTimerDoesRepeat(once)) << interval;
    EXPECT_EQ(CFRunLoopTimerGetInterval(once), 0) << interval;
    const Installed installed(once);
    EXPECT_EQ(run(kLong), kCFRunLoopRunFinished) << interval;
    EXPECT_EQ(fired, 1) << interval;
  }
}

TEST(CFRunLoopTimerTest, ADateInThePastOrUndefinedIsDueAtOnce) {
  for (const double date : {now() - 0.001, 0.0, -1e300, -kInfinity, std::nan("")}) {
    int fired = 0;
    const Installed once(timer(date, 0, [&] { ++fired; }));
    EXPECT_EQ(run(0), kCFRunLoopRunTimedOut) << date;
    EXPECT_EQ(fired, 1) << date;
  }
}

TEST(CFRunLoopTimerTest, ADateOutOfReachNeverComesButKeepsTheRun) {
  for (const double date : {now() + 2e9, 1e300, kInfinity}) {
    const auto never = timer(date, 1, [date] { FAIL() << date; });
    const Installed installed(never);
    EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut) << date;
    EXPECT_EQ(CFRunLoopTimerGetNextFireDate(never), date);
  }
}

TEST(CFRunLoopTimerTest, AHugeIntervalFiresOnceAndStaysInstalled) {
  for (const double interval : {1e9, 1e300, kInfinity}) {
    int fired = 0;
    const auto rare = timer(now(), interval, [&] { ++fired; });
    const Installed installed(rare);
    EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut) << interval;
    EXPECT_EQ(fired, 1) << interval;
    EXPECT_TRUE(CFRunLoopTimerIsValid(rare)) << interval;
    EXPECT_EQ(CFRunLoopTimerGetInterval(rare), interval);
  }
}

TEST(CFRunLoopTimerTest, ATinyIntervalLetsOthersComeThrough) {
  int fired = 0;
  int other = 0;
  const Installed rapid(timer(now(), 1e-300, [&] { ++fired; }));
  const Installed slow(timer(now(), 0.005, [&] { ++other; }));
  EXPECT_EQ(run(0.05), kCFRunLoopRunTimedOut);
  EXPECT_GT(fired, other);
  EXPECT_GT(other, 0);
}

TEST(CFRunLoopTimerTest, TimesAreMultiplesOfTheIntervalFromTheFirst) {
  const double interval = 0.002;
  const CFAbsoluteTime first = now() + interval;
  int fired = 0;
  std::vector<CFAbsoluteTime> dates;
  CFRunLoopTimerRef self = nullptr;
  const auto repeating = timer(first, interval, [&] {
    ++fired;
    dates.push_back(CFRunLoopTimerGetNextFireDate(self));
    EXPECT_GE(now(), dates.back() - 1e-6) << "it fired early";
    std::this_thread::sleep_for(std::chrono::microseconds(fired % 5 * 300));  // a callback that takes its time
  });
  self = repeating;
  const Installed installed(repeating);
  runUntil(fired, 50);
  EXPECT_EQ(dates.front(), first);
  for (std::size_t index = 1; index < dates.size(); ++index) {
    const double periods = (dates[index] - first) / interval;
    EXPECT_NEAR(periods, std::round(periods), 1e-3) << "firing " << index << " has drifted";
    EXPECT_GT(dates[index], dates[index - 1] + interval / 2);
  }
}

TEST(CFRunLoopTimerTest, AStallIsMadeUpForByOneCallback) {
  const double interval = 0.005;
  const CFAbsoluteTime first = now();
  int fired = 0;
  std::vector<CFAbsoluteTime> dates;
  CFRunLoopTimerRef self = nullptr;
  const auto repeating = timer(first, interval, [&] {
    ++fired;
    dates.push_back(CFRunLoopTimerGetNextFireDate(self));
  });
  self = repeating;
  const Installed installed(repeating);
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the stall
  const int before = fired;
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, before + 1);
  const CFAbsoluteTime next = CFRunLoopTimerGetNextFireDate(repeating);
  EXPECT_GT(next, first + 0.1) << "the times that went by are over";
  EXPECT_NEAR((next - first) / interval, std::round((next - first) / interval), 1e-3) << "still in step";
}

TEST(CFRunLoopTimerTest, AStallInsideTheCallbackIsMadeUpForToo) {
  const double interval = 0.005;
  int fired = 0;
  const Installed repeating(timer(now(), interval, [&] {
    if (++fired == 1) std::this_thread::sleep_for(std::chrono::milliseconds(60));
  }));
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, 1) << "the next time is after the end of the callback";
}

TEST(CFRunLoopTimerTest, APastStartFixesThePhase) {
  const CFAbsoluteTime first = now() - 1000.25;
  const auto repeating = timer(first, 100, [] {});
  const Installed installed(repeating);
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_NEAR(CFRunLoopTimerGetNextFireDate(repeating) - first, 1100, 1e-3);
}

TEST(CFRunLoopTimerTest, TimersThatAreDueTogetherFireByDateThenOrderThenAsMade) {
  std::vector<std::string> fired;
  std::vector<Held<CFRunLoopTimerRef>> timers;
  const CFAbsoluteTime date = now() - 1;
  const auto add = [&](const char* name, CFAbsoluteTime at, CFIndex order) {
    timers.push_back(timer(
        at, 0, [&fired, name] { fired.push_back(name); }, order));
  };
  add("later", date + 0.5, -100);
  add("first of order 2", date, 2);
  add("order 3", date, 3);
  add("order 1", date, 1);
  add("second of order 2", date, 2);
  add("earlier", date - 0.5, 100);
  for (const auto& each : timers) CFRunLoopAddTimer(CFRunLoopGetCurrent(), each, kCFRunLoopDefaultMode);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(fired, std::vector<std::string>(
                       {"earlier", "order 1", "first of order 2", "second of order 2", "order 3", "later"}));
}

TEST(CFRunLoopTimerTest, AMovedTimerFiresAtItsNewDateAndGoesOnFromThere) {
  int fired = 0;
  const auto moved = timer(now() + kFarAway, 0.25, [&] { ++fired; });
  const Installed installed(moved);
  EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, 0);
  const CFAbsoluteTime date = now();
  CFRunLoopTimerSetNextFireDate(moved, date);
  EXPECT_EQ(CFRunLoopTimerGetNextFireDate(moved), date);
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, 1);
  const double periods = (CFRunLoopTimerGetNextFireDate(moved) - date) / 0.25;
  EXPECT_GE(periods, 1 - 1e-6);
  EXPECT_NEAR(periods, std::round(periods), 1e-6);
}

TEST(CFRunLoopTimerTest, ACallbackMayMoveItsTimer) {
  int fired = 0;
  CFRunLoopTimerRef self = nullptr;
  const CFAbsoluteTime date = now() + kFarAway;
  const auto moving = timer(now(), 0.001, [&] {
    ++fired;
    CFRunLoopTimerSetNextFireDate(self, date);
  });
  self = moving;
  const Installed installed(moving);
  EXPECT_EQ(run(0.02), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(CFRunLoopTimerGetNextFireDate(moving), date);
}

TEST(CFRunLoopTimerTest, ATimerDoesNotFireInsideItsOwnCallback) {
  int depth = 0;
  int deepest = 0;
  int fired = 0;
  const Installed nesting(timer(now(), 0.001, [&] {
    ++fired;
    deepest = std::max(deepest, ++depth);
    EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut) << "it still belongs to the mode";
    --depth;
  }));
  runUntil(fired, 3);
  EXPECT_EQ(deepest, 1);
}

TEST(CFRunLoopTimerTest, OtherTimersFireInsideACallbackThatRunsTheLoop) {
  int inner = 0;
  bool isInside = false;
  int seenInside = 0;
  const Installed ticking(timer(now(), 0.001, [&] {
    ++inner;
    if (isInside) ++seenInside;
  }));
  const Installed nesting(timer(now(), 0, [&] {
    isInside = true;
    run(0.03);
    isInside = false;
  }));
  EXPECT_EQ(run(0.05), kCFRunLoopRunTimedOut);
  EXPECT_GT(seenInside, 0);
}

TEST(CFRunLoopTimerTest, ACallbackMayInvalidateAndReleaseItsTimer) {
  int fired = 0;
  CFRunLoopTimerRef self = nullptr;
  const auto function = [&] {
    ++fired;
    CFRunLoopTimerInvalidate(self);
    EXPECT_FALSE(CFRunLoopTimerIsValid(self));
    CFRelease(self);
    ++fired;  // what the function holds is still there
  };
  {
    auto held = timer(now(), 0.001, function);
    self = static_cast<CFRunLoopTimerRef>(const_cast<void*>(CFRetain(held)));
  }
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), self, kCFRunLoopDefaultMode);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(fired, 2);
}

TEST(CFRunLoopTimerTest, ACallbackMayRemoveAndInvalidateTimersThatAreDueAsWell) {
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  int fired = 0;
  std::vector<CFRunLoopTimerRef> others;
  const auto first = timer(
      0, 0,
      [&] {
        CFRunLoopTimerInvalidate(others[0]);
        CFRunLoopRemoveTimer(loop, others[1], kCFRunLoopDefaultMode);
        CFRunLoopTimerSetNextFireDate(others[2], now() + kFarAway);
      },
      -1);
  const auto invalidated = timer(0, 1, [&] { ++fired; });
  const auto removed = timer(0, 1, [&] { ++fired; });
  const auto moved = timer(0, 1, [&] { ++fired; });
  others = {invalidated, removed, moved};
  // Due before the others, which became due in between.
  CFRunLoopTimerSetNextFireDate(first, -kInfinity);
  const Installed a(first), b(invalidated), c(removed), d(moved);
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(CFRunLoopTimerIsValid(removed));
  EXPECT_FALSE(CFRunLoopContainsTimer(loop, removed, kCFRunLoopDefaultMode));
}

TEST(CFRunLoopTimerTest, TimersAddedByACallbackWaitForTheNextPass) {
  int added = 0;
  std::vector<Held<CFRunLoopTimerRef>> kept;
  Function addAnother = [&] {
    ++added;
    kept.push_back(timer(0, 0, addAnother));
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), kept.back(), kCFRunLoopDefaultMode);
  };
  addAnother();
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(added, 2) << "else the pass would never end";
  EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut);
  EXPECT_GT(added, 2);
  CFRunLoopTimerInvalidate(kept.back());
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
}

TEST(CFRunLoopTimerTest, AThousandTimersFireEachInTheirTurn) {
  constexpr int kCount = 1000;
  std::vector<Held<CFRunLoopTimerRef>> timers;
  std::vector<int> fired;
  const CFAbsoluteTime start = now() + 0.05;
  for (int index = 0; index < kCount; ++index) {
    // Made in an order that is not the one of their dates.
    const int place = index * 389 % kCount;
    timers.push_back(timer(start + place * 1e-4, 0, [&fired, place] { fired.push_back(place); }));
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timers.back(), kCFRunLoopCommonModes);
  }
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  ASSERT_EQ(fired.size(), static_cast<std::size_t>(kCount));
  for (int place = 0; place < kCount; ++place) EXPECT_EQ(fired[static_cast<std::size_t>(place)], place);
}

TEST(CFRunLoopTimerTest, ATimerInTwoModesFiresInBothAndOnceEachTime) {
  int fired = 0;
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  const auto both = timer(now(), kFarAway, [&] { ++fired; });
  const Installed installed(both);
  CFRunLoopAddTimer(loop, both, CFSTR("second mode"));
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(run(0, false, CFSTR("second mode")), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, 1);
  CFRunLoopTimerSetNextFireDate(both, now());
  EXPECT_EQ(run(0, false, CFSTR("second mode")), kCFRunLoopRunTimedOut);
  EXPECT_EQ(fired, 2);
  CFRunLoopRemoveTimer(loop, both, kCFRunLoopDefaultMode);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_TRUE(CFRunLoopContainsTimer(loop, both, CFSTR("second mode")));
}

TEST(CFRunLoopTimerTest, ATimerBelongsToOneLoopAtATime) {
  const auto own = timer(now() + kFarAway, 0, [] {});
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  CFRunLoopAddTimer(loop, own, kCFRunLoopDefaultMode);
  std::thread([&] {
    const CFRunLoopRef other = CFRunLoopGetCurrent();
    CFRunLoopAddTimer(other, own, kCFRunLoopDefaultMode);
    EXPECT_FALSE(CFRunLoopContainsTimer(other, own, kCFRunLoopDefaultMode));
    CFRunLoopRemoveTimer(other, own, kCFRunLoopDefaultMode);
    EXPECT_TRUE(CFRunLoopContainsTimer(loop, own, kCFRunLoopDefaultMode));
    CFRunLoopRemoveTimer(loop, own, kCFRunLoopDefaultMode);
    CFRunLoopAddTimer(other, own, kCFRunLoopDefaultMode);
    EXPECT_TRUE(CFRunLoopContainsTimer(other, own, kCFRunLoopDefaultMode)) << "it was free";
  }).join();
  EXPECT_FALSE(CFRunLoopTimerIsValid(own)) << "the loop that it moved to has ended";
}

TEST(CFRunLoopTimerTest, TheInfoIsRetainedAndReleasedOnce) {
  struct Counts {
    int retained = 0;
    int released = 0;
  } counts;
  CFRunLoopTimerContext context{};
  context.info = &counts;
  context.retain = [](const void* info) {
    ++static_cast<Counts*>(const_cast<void*>(info))->retained;
    return info;
  };
  context.release = [](const void* info) { ++static_cast<Counts*>(const_cast<void*>(info))->released; };
  const auto make = [&](double interval) {
    counts = {};
    return Held<CFRunLoopTimerRef>(CFRunLoopTimerCreate(
        kCFAllocatorDefault, now(), interval, 0, 0, [](CFRunLoopTimerRef, void*) {}, &context));
  };
  { const auto dropped = make(1); }
  EXPECT_EQ(counts.retained, 1);
  EXPECT_EQ(counts.released, 1);
  {
    const auto invalidated = make(1);
    CFRunLoopTimerInvalidate(invalidated);
    EXPECT_EQ(counts.released, 1) << "at once";
    CFRunLoopTimerInvalidate(invalidated);
  }
  EXPECT_EQ(counts.released, 1);
  {
    const auto once = make(0);
    const Installed installed(once);
    EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
    EXPECT_EQ(counts.released, 1) << "after its only callback";
  }
  EXPECT_EQ(counts.retained, 1);
  EXPECT_EQ(counts.released, 1);
}

TEST(CFRunLoopTimerTest, TheCalloutGetsTheTimerAndTheInfo) {
  static int info = 0;
  static CFRunLoopTimerRef seen = nullptr;
  CFRunLoopTimerContext context{0, &info, nullptr, nullptr, nullptr};
  const Held<CFRunLoopTimerRef> plain = CFRunLoopTimerCreate(
      kCFAllocatorDefault, now(), 0, 0, 0,
      [](CFRunLoopTimerRef timer, void* given) {
        seen = timer;
        EXPECT_EQ(given, &info);
        EXPECT_FALSE(CFRunLoopTimerIsValid(timer)) << "it fires once";
      },
      &context);
  const Installed installed(plain);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(seen, plain.get());
}

TEST(CFRunLoopTimerTest, AContextIsNotNeededACalloutIs) {
  const Held<CFRunLoopTimerRef> bare = CFRunLoopTimerCreate(
      kCFAllocatorDefault, now(), 0, 0, 0, [](CFRunLoopTimerRef, void* info) { EXPECT_EQ(info, nullptr); }, nullptr);
  const Installed installed(bare);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(CFRunLoopTimerCreate(kCFAllocatorDefault, now(), 0, 0, 0, nullptr, nullptr), nullptr);
}

TEST(CFRunLoopTimerTest, NullDoesNothing) {
  CFRunLoopTimerInvalidate(nullptr);
  CFRunLoopTimerSetNextFireDate(nullptr, now());
  EXPECT_FALSE(CFRunLoopTimerIsValid(nullptr));
  EXPECT_FALSE(CFRunLoopTimerDoesRepeat(nullptr));
  EXPECT_EQ(CFRunLoopTimerGetInterval(nullptr), 0);
  EXPECT_EQ(CFRunLoopTimerGetNextFireDate(nullptr), 0);
}

}  // namespace
