// The conversions of a schedule and its next transition, around changes of the clocks too.
#include <tovan/service_schedule.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tests/logging/fixed_clock.h"
#include "tests/plist/schedule_support.h"

namespace {

using namespace test;

class ServiceScheduleTimeTest : public ScheduleTest {};

constexpr std::uint32_t kOn = CServiceSchedule::kOn;
constexpr std::uint32_t kOff = CServiceSchedule::kOff;
constexpr std::uint32_t kOnBetween = CServiceSchedule::kOnBetween;
constexpr std::uint32_t kOffBetween = CServiceSchedule::kOffBetween;

FixedClock clockAt(CFAbsoluteTime at) {
  return FixedClock(static_cast<std::int64_t>(std::floor(at)), at > std::floor(at) ? 750'000'000 : 0);
}

// On line on that day in that window only.
CServiceScheduleRef onlyOn(std::uint32_t day, std::uint32_t from, std::uint32_t to) {
  const CServiceScheduleRef schedule = scheduleOf(kOff);
  setDay(schedule, day, kOnBetween, from, to);
  return schedule;
}

// In Berlin 02:00 becomes 03:00 on 2026-03-29 at 01:00 GMT, and 03:00 becomes 02:00 on 2026-10-25 at 01:00 GMT.
const CFAbsoluteTime kForward = gmt(2026, 3, 29, 1);
const CFAbsoluteTime kBack = gmt(2026, 10, 25, 1);

TEST_F(ServiceScheduleTimeTest, AMomentIsTheDayAndTimeThatClocksShow) {
  const CServiceScheduleRef schedule = newSchedule();
  EXPECT_EQ(shownAt(*schedule, 0), "1 00:00:00");
  EXPECT_EQ(shownAt(*schedule, -1), "0 23:59:59");
  EXPECT_EQ(shownAt(*schedule, -0.25), "0 23:59:59") << "the second that the moment lies in";
  EXPECT_EQ(shownAt(*schedule, 59.999999), "1 00:00:59");
  EXPECT_EQ(shownAt(*schedule, gmt(2026, 11, 21, 23, 59, 59)), "6 23:59:59");
  setZone("Asia/Kolkata");
  EXPECT_EQ(shownAt(*schedule, gmt(2026, 11, 21, 18, 30)), "0 00:00:00");
  setZone("America/New_York");
  EXPECT_EQ(shownAt(*schedule, gmt(2026, 11, 22, 4, 59, 59)), "6 23:59:59");
}

TEST_F(ServiceScheduleTimeTest, ClocksSkipAnHourAndShowAnotherTwice) {
  setZone("Europe/Berlin");
  const CServiceScheduleRef schedule = newSchedule();
  EXPECT_EQ(shownAt(*schedule, kForward - 1), "0 01:59:59");
  EXPECT_EQ(shownAt(*schedule, kForward), "0 03:00:00");
  EXPECT_EQ(shownAt(*schedule, kBack - 1), "0 02:59:59");
  EXPECT_EQ(shownAt(*schedule, kBack), "0 02:00:00");
}

TEST_F(ServiceScheduleTimeTest, AMomentThatIsNoNumberIsTakenForSome) {
  const CServiceScheduleRef schedule = newSchedule();
  for (const double at : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity(), 1e300, -1e300}) {
    std::uint32_t day = 99, hours = 99, minutes = 99, seconds = 99;
    schedule->fromAbsoluteTime(at, day, hours, minutes, seconds);
    EXPECT_LT(day, 7U) << at;
    EXPECT_LT(hours, 24U) << at;
    EXPECT_LT(minutes, 60U) << at;
    EXPECT_LT(seconds, 60U) << at;
    EXPECT_TRUE(schedule->isOnLine(at)) << at;
  }
}

TEST_F(ServiceScheduleTimeTest, ADayAndTimeIsItsFirstMomentFromNowOn) {
  const CServiceScheduleRef schedule = newSchedule();
  const FixedClock clock = clockAt(gmt(2026, 11, 18, 12, 0, 0) + 0.75);  // a Wednesday
  EXPECT_EQ(schedule->toAbsoluteTime(wednesday, 12, 0, 0), gmt(2026, 11, 18, 12)) << "the current second counts";
  EXPECT_EQ(schedule->toAbsoluteTime(wednesday, 11, 59, 59), gmt(2026, 11, 25, 11, 59, 59));
  EXPECT_EQ(schedule->toAbsoluteTime(wednesday, 12, 0, 1), gmt(2026, 11, 18, 12, 0, 1));
  EXPECT_EQ(schedule->toAbsoluteTime(thursday, 0, 0, 0), gmt(2026, 11, 19));
  EXPECT_EQ(schedule->toAbsoluteTime(saturday, 9, 8, 7), gmt(2026, 11, 21, 9, 8, 7));
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 0, 0, 0), gmt(2026, 11, 22));
  EXPECT_EQ(schedule->toAbsoluteTime(tuesday, 23, 59, 59), gmt(2026, 11, 24, 23, 59, 59));
}

