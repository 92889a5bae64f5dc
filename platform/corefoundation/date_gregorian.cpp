// What calendars and clocks show at a moment, and the way back.
#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/corefoundation/date.h"
#include "platform/corefoundation/time_zone.h"

namespace cf {

std::int64_t wholeSecondsSince1970(CFAbsoluteTime at) noexcept {
  // A few days inside the first and last year, so that no time zone leads out of them.
  constexpr std::int64_t least = daysFromCivil(std::numeric_limits<SInt32>::min(), 1, 4) * kSecondsPerDay;
  constexpr std::int64_t greatest = daysFromCivil(std::numeric_limits<SInt32>::max(), 12, 28) * kSecondsPerDay;
  if (std::isnan(at)) return kEpochOffset;
  const double whole = std::floor(
      std::clamp(at, static_cast<double>(least - kEpochOffset), static_cast<double>(greatest - kEpochOffset)));
  return std::clamp(static_cast<std::int64_t>(whole) + kEpochOffset, least, greatest);
}

namespace {

// A moment as the clocks of a zone show it.
struct LocalTime {
  std::int64_t days;  // since 1970
  int secondOfDay;
};

LocalTime localTimeAt(CFAbsoluteTime at, CFTimeZoneRef timeZone) noexcept {
  const std::int64_t time = wholeSecondsSince1970(at);
  const std::int64_t local = time + offsetAt(timeZone, time);
  const std::int64_t days = floorDivide(local, kSecondsPerDay);
  return {days, static_cast<int>(local - days * kSecondsPerDay)};
}

// The moment at which the clocks of a zone show a local time, in seconds since 1970 as if it were GMT.
CFAbsoluteTime absoluteTimeOf(std::int64_t local, CFTimeZoneRef timeZone) noexcept {
  return static_cast<CFAbsoluteTime>(momentOfLocalTime(timeZone, local) - kEpochOffset);
}

CivilDay plusMonths(const CivilDay& day, std::int64_t months) noexcept {
  const std::int64_t monthCount = day.year * 12 + day.month - 1 + months;
  const std::int64_t year = floorDivide(monthCount, 12);
  const int month = static_cast<int>(monthCount - year * 12) + 1;
  return {year, month, std::min(day.day, daysInMonth(year, month))};
}

double elapsedSeconds(const CFGregorianUnits& units) noexcept {
  return units.hours * 3600.0 + units.minutes * 60.0 + units.seconds;
}

SInt32 saturated(double value) noexcept {
  constexpr double limit = std::numeric_limits<SInt32>::max();
  return static_cast<SInt32>(std::clamp(std::trunc(value), -limit, limit));
}

// Finds how many units of each kind lie between two moments, the greatest kind first.
class Difference {
 public:
  Difference(CFAbsoluteTime at, CFAbsoluteTime other, CFTimeZoneRef timeZone)
      : at_(at), other_(other), timeZone_(timeZone), step_(at < other ? -1 : 1) {}

  CFGregorianUnits inUnits(CFOptionFlags flags) {
    if (flags & kCFGregorianUnitsYears) count(&CFGregorianUnits::years, monthsLeft() / 12);
    if (flags & kCFGregorianUnitsMonths) count(&CFGregorianUnits::months, monthsLeft());
    if (flags & kCFGregorianUnitsDays) count(&CFGregorianUnits::days, left() / static_cast<double>(kSecondsPerDay));
    if (flags & kCFGregorianUnitsHours) units_.hours = saturated(left() / 3600);
    if (flags & kCFGregorianUnitsMinutes) units_.minutes = saturated(left() / 60);
    if (flags & kCFGregorianUnitsSeconds) units_.seconds = left();
    return units_;
  }

 private:
  CFAbsoluteTime reached() const { return CFAbsoluteTimeAddGregorianUnits(other_, timeZone_, units_); }
  double left() const { return at_ - reached(); }
  bool isPast() const { return step_ > 0 ? reached() > at_ : reached() < at_; }

  double monthsLeft() const {
    const CivilDay to = civilFromDays(localTimeAt(at_, timeZone_).days);
    const CivilDay from = civilFromDays(localTimeAt(reached(), timeZone_).days);
    return static_cast<double>((to.year - from.year) * 12 + to.month - from.month);
  }

  // The estimate is at most a unit or two off.
  void count(SInt32 CFGregorianUnits::*unit, double estimate) {
    SInt32& number = units_.*unit;
    number = saturated(estimate);
    while (number != 0 && isPast()) number -= step_;
    while (std::abs(number) < std::numeric_limits<SInt32>::max()) {
      number += step_;
      if (!isPast()) continue;
      number -= step_;
      break;
    }
  }

  CFAbsoluteTime at_;
  CFAbsoluteTime other_;
  CFTimeZoneRef timeZone_;
  SInt32 step_;
  CFGregorianUnits units_{};
};

}  // namespace
}  // namespace cf

