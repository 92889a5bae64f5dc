#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <limits>
#include <random>

#include "tests/corefoundation/value_support.h"

namespace {

using values::descriptionOf;
using values::Held;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Held<CFTimeZoneRef> zone(std::string_view name) {
  Held<CFTimeZoneRef> found(CFTimeZoneCreateWithName(nullptr, values::string(name), false));
  if (found.get() == nullptr) ADD_FAILURE() << "no time zone " << name << "; is tzdata installed?";
  return found;
}

CFAbsoluteTime moment(SInt32 year, int month, int day, int hour = 0, int minute = 0, double second = 0,
                      CFTimeZoneRef timeZone = nullptr) {
  return CFGregorianDateGetAbsoluteTime({year, static_cast<SInt8>(month), static_cast<SInt8>(day),
                                         static_cast<SInt8>(hour), static_cast<SInt8>(minute), second},
                                        timeZone);
}

std::string shown(const CFGregorianDate& date) {
  char text[80];
  std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%06.3f", date.year, date.month, date.day, date.hour,
                date.minute, date.second);
  return text;
}
std::string shown(CFAbsoluteTime at, CFTimeZoneRef timeZone = nullptr) {
  return shown(CFAbsoluteTimeGetGregorianDate(at, timeZone));
}

TEST(CFDateTest, KeepsItsTime) {
  const Held<CFDateRef> date(CFDateCreate(nullptr, 123.25));
  EXPECT_EQ(CFGetTypeID(date), CFDateGetTypeID());
  EXPECT_EQ(CFGetRetainCount(date), 1);
  EXPECT_EQ(CFDateGetAbsoluteTime(date), 123.25);
  EXPECT_EQ(CFDateGetAbsoluteTime(nullptr), 0);
}