TEST_F(ServiceScheduleTimeTest, TheEndOfADayIsTheNextDaysBeginning) {
  const CServiceScheduleRef schedule = newSchedule();
  FixedClock clock = clockAt(gmt(2026, 11, 18, 12));
  EXPECT_EQ(schedule->toAbsoluteTime(wednesday, 24, 0, 0), gmt(2026, 11, 19));
  EXPECT_EQ(schedule->toAbsoluteTime(saturday, 24, 0, 0), gmt(2026, 11, 22));
  EXPECT_EQ(schedule->toAbsoluteTime(tuesday, 24, 0, 0), gmt(2026, 11, 25));
  clock.set(static_cast<std::int64_t>(gmt(2026, 11, 22)));
  EXPECT_EQ(schedule->toAbsoluteTime(saturday, 24, 0, 0), gmt(2026, 11, 22)) << "now";
}

TEST_F(ServiceScheduleTimeTest, ATimeThatClocksSkipMovesToTheNextThatTheyShow) {
  setZone("Europe/Berlin");
  const CServiceScheduleRef schedule = newSchedule();
  const FixedClock clock = clockAt(kForward - 7200);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 1, 59, 59), kForward - 1);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 0, 0), kForward);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 30, 0), kForward);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 59, 59), kForward);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 3, 0, 0), kForward);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 3, 0, 1), kForward + 1);
}

TEST_F(ServiceScheduleTimeTest, ATimeThatClocksShowTwiceCountsAtItsFirst) {
  setZone("Europe/Berlin");
  const CServiceScheduleRef schedule = newSchedule();
  FixedClock clock = clockAt(kBack - 7200);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 1, 59, 59), kBack - 3601);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 0, 0), kBack - 3600);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 30, 0), kBack - 1800);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 3, 0, 0), kBack + 3600);
  clock.set(static_cast<std::int64_t>(kBack));
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 30, 0), gmt(2026, 11, 1, 1, 30)) << "the first is over";
}

TEST_F(ServiceScheduleTimeTest, HalfAnHourIsSkippedAndRepeatedInLordHowe) {
  setZone("Australia/Lord_Howe");
  const CServiceScheduleRef schedule = newSchedule();
  const CFAbsoluteTime forward = gmt(2026, 10, 3, 15, 30);  // 02:00 becomes 02:30
  const CFAbsoluteTime back = gmt(2026, 4, 4, 15);          // 02:00 becomes 01:30
  FixedClock clock = clockAt(forward - 7200);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 15, 0), forward);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 31, 0), forward + 60);
  clock.set(static_cast<std::int64_t>(back - 7200));
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 1, 45, 0), back - 900);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 2, 0, 0), back + 1800);
}

TEST_F(ServiceScheduleTimeTest, AWholeDayThatIsSkippedMovesToTheNextDay) {
  setZone("Pacific/Apia");  // there was no Friday, 2011-12-30
  const CServiceScheduleRef schedule = newSchedule();
  const CFAbsoluteTime skip = gmt(2011, 12, 30, 10);
  const FixedClock clock = clockAt(skip - 3600);
  EXPECT_EQ(shownAt(*schedule, skip - 1), "4 23:59:59");
  EXPECT_EQ(shownAt(*schedule, skip), "6 00:00:00");
  EXPECT_EQ(schedule->toAbsoluteTime(friday, 12, 0, 0), skip);
  EXPECT_EQ(schedule->toAbsoluteTime(thursday, 24, 0, 0), skip);
  EXPECT_EQ(schedule->toAbsoluteTime(saturday, 0, 0, 1), skip + 1);
  const CServiceScheduleRef onFridays = scheduleOf(kOff);
  onFridays->setScheduleType(friday, kOn);
  EXPECT_EQ(onFridays->nextTransition(skip - 3600), gmt(2012, 1, 5, 10)) << "the Friday after the skipped one";
}

TEST_F(ServiceScheduleTimeTest, ATransitionIsTheFirstSecondOfTheOtherState) {
  const CServiceScheduleRef schedule = onlyOn(wednesday, clockTime(9, 0), clockTime(17, 0));
  const CFAbsoluteTime begin = gmt(2026, 11, 18, 9);
  const CFAbsoluteTime end = gmt(2026, 11, 18, 17);
  EXPECT_EQ(schedule->nextTransition(begin - 86400 * 3), begin);
  EXPECT_EQ(schedule->nextTransition(begin - 1), begin);
  EXPECT_EQ(schedule->nextTransition(begin - 0.25), begin);
  EXPECT_EQ(schedule->nextTransition(begin), end);
  EXPECT_EQ(schedule->nextTransition(begin + 0.25), end);
  EXPECT_EQ(schedule->nextTransition(end - 1), end);
  EXPECT_EQ(schedule->nextTransition(end), begin + 7 * 86400) << "all but a week away";
}

