// When timers are due, with clocks that the test sets.
#include "platform/corefoundation/run_loop_schedule.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace cf;

constexpr MonotonicTime kSecond = 1'000'000'000;
constexpr CFAbsoluteTime kDate = 800'000'000;
constexpr MonotonicTime kUptime = 5000 * kSecond;
constexpr ClockReading kStart{kDate, kUptime};

TEST(TimerScheduleTest, ADateBecomesATimeOfTheMonotonicClock) {
  const TimerSchedule schedule(kDate + 60, 1, kStart);
  EXPECT_EQ(schedule.due(), kUptime + 60 * kSecond);
  EXPECT_EQ(schedule.date(), kDate + 60);
}

TEST(TimerScheduleTest, SettingTheClockMovesNoTimer) {
  // Nothing but moveTo ever reads the date again, so all that can change it is the monotonic time.
  TimerSchedule schedule(kDate + 10, 10, kStart);
  schedule.advance(kUptime + 10 * kSecond);
  EXPECT_EQ(schedule.due(), kUptime + 20 * kSecond);
  EXPECT_EQ(schedule.date(), kDate + 20);
  // Moved to a date while the clock shows a day less than it would.
  schedule.moveTo(kDate - 86400 + 35, {kDate - 86400 + 15, kUptime + 15 * kSecond});
  EXPECT_EQ(schedule.due(), kUptime + 35 * kSecond);
}

TEST(TimerScheduleTest, TheNextTimeIsTheFirstMultipleAfterNow) {
  struct {
    MonotonicTime now;
    MonotonicTime next;
  } const cases[] = {
      {0, 10 * kSecond},
      {1, 10 * kSecond},
      {10 * kSecond - 1, 10 * kSecond},
      {10 * kSecond, 20 * kSecond},
      {25 * kSecond, 30 * kSecond},
      {86400 * kSecond + 1, 86410 * kSecond},
  };
  for (const auto& each : cases) {
    TimerSchedule schedule(kDate, 10, kStart);
    schedule.advance(kUptime + each.now);
    EXPECT_EQ(schedule.due() - kUptime, each.next) << each.now;
    EXPECT_NEAR(schedule.date(), kDate + static_cast<double>(each.next) / 1e9, 1e-6);
  }
}

TEST(TimerScheduleTest, AMillionIntervalsDoNotDrift) {
  const double interval = 1.0 / 3;
  TimerSchedule schedule(kDate, interval, kStart);
  for (int count = 0; count < 1'000'000; ++count) schedule.advance(schedule.due() + count % 1000);
  EXPECT_NEAR(static_cast<double>(schedule.due() - kUptime), 1e6 / 3 * 1e9, 2);
  EXPECT_NEAR(schedule.date() - kDate, 1e6 / 3, 1e-6);
}

TEST(TimerScheduleTest, AnIntervalBelowANanosecondStillGoesForward) {
  TimerSchedule schedule(kDate, 1e-300, kStart);
  for (const MonotonicTime late : {MonotonicTime{0}, MonotonicTime{1}, 1000 * kSecond}) {
    const MonotonicTime now = schedule.due() + late;
    schedule.advance(now);
    EXPECT_GT(schedule.due(), now);
    EXPECT_LE(schedule.due(), now + 2);
  }
}

TEST(TimerScheduleTest, EveryIntervalGoesForwardFromEveryTime) {
  for (const double interval : {1e-9, 1e-7, 0.1, 1.0 / 3, 1.0, 12345.678, 9.9e8}) {
    for (const CFAbsoluteTime ago : {0.0, 0.1, 1e5, 9.9e8, 1e12}) {
      TimerSchedule schedule(kDate - ago, interval, kStart);
      for (const MonotonicTime later : {MonotonicTime{0}, MonotonicTime{1}, 7 * kSecond, 100'000'000 * kSecond}) {
        const MonotonicTime now = std::max(schedule.due(), kUptime + later);
        schedule.advance(now);
        EXPECT_GT(schedule.due(), now) << interval << " from " << ago << " ago, at " << later;
        EXPECT_LE(static_cast<double>(schedule.due() - now), interval * 1e9 + 1);
      }
    }
  }
}

TEST(TimerScheduleTest, StrangeDatesAreNowOrNever) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(TimerSchedule(std::nan(""), 1, kStart).due(), kUptime);
  EXPECT_EQ(TimerSchedule(std::nan(""), 1, kStart).date(), kDate);
  EXPECT_LT(TimerSchedule(-infinity, 1, kStart).due(), kUptime);
  EXPECT_LT(TimerSchedule(-1e300, 1, kStart).due(), kUptime);
  EXPECT_EQ(TimerSchedule(infinity, 1, kStart).due(), kNever);
  EXPECT_EQ(TimerSchedule(1e300, 1, kStart).due(), kNever);
  EXPECT_EQ(TimerSchedule(kDate + 1e9, 1, kStart).due(), kNever);
  EXPECT_EQ(TimerSchedule(kDate + 9e8, 1, kStart).due(), kUptime + 900'000'000 * kSecond);
}

TEST(TimerScheduleTest, StrangeIntervalsAreOnceOrNeverAgain) {
  for (const double interval : {0.0, -1.0, std::nan("")}) {
    EXPECT_FALSE(TimerSchedule(kDate, interval, kStart).repeats()) << interval;
  }
  TimerSchedule rare(kDate, std::numeric_limits<double>::infinity(), kStart);
  EXPECT_TRUE(rare.repeats());
  rare.advance(kUptime);
  EXPECT_EQ(rare.due(), kNever);
}

TEST(TimeAfterTest, RoundsUpAndKnowsNoLimit) {
  EXPECT_EQ(timeAfter(100, 1e-10), 101);
  EXPECT_EQ(timeAfter(100, 0.5), 100 + kSecond / 2);
  for (const double none : {0.0, -1.0, -1e300, std::nan("")}) EXPECT_EQ(timeAfter(100, none), 100) << none;
  for (const double huge : {1e9, 1e300, std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(timeAfter(100, huge), kNever) << huge;
  }
}

}  // namespace