TEST(CFDateTest, ComparesByTime) {
  const Held<CFDateRef> early(CFDateCreate(nullptr, -1));
  const Held<CFDateRef> late(CFDateCreate(nullptr, 2.5));
  EXPECT_EQ(CFDateCompare(early, late, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFDateCompare(late, early, nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFDateCompare(late, late, nullptr), kCFCompareEqualTo);
  EXPECT_EQ(CFDateGetTimeIntervalSinceDate(late, early), 3.5);
  EXPECT_FALSE(CFEqual(early, late));
  const Held<CFDateRef> zero(CFDateCreate(nullptr, 0.0));
  const Held<CFDateRef> minusZero(CFDateCreate(nullptr, -0.0));
  EXPECT_TRUE(CFEqual(zero, minusZero));
  EXPECT_EQ(CFHash(zero), CFHash(minusZero));
  const Held<CFDateRef> none(CFDateCreate(nullptr, kNaN));
  const Held<CFDateRef> alsoNone(CFDateCreate(nullptr, -kNaN));
  EXPECT_TRUE(CFEqual(none, alsoNone));
  EXPECT_EQ(CFHash(none), CFHash(alsoNone));
  EXPECT_EQ(CFDateCompare(none, early, nullptr), kCFCompareLessThan);
}

TEST(CFDateTest, IsDescribedInGMT) {
  EXPECT_EQ(descriptionOf(Held<CFDateRef>(CFDateCreate(nullptr, 0))), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(descriptionOf(Held<CFDateRef>(CFDateCreate(nullptr, -0.5))), "2000-12-31 23:59:59 +0000");
}

TEST(CFDateTest, TheCurrentTimeIsTheSystemClocks) {
  const auto before = static_cast<double>(std::time(nullptr));
  const double now = CFAbsoluteTimeGetCurrent() + kCFAbsoluteTimeIntervalSince1970;
  const auto after = static_cast<double>(std::time(nullptr));
  EXPECT_GE(now, before - 1);
  EXPECT_LE(now, after + 1);
}

TEST(CFDateTest, TheEpochsLieWhereTheyShould) {
  EXPECT_EQ(moment(2001, 1, 1), 0);
  EXPECT_EQ(-moment(1970, 1, 1), kCFAbsoluteTimeIntervalSince1970);
  EXPECT_EQ(-moment(1904, 1, 1), kCFAbsoluteTimeIntervalSince1904);
}

TEST(GregorianDateTest, AgreesWithTheCLibraryOnRandomTimes) {
  std::mt19937_64 random(1);
  for (int round = 0; round < 20'000; ++round) {
    // From about the year -290 000 to 290 000, closer to 2001 in half of the cases.
    const std::int64_t range = round % 2 == 0 ? 9'000'000'000'000 : 9'000'000'000;
    const std::time_t time = std::uniform_int_distribution<std::int64_t>(-range, range)(random);
    const double fraction = static_cast<double>(random() % 8) / 8;
    const CFAbsoluteTime at = static_cast<double>(time) - kCFAbsoluteTimeIntervalSince1970 + fraction;
    std::tm expected{};
    ASSERT_NE(gmtime_r(&time, &expected), nullptr);
    const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(at, nullptr);
    ASSERT_EQ(date.year, expected.tm_year + 1900) << time;
    ASSERT_EQ(date.month, expected.tm_mon + 1) << time;
    ASSERT_EQ(date.day, expected.tm_mday) << time;
    ASSERT_EQ(date.hour, expected.tm_hour) << time;
    ASSERT_EQ(date.minute, expected.tm_min) << time;
    ASSERT_NEAR(date.second, expected.tm_sec + fraction, 1e-9) << time;
    ASSERT_EQ(CFGregorianDateGetAbsoluteTime(date, nullptr), at) << time;
    ASSERT_EQ(static_cast<std::time_t>(std::floor(at + kCFAbsoluteTimeIntervalSince1970)), timegm(&expected));
    ASSERT_EQ(CFAbsoluteTimeGetDayOfYear(at, nullptr), expected.tm_yday + 1) << time;
    ASSERT_EQ(CFAbsoluteTimeGetDayOfWeek(at, nullptr), expected.tm_wday == 0 ? 7 : expected.tm_wday) << time;
    char week[8];
    std::strftime(week, sizeof week, "%V", &expected);
    ASSERT_EQ(CFAbsoluteTimeGetWeekOfYear(at, nullptr), std::atoi(week)) << time;
    ASSERT_TRUE(CFGregorianDateIsValid(date, kCFGregorianAllUnits));
  }
}

TEST(GregorianDateTest, HoldsAtTheTurnOfYearsAndCenturies) {
  EXPECT_EQ(shown(-0.001), "2000-12-31 23:59:59.999");
  EXPECT_EQ(shown(0), "2001-01-01 00:00:00.000");
  EXPECT_EQ(shown(moment(2000, 2, 28) + 86400), "2000-02-29 00:00:00.000");
  EXPECT_EQ(shown(moment(1900, 2, 28) + 86400), "1900-03-01 00:00:00.000");
  EXPECT_EQ(shown(moment(1, 1, 1) - 1), "0-12-31 23:59:59.000");
  EXPECT_EQ(shown(moment(0, 1, 1) - 1), "-1-12-31 23:59:59.000");
  EXPECT_EQ(shown(moment(0, 2, 29)), "0-02-29 00:00:00.000");
  EXPECT_EQ(shown(moment(-4712, 1, 1, 12)), "-4712-01-01 12:00:00.000");
  EXPECT_EQ(CFAbsoluteTimeGetDayOfYear(moment(2000, 12, 31), nullptr), 366);
}

TEST(GregorianDateTest, WeeksBelongToTheYearOfTheirThursday) {
  EXPECT_EQ(CFAbsoluteTimeGetWeekOfYear(moment(2005, 1, 1), nullptr), 53);
  EXPECT_EQ(CFAbsoluteTimeGetWeekOfYear(moment(2007, 12, 31), nullptr), 1);
  EXPECT_EQ(CFAbsoluteTimeGetWeekOfYear(moment(2026, 1, 1), nullptr), 1);
  EXPECT_EQ(CFAbsoluteTimeGetWeekOfYear(moment(2026, 12, 31), nullptr), 53);
  EXPECT_EQ(CFAbsoluteTimeGetDayOfWeek(0, nullptr), 1) << "1 January 2001 was a Monday";
}

TEST(GregorianDateTest, TheSecondStaysBelowSixty) {
  for (const double at : {-1e-20, -1e-10, 59.99999999999999, std::nextafter(60.0, 0.0), std::nextafter(0.0, -1.0)}) {
    const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(at, nullptr);
    EXPECT_GE(date.second, 0) << at;
    EXPECT_LT(date.second, 60) << at;
    EXPECT_NEAR(CFGregorianDateGetAbsoluteTime(date, nullptr), at, 1e-6);
  }
}

TEST(GregorianDateTest, TimesThatNoYearHoldsAreTakenAsTheNearest) {
  EXPECT_EQ(CFAbsoluteTimeGetGregorianDate(kInfinity, nullptr).year, std::numeric_limits<SInt32>::max());
  EXPECT_EQ(CFAbsoluteTimeGetGregorianDate(1e300, nullptr).year, std::numeric_limits<SInt32>::max());
  EXPECT_EQ(CFAbsoluteTimeGetGregorianDate(-kInfinity, nullptr).year, std::numeric_limits<SInt32>::min());
  EXPECT_EQ(CFAbsoluteTimeGetGregorianDate(kNaN, nullptr).year, 2001);
  const auto vienna = zone("Europe/Vienna");
  for (const double at : {kInfinity, -kInfinity, kNaN, 1e300, -1e300}) {
    const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(at, vienna);
    EXPECT_TRUE(CFGregorianDateIsValid(date, kCFGregorianAllUnits)) << at;
    EXPECT_GE(CFAbsoluteTimeGetDayOfWeek(at, vienna), 1);
    EXPECT_LE(CFAbsoluteTimeGetWeekOfYear(at, vienna), 53);
  }
  EXPECT_EQ(moment(2001, 1, 1, 0, 0, kInfinity), kInfinity);
  EXPECT_TRUE(std::isnan(moment(2001, 1, 1, 0, 0, kNaN)));
}

TEST(GregorianDateTest, FieldsOutOfRangeCarryOver) {
  EXPECT_EQ(moment(2000, 13, 1), 0);
  EXPECT_EQ(moment(2001, 0, 1), moment(2000, 12, 1));
  EXPECT_EQ(moment(2001, -11, 1), moment(2000, 1, 1));
  EXPECT_EQ(moment(2000, 12, 32), 0);
  EXPECT_EQ(moment(2001, 1, 0), -86400);
  EXPECT_EQ(moment(2001, 1, 1, 25, -60), 86400);
  EXPECT_EQ(moment(2001, 1, 1, 0, 0, -0.5), -0.5);
  EXPECT_EQ(moment(2001, 1, 1, 0, 0, 3600.25), 3600.25);
}

TEST(GregorianDateTest, ValidityLooksAtTheFieldsNamed) {
  const auto isValid = [](CFGregorianDate date, CFOptionFlags flags = kCFGregorianAllUnits) {
    return static_cast<bool>(CFGregorianDateIsValid(date, flags));
  };
  EXPECT_TRUE(isValid({2000, 2, 29, 23, 59, 59.999}));
  EXPECT_FALSE(isValid({2001, 2, 29, 0, 0, 0}));
  EXPECT_TRUE(isValid({2001, 2, 29, 0, 0, 0}, kCFGregorianUnitsDays));
  EXPECT_FALSE(isValid({2001, 2, 32, 0, 0, 0}, kCFGregorianUnitsDays));
  EXPECT_FALSE(isValid({2001, 4, 31, 0, 0, 0}));
  EXPECT_FALSE(isValid({2001, 1, 0, 0, 0, 0}));
  EXPECT_FALSE(isValid({2001, 0, 1, 0, 0, 0}));
  EXPECT_FALSE(isValid({2001, 13, 1, 0, 0, 0}));
  EXPECT_FALSE(isValid({2001, 1, 1, 24, 0, 0}));
  EXPECT_FALSE(isValid({2001, 1, 1, -1, 0, 0}));
  EXPECT_FALSE(isValid({2001, 1, 1, 0, 60, 0}));
  EXPECT_FALSE(isValid({2001, 1, 1, 0, -1, 0}));
  EXPECT_FALSE(isValid({2001, 1, 1, 0, 0, 60}));
  EXPECT_FALSE(isValid({2001, 1, 1, 0, 0, -0.1}));
  EXPECT_FALSE(isValid({2001, 1, 1, 0, 0, kNaN}));
  EXPECT_TRUE(isValid({2001, 99, 99, 99, 99, 99}, kCFGregorianUnitsYears));
}

TEST(GregorianDateTest, ClocksSkipAnHourInSpringAndRepeatOneInAutumn) {
  const auto vienna = zone("Europe/Vienna");
  const CFAbsoluteTime spring = moment(2026, 3, 29, 1);
  EXPECT_EQ(shown(spring - 1, vienna), "2026-03-29 01:59:59.000");
  EXPECT_EQ(shown(spring, vienna), "2026-03-29 03:00:00.000");
  EXPECT_EQ(moment(2026, 3, 29, 2, 30, 0, vienna), spring + 1800);
  EXPECT_EQ(shown(moment(2026, 3, 29, 2, 30, 0, vienna), vienna), "2026-03-29 03:30:00.000");
  EXPECT_EQ(moment(2026, 3, 29, 3, 0, 0, vienna), spring);
  EXPECT_EQ(moment(2026, 3, 29, 1, 59, 59, vienna), spring - 1);

  const CFAbsoluteTime autumn = moment(2026, 10, 25, 1);
  EXPECT_EQ(shown(autumn - 1800, vienna), "2026-10-25 02:30:00.000");
  EXPECT_EQ(shown(autumn + 1800, vienna), "2026-10-25 02:30:00.000");
  EXPECT_EQ(moment(2026, 10, 25, 2, 30, 0, vienna), autumn - 1800) << "the first of the two moments is meant";
  EXPECT_EQ(moment(2026, 10, 25, 3, 0, 0, vienna), autumn + 3600);
}

TEST(GregorianDateTest, AWholeDayMayBeSkipped) {
  const auto apia = zone("Pacific/Apia");  // there was no 30 December 2011
  const CFAbsoluteTime change = moment(2011, 12, 30, 10);
  EXPECT_EQ(shown(change - 1, apia), "2011-12-29 23:59:59.000");
  EXPECT_EQ(shown(change, apia), "2011-12-31 00:00:00.000");
  EXPECT_EQ(moment(2011, 12, 30, 12, 0, 0, apia), change + 12 * 3600);
}

TEST(GregorianUnitsTest, MonthsKeepTheDayOrTakeTheLast) {
  EXPECT_EQ(shown(CFAbsoluteTimeAddGregorianUnits(moment(2001, 1, 31), nullptr, {0, 1, 0, 0, 0, 0})),
            "2001-02-28 00:00:00.000");
  EXPECT_EQ(shown(CFAbsoluteTimeAddGregorianUnits(moment(2000, 2, 29, 5, 6, 7.5), nullptr, {1, 0, 0, 0, 0, 0})),
            "2001-02-28 05:06:07.500");
  EXPECT_EQ(shown(CFAbsoluteTimeAddGregorianUnits(moment(2001, 3, 31), nullptr, {0, -1, 0, 0, 0, 0})),
            "2001-02-28 00:00:00.000");
  EXPECT_EQ(shown(CFAbsoluteTimeAddGregorianUnits(moment(2001, 1, 31), nullptr, {-1, 13, 1, 1, 1, 1.25})),
            "2001-03-01 01:01:01.250");
  EXPECT_EQ(CFAbsoluteTimeAddGregorianUnits(5.5, nullptr, {0, 0, 0, -1, 1, 0.5}), 5.5 - 3600 + 60 + 0.5);
}

TEST(GregorianUnitsTest, DaysKeepTheClockAndHoursElapse) {
  const auto vienna = zone("Europe/Vienna");
  const CFAbsoluteTime noonBefore = moment(2026, 3, 28, 12, 0, 0, vienna);
  EXPECT_EQ(shown(CFAbsoluteTimeAddGregorianUnits(noonBefore, vienna, {0, 0, 1, 0, 0, 0}), vienna),
            "2026-03-29 12:00:00.000");
  EXPECT_EQ(shown(CFAbsoluteTimeAddGregorianUnits(noonBefore, vienna, {0, 0, 0, 24, 0, 0}), vienna),
            "2026-03-29 13:00:00.000");
}

TEST(GregorianUnitsTest, DifferencesCountTheGreatestUnitsFirst) {
  const CFGregorianUnits units = CFAbsoluteTimeGetDifferenceAsGregorianUnits(
      moment(2003, 3, 5, 7, 9, 11.5), moment(2001, 1, 1), nullptr, kCFGregorianAllUnits);
  EXPECT_EQ(units.years, 2);
  EXPECT_EQ(units.months, 2);
  EXPECT_EQ(units.days, 4);
  EXPECT_EQ(units.hours, 7);
  EXPECT_EQ(units.minutes, 9);
  EXPECT_EQ(units.seconds, 11.5);
  const CFGregorianUnits days = CFAbsoluteTimeGetDifferenceAsGregorianUnits(
      moment(2001, 1, 1), moment(2001, 3, 1, 1), nullptr, kCFGregorianUnitsDays | kCFGregorianUnitsMinutes);
  EXPECT_EQ(days.years, 0);
  EXPECT_EQ(days.months, 0);
  EXPECT_EQ(days.days, -59);
  EXPECT_EQ(days.minutes, -60);
  EXPECT_EQ(days.seconds, 0);
}

TEST(GregorianUnitsTest, HugeDifferencesStopAtWhatAUnitCanHold) {
  const CFGregorianUnits days =
      CFAbsoluteTimeGetDifferenceAsGregorianUnits(6e16, -6e16, nullptr, kCFGregorianUnitsDays);
  EXPECT_EQ(days.days, std::numeric_limits<SInt32>::max());
  const CFGregorianUnits years =
      CFAbsoluteTimeGetDifferenceAsGregorianUnits(-6e16, 6e16, nullptr, kCFGregorianUnitsYears);
  EXPECT_EQ(years.years, -std::numeric_limits<SInt32>::max());
  const CFGregorianUnits none =
      CFAbsoluteTimeGetDifferenceAsGregorianUnits(kNaN, kInfinity, nullptr, kCFGregorianAllUnits);
  EXPECT_EQ(none.years, 0);
  EXPECT_EQ(none.seconds, 0);
}

TEST(GregorianUnitsTest, RandomDifferencesLeadBack) {
  std::mt19937_64 random(4);
  const auto vienna = zone("Europe/Vienna");
  const CFOptionFlags combinations[] = {kCFGregorianAllUnits, kCFGregorianUnitsMonths | kCFGregorianUnitsSeconds,
                                        kCFGregorianUnitsDays | kCFGregorianUnitsHours | kCFGregorianUnitsSeconds};
  for (int round = 0; round < 3000; ++round) {
    std::uniform_int_distribution<std::int64_t> times(-8'000'000'000, 8'000'000'000);
    const auto at = static_cast<double>(times(random)) + 0.25;
    const auto other = static_cast<double>(times(random));
    const CFTimeZoneRef timeZone = round % 2 == 0 ? vienna.get() : nullptr;
    const CFGregorianUnits units =
        CFAbsoluteTimeGetDifferenceAsGregorianUnits(at, other, timeZone, combinations[round % 3]);
    ASSERT_NEAR(CFAbsoluteTimeAddGregorianUnits(other, timeZone, units), at, 1e-5) << at << ' ' << other;
    const double sign = at < other ? -1 : 1;
    for (const double part : {units.years * 1.0, units.months * 1.0, units.days * 1.0, units.hours * 1.0,
                              units.minutes * 1.0, units.seconds}) {
      ASSERT_GE(part * sign, 0) << at << ' ' << other;
    }
    if (combinations[round % 3] == kCFGregorianAllUnits) {
      ASSERT_LE(std::abs(units.months), 11);
      ASSERT_LE(std::abs(units.days), 31);
      ASSERT_LE(std::abs(units.minutes), 59);
      ASSERT_LT(std::fabs(units.seconds), 60);
    }
  }
}

}  // namespace