TEST_F(ServiceScheduleTimeTest, DaysOfTheSameStateRunIntoOneAnother) {
  const CServiceScheduleRef schedule = onlyOn(friday, clockTime(18, 0), 86400);
  schedule->setScheduleType(saturday, kOn);
  setDay(schedule, sunday, kOnBetween, 0, clockTime(20, 0));
  EXPECT_EQ(schedule->nextTransition(gmt(2026, 11, 20)), gmt(2026, 11, 20, 18));
  EXPECT_EQ(schedule->nextTransition(gmt(2026, 11, 20, 18)), gmt(2026, 11, 22, 20));
}

TEST_F(ServiceScheduleTimeTest, AConstantScheduleHasNoTransition) {
  for (const std::uint32_t type : {kOn, kOff, kOnBetween, kOffBetween}) {
    const CServiceScheduleRef schedule = scheduleOf(type);
    EXPECT_EQ(schedule->nextTransition(), schedule->distantFuture());
    EXPECT_EQ(schedule->nextTransition(0), schedule->distantFuture());
    std::uint32_t day = 91, hours = 92, minutes = 93, seconds = 94;
    EXPECT_FALSE(schedule->nextTransition(day, hours, minutes, seconds));
    EXPECT_THAT((std::vector{day, hours, minutes, seconds}), testing::ElementsAre(91, 92, 93, 94));
  }
  EXPECT_EQ(newSchedule()->distantFuture(), gmt(4001, 1, 1));
}

TEST_F(ServiceScheduleTimeTest, AScheduleOfWindowsThatHoldNoMomentHasNoTransition) {
  const CServiceScheduleRef schedule = onlyOn(monday, clockTime(22, 0), clockTime(6, 0));
  EXPECT_FALSE(schedule->isConstantSchedule());
  EXPECT_EQ(schedule->nextTransition(gmt(2026, 11, 18)), schedule->distantFuture());
}

TEST_F(ServiceScheduleTimeTest, AMomentBeyondTheCalendarHasNoTransition) {
  const CServiceScheduleRef schedule = onlyOn(monday, 1, 2);
  for (const double at : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity(), 1e300, -1e300, schedule->distantFuture()}) {
    EXPECT_EQ(schedule->nextTransition(at), schedule->distantFuture()) << at;
  }
  EXPECT_EQ(schedule->nextTransition(gmt(4000, 12, 31)), schedule->distantFuture()) << "the next Monday lies beyond";
  EXPECT_EQ(schedule->nextTransition(gmt(1, 1, 8)), gmt(1, 1, 8) + 1) << "a Monday";
}

TEST_F(ServiceScheduleTimeTest, NowIsTheCurrentTime) {
  const CServiceScheduleRef schedule = onlyOn(wednesday, clockTime(9, 0), clockTime(17, 0));
  FixedClock clock = clockAt(gmt(2026, 11, 18, 8, 59, 59) + 0.75);
  EXPECT_FALSE(schedule->isOnLine());
  EXPECT_EQ(schedule->nextTransition(), gmt(2026, 11, 18, 9));
  clock.set(static_cast<std::int64_t>(gmt(2026, 11, 18, 9)));
  EXPECT_TRUE(schedule->isOnLine());
  EXPECT_EQ(schedule->nextTransition(), gmt(2026, 11, 18, 17));
  std::uint32_t day = 99, hours = 99, minutes = 99, seconds = 99;
  EXPECT_TRUE(schedule->nextTransition(day, hours, minutes, seconds));
  EXPECT_THAT((std::vector{day, hours, minutes, seconds}), testing::ElementsAre(3, 17, 0, 0));
  EXPECT_EQ(schedule->toAbsoluteTime(day, hours, minutes, seconds), schedule->nextTransition());
}

TEST_F(ServiceScheduleTimeTest, AWindowFromASkippedTimeBeginsWhereClocksGoOn) {
  setZone("Europe/Berlin");
  const CServiceScheduleRef schedule = onlyOn(sunday, clockTime(2, 30), clockTime(5, 0));
  EXPECT_EQ(schedule->nextTransition(kForward - 86400), kForward);
  EXPECT_FALSE(schedule->isOnLine(kForward - 1));
  EXPECT_TRUE(schedule->isOnLine(kForward));
  EXPECT_EQ(schedule->nextTransition(kForward), kForward + 7200);
}

