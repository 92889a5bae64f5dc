#include "platform/corefoundation/time_zone_posix.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/corefoundation/date.h"

namespace cf {
namespace {

constexpr bool isLetter(char c) noexcept { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// Takes the text apart from the front. After a failure `good` is false and stays so.
class PosixZoneParser {
 public:
  explicit PosixZoneParser(std::string_view text) : rest_(text) {}

  std::optional<PosixZone> parse() {
    PosixZone zone;
    zone.standardName = name();
    zone.standardOffset = -time(24);
    if (good_ && !rest_.empty()) {
      zone.hasDaylightSaving = true;
      zone.daylightName = name();
      zone.daylightOffset = zone.standardOffset + 3600;
      if (!rest_.empty() && rest_.front() != ',') zone.daylightOffset = -time(24);
      rules(zone);
    }
    if (!good_ || !rest_.empty()) return std::nullopt;
    return zone;
  }

 private:
  bool skip(char expected) {
    if (rest_.empty() || rest_.front() != expected) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void expect(char expected) {
    if (!skip(expected)) good_ = false;
  }

  // Three letters or more, or anything of letters, digits and signs in angle brackets.
  std::string name() {
    const bool quoted = skip('<');
    const auto end = std::ranges::find_if_not(
        rest_, [&](char c) { return isLetter(c) || (quoted && (isDigit(c) || c == '+' || c == '-')); });
    const std::size_t length = static_cast<std::size_t>(end - rest_.begin());
    std::string result(rest_.substr(0, length));
    rest_.remove_prefix(length);
    if (quoted) expect('>');
    if (length < 3) good_ = false;
    return result;
  }

  int number(int least, int greatest) {
    int value = -1;
    const std::from_chars_result result = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    if (rest_.empty() || !isDigit(rest_.front()) || result.ec != std::errc() || value < least || value > greatest) {
      good_ = false;
      return least;
    }
    rest_.remove_prefix(static_cast<std::size_t>(result.ptr - rest_.data()));
    return value;
  }

  // [+-]hh[:mm[:ss]], in seconds.
  std::int32_t time(int greatestHour) {
    const bool negative = skip('-');
    if (!negative) skip('+');
    std::int32_t seconds = number(0, greatestHour) * 3600;
    if (skip(':')) {
      seconds += number(0, 59) * 60;
      if (skip(':')) seconds += number(0, 59);
    }
    return negative ? -seconds : seconds;
  }

  YearlyChange change() {
    YearlyChange result;
    if (skip('M')) {
      result.month = number(1, 12);
      expect('.');
      result.week = number(1, 5);
      expect('.');
      result.day = number(0, 6);
    } else if (skip('J')) {
      result.form = YearlyChange::Form::kDayWithoutLeapDay;
      result.day = number(1, 365);
    } else {
      result.form = YearlyChange::Form::kDayFromZero;
      result.day = number(0, 365);
    }
    if (skip('/')) result.timeOfDay = time(167);
    return result;
  }

  void rules(PosixZone& zone) {
    if (rest_.empty()) {
      zone.toDaylight = {YearlyChange::Form::kMonthWeekDay, 3, 2, 0, 7200};
      zone.toStandard = {YearlyChange::Form::kMonthWeekDay, 11, 1, 0, 7200};
      return;
    }
    expect(',');
    zone.toDaylight = change();
    expect(',');
    zone.toStandard = change();
  }

  std::string_view rest_;
  bool good_ = true;
};

std::int64_t dayOfMonthWeekDay(std::int64_t year, const YearlyChange& change) noexcept {
  const std::int64_t first = daysFromCivil(year, change.month, 1);
  int day = (change.day - dayOfWeek(first) + 7) % 7 + (change.week - 1) * 7;
  while (day >= daysInMonth(year, change.month)) day -= 7;
  return first + day;
}

}  // namespace

std::int64_t YearlyChange::inYear(std::int64_t year) const noexcept {
  std::int64_t days = 0;
  switch (form) {
    case Form::kMonthWeekDay:
      days = dayOfMonthWeekDay(year, *this);
      break;
    case Form::kDayWithoutLeapDay:
      days = daysFromCivil(year, 1, 1) + day - 1 + (isLeapYear(year) && day > 59 ? 1 : 0);
      break;
    case Form::kDayFromZero:
      days = daysFromCivil(year, 1, 1) + day;
      break;
  }
  return days * kSecondsPerDay + timeOfDay;
}

std::optional<PosixZone> PosixZone::parse(std::string_view text) { return PosixZoneParser(text).parse(); }

ZoneSegment PosixZone::segmentAt(std::int64_t time) const noexcept {
  if (!hasDaylightSaving) return {kBeginningOfTime, kEndOfTime, standardOffset, false, standardName};
  struct Change {
    std::int64_t at;
    bool toDaylight;
  };
  // A change may lie a week outside its year, so the years around are looked at too.
  constexpr std::int64_t yearsAround = 2;
  constexpr std::int64_t farthest = std::int64_t{1} << 60;
  const std::int64_t year =
      civilFromDays(floorDivide(std::clamp(time, -farthest, farthest) + standardOffset, kSecondsPerDay)).year;
  std::array<Change, 2 * (2 * yearsAround + 1)> changes;
  std::size_t count = 0;
  for (std::int64_t y = year - yearsAround; y <= year + yearsAround; ++y) {
    changes[count++] = {toDaylight.inYear(y) - standardOffset, true};
    changes[count++] = {toStandard.inYear(y) - daylightOffset, false};
  }
  // Daylight-saving time all the year round ends and begins in the same moment.
  std::ranges::sort(changes, [](const Change& left, const Change& right) {
    return left.at != right.at ? left.at < right.at : left.toDaylight < right.toDaylight;
  });
  const auto next = std::ranges::upper_bound(changes, time, {}, &Change::at);
  const std::int64_t end = next == changes.end() ? kEndOfTime : next->at;
  if (next == changes.begin()) return {kBeginningOfTime, end, standardOffset, false, standardName};
  const Change& last = *(next - 1);
  if (last.toDaylight) return {last.at, end, daylightOffset, true, daylightName};
  return {last.at, end, standardOffset, false, standardName};
}

}  // namespace cf
