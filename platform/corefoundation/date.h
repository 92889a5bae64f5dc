// date.h: the calendar under CFDate, in whole days and seconds.
//
// Days count from 1970-01-01 (day 0); the algorithms are the usual ones over 400-year cycles of 146097 days that begin
// on the first of March.
#pragma once

#include <CoreFoundation/CFDate.h>

#include <cstdint>

namespace cf {

struct CivilDay {
  std::int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
};

inline constexpr std::int64_t kSecondsPerDay = 86400;
// From 1970-01-01 to 2001-01-01.
inline constexpr std::int64_t kEpochOffset = 978307200;

constexpr std::int64_t floorDivide(std::int64_t dividend, std::int64_t divisor) noexcept {
  return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}

constexpr bool isLeapYear(std::int64_t year) noexcept { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr int daysInMonth(std::int64_t year, int month) noexcept {
  constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return days[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
}

constexpr std::int64_t daysFromCivil(std::int64_t year, int month, int day) noexcept {
  const std::int64_t marchYear = year - (month <= 2 ? 1 : 0);
  const std::int64_t cycle = floorDivide(marchYear, 400);
  const std::int64_t yearOfCycle = marchYear - cycle * 400;
  const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  return cycle * 146097 + yearOfCycle * 365 + yearOfCycle / 4 - yearOfCycle / 100 + dayOfYear - 719468;
}

constexpr CivilDay civilFromDays(std::int64_t days) noexcept {
  const std::int64_t shifted = days + 719468;
  const std::int64_t cycle = floorDivide(shifted, 146097);
  const std::int64_t dayOfCycle = shifted - cycle * 146097;
  const std::int64_t yearOfCycle = (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / 146096) / 365;
  const std::int64_t dayOfYear = dayOfCycle - (365 * yearOfCycle + yearOfCycle / 4 - yearOfCycle / 100);
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
  const int month = static_cast<int>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
  return {yearOfCycle + cycle * 400 + (month <= 2 ? 1 : 0), month,
          static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1)};
}

// 0 (Sunday) to 6.
constexpr int dayOfWeek(std::int64_t days) noexcept {
  return static_cast<int>(days + 4 - floorDivide(days + 4, 7) * 7);
}

// The whole seconds since 1970 at or before an absolute time, which is first brought into the years that
// CFGregorianDate can hold; 0 since 2001 for what is not a number.
std::int64_t wholeSecondsSince1970(CFAbsoluteTime at) noexcept;

// The moment at which clocks in GMT show the date, in seconds since 1970; the fields must be in range.
constexpr std::int64_t secondsSince1970(std::int64_t year, int month, int day, int hour, int minute,
                                        int second) noexcept {
  return daysFromCivil(year, month, day) * kSecondsPerDay + std::int64_t{hour} * 3600 + std::int64_t{minute} * 60 +
         second;
}

}  // namespace cf