TEST_F(ServiceScheduleTimeTest, AWindowUntilASkippedTimeEndsWhereClocksGoOn) {
  setZone("Europe/Berlin");
  const CServiceScheduleRef schedule = onlyOn(sunday, clockTime(1, 0), clockTime(2, 30));
  EXPECT_EQ(schedule->nextTransition(kForward - 1800), kForward);
}

TEST_F(ServiceScheduleTimeTest, AWindowInASkippedHourDoesNotTakePlaceAndTheNextWeeksIsFound) {
  setZone("Europe/Berlin");
  const CServiceScheduleRef schedule = onlyOn(sunday, clockTime(2, 10), clockTime(2, 40));
  const CFAbsoluteTime lastEnd = gmt(2026, 3, 22, 1, 40);
  EXPECT_EQ(schedule->nextTransition(lastEnd - 1), lastEnd);
  EXPECT_EQ(schedule->nextTransition(lastEnd), gmt(2026, 4, 5, 0, 10)) << "two weeks later";
}

TEST_F(ServiceScheduleTimeTest, AWindowInAnHourThatIsShownTwiceFollowsTheClock) {
  setZone("Europe/Berlin");
  const CServiceScheduleRef schedule = onlyOn(sunday, clockTime(2, 30), clockTime(5, 0));
  EXPECT_EQ(schedule->nextTransition(kBack - 7200), kBack - 1800) << "the first 02:30";
  EXPECT_EQ(schedule->nextTransition(kBack - 1800), kBack) << "clocks go back to 02:00";
  EXPECT_EQ(schedule->nextTransition(kBack), kBack + 1800) << "the second 02:30";
  EXPECT_EQ(schedule->nextTransition(kBack + 1800), kBack + 3 * 3600);
}

TEST_F(ServiceScheduleTimeTest, AWindowAroundTheChangeIsNotBroken) {
  setZone("Europe/Berlin");
  const CServiceScheduleRef schedule = onlyOn(sunday, clockTime(1, 0), clockTime(5, 0));
  EXPECT_EQ(schedule->nextTransition(kBack - 7200), kBack + 3 * 3600) << "four hours by the clock, five elapsed";
  EXPECT_EQ(schedule->nextTransition(kForward - 3600), kForward + 7200);
}

TEST_F(ServiceScheduleTimeTest, ADayWhoseMidnightIsSkippedBeginsAnHourLater) {
  setZone("America/Sao_Paulo");  // on 2018-11-04 00:00 became 01:00
  const CServiceScheduleRef schedule = scheduleOf(kOff);
  schedule->setScheduleType(sunday, kOn);
  const CFAbsoluteTime forward = gmt(2018, 11, 4, 3);
  EXPECT_EQ(schedule->nextTransition(forward - 7200), forward);
  EXPECT_EQ(shownAt(*schedule, forward), "0 01:00:00");
  EXPECT_EQ(schedule->nextTransition(forward), forward + 23 * 3600);
  const FixedClock clock = clockAt(forward - 60);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 0, 0, 0), forward);
  EXPECT_EQ(schedule->toAbsoluteTime(saturday, 24, 0, 0), forward);
}

TEST_F(ServiceScheduleTimeTest, ADayWhoseLastHourIsShownTwiceEndsAfterTheSecond) {
  setZone("America/Sao_Paulo");  // on 2018-02-18 00:00 became 23:00 of the Saturday
  const CServiceScheduleRef schedule = scheduleOf(kOff);
  schedule->setScheduleType(sunday, kOn);
  const CFAbsoluteTime back = gmt(2018, 2, 18, 2);
  EXPECT_EQ(shownAt(*schedule, back), "6 23:00:00");
  EXPECT_EQ(schedule->nextTransition(back - 7200), back + 3600);
  const FixedClock clock = clockAt(back - 7200);
  EXPECT_EQ(schedule->toAbsoluteTime(sunday, 0, 0, 0), back + 3600);
  EXPECT_EQ(schedule->toAbsoluteTime(saturday, 23, 30, 0), back - 1800);
}

TEST_F(ServiceScheduleTimeTest, AChangeOfTheSystemZoneShowsAtOnce) {
  const CServiceScheduleRef schedule = onlyOn(wednesday, clockTime(9, 0), clockTime(17, 0));
  EXPECT_EQ(schedule->nextTransition(gmt(2026, 11, 17)), gmt(2026, 11, 18, 9));
  setZone("America/New_York");
  EXPECT_EQ(schedule->nextTransition(gmt(2026, 11, 17)), gmt(2026, 11, 18, 14));
}

}  // namespace