Boolean CFGregorianDateIsValid(CFGregorianDate date, CFOptionFlags unitFlags) {
  const bool monthIsValid = date.month >= 1 && date.month <= 12;
  if ((unitFlags & kCFGregorianUnitsMonths) && !monthIsValid) return false;
  if (unitFlags & kCFGregorianUnitsDays) {
    const bool monthIsKnown = (unitFlags & kCFGregorianUnitsYears) != 0 && (unitFlags & kCFGregorianUnitsMonths) != 0;
    const int lastDay = monthIsKnown ? cf::daysInMonth(date.year, date.month) : 31;
    if (date.day < 1 || date.day > lastDay) return false;
  }
  if ((unitFlags & kCFGregorianUnitsHours) && (date.hour < 0 || date.hour > 23)) return false;
  if ((unitFlags & kCFGregorianUnitsMinutes) && (date.minute < 0 || date.minute > 59)) return false;
  return !(unitFlags & kCFGregorianUnitsSeconds) || (date.second >= 0 && date.second < 60);
}

CFAbsoluteTime CFGregorianDateGetAbsoluteTime(CFGregorianDate date, CFTimeZoneRef timeZone) {
  constexpr double greatestWholeSeconds = 1e15;
  const cf::CivilDay month = cf::plusMonths({date.year, 1, 1}, date.month - 1);
  std::int64_t local = (cf::daysFromCivil(month.year, month.month, 1) + date.day - 1) * cf::kSecondsPerDay +
                       std::int64_t{date.hour} * 3600 + std::int64_t{date.minute} * 60;
  double rest = date.second;
  if (std::fabs(date.second) < greatestWholeSeconds) {
    const double whole = std::floor(date.second);
    local += static_cast<std::int64_t>(whole);
    rest -= whole;
  }
  return cf::absoluteTimeOf(local, timeZone) + rest;
}

CFGregorianDate CFAbsoluteTimeGetGregorianDate(CFAbsoluteTime at, CFTimeZoneRef timeZone) {
  const cf::LocalTime local = cf::localTimeAt(at, timeZone);
  const cf::CivilDay day = cf::civilFromDays(local.days);
  const double fraction = std::isfinite(at) ? at - std::floor(at) : 0;
  // Close below a full minute the sum may round up to it.
  const double second = std::min(local.secondOfDay % 60 + fraction, std::nextafter(60.0, 0.0));
  return {static_cast<SInt32>(day.year),
          static_cast<SInt8>(day.month),
          static_cast<SInt8>(day.day),
          static_cast<SInt8>(local.secondOfDay / 3600),
          static_cast<SInt8>(local.secondOfDay / 60 % 60),
          second};
}

CFAbsoluteTime CFAbsoluteTimeAddGregorianUnits(CFAbsoluteTime at, CFTimeZoneRef timeZone, CFGregorianUnits units) {
  const double elapsed = cf::elapsedSeconds(units);
  if ((units.years == 0 && units.months == 0 && units.days == 0) || !std::isfinite(at)) return at + elapsed;
  const cf::LocalTime local = cf::localTimeAt(at, timeZone);
  const cf::CivilDay day = cf::plusMonths(cf::civilFromDays(local.days), std::int64_t{units.years} * 12 + units.months);
  const std::int64_t days = cf::daysFromCivil(day.year, day.month, day.day) + units.days;
  return cf::absoluteTimeOf(days * cf::kSecondsPerDay + local.secondOfDay, timeZone) + (at - std::floor(at)) + elapsed;
}

CFGregorianUnits CFAbsoluteTimeGetDifferenceAsGregorianUnits(CFAbsoluteTime at, CFAbsoluteTime other,
                                                             CFTimeZoneRef timeZone, CFOptionFlags unitFlags) {
  if (!std::isfinite(at) || !std::isfinite(other)) return {};
  return cf::Difference(at, other, timeZone).inUnits(unitFlags);
}

SInt32 CFAbsoluteTimeGetDayOfWeek(CFAbsoluteTime at, CFTimeZoneRef timeZone) {
  const int day = cf::dayOfWeek(cf::localTimeAt(at, timeZone).days);
  return day == 0 ? 7 : day;
}

SInt32 CFAbsoluteTimeGetDayOfYear(CFAbsoluteTime at, CFTimeZoneRef timeZone) {
  const std::int64_t days = cf::localTimeAt(at, timeZone).days;
  return static_cast<SInt32>(days - cf::daysFromCivil(cf::civilFromDays(days).year, 1, 1) + 1);
}

SInt32 CFAbsoluteTimeGetWeekOfYear(CFAbsoluteTime at, CFTimeZoneRef timeZone) {
  const std::int64_t days = cf::localTimeAt(at, timeZone).days;
  const std::int64_t thursday = days + 4 - CFAbsoluteTimeGetDayOfWeek(at, timeZone);
  return static_cast<SInt32>((thursday - cf::daysFromCivil(cf::civilFromDays(thursday).year, 1, 1)) / 7 + 1);
}
