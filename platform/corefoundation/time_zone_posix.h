// time_zone_posix.h: the POSIX TZ text, such as "CET-1CEST,M3.5.0,M10.5.0/3": a zone whose clocks change by the same
// rule every year. It stands in the environment's TZ and at the end of zone files. Besides what POSIX says, a change
// may lie up to a week off its day (RFC 8536, 3.3.1).
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace cf {

// Times are whole seconds since 1970-01-01 GMT, offsets seconds east of GMT.
inline constexpr std::int64_t kBeginningOfTime = std::numeric_limits<std::int64_t>::min();
inline constexpr std::int64_t kEndOfTime = std::numeric_limits<std::int64_t>::max();

// A stretch of time without a change: begin <= time < end.
struct ZoneSegment {
  std::int64_t begin;
  std::int64_t end;
  std::int32_t offset;
  bool isDaylightSaving;
  std::string_view abbreviation;  // lives as long as the zone
};

// The day and time of one of the two yearly changes, by the clock that is in force until then.
struct YearlyChange {
  enum class Form : std::uint8_t { kMonthWeekDay, kDayWithoutLeapDay, kDayFromZero };
  Form form = Form::kMonthWeekDay;
  int month = 1;
  int week = 1;  // 5: the last one
  int day = 0;   // of the week from Sunday (0), else of the year
  std::int32_t timeOfDay = 7200;

  // In seconds since 1970, as if that clock showed GMT.
  std::int64_t inYear(std::int64_t year) const noexcept;
  bool operator==(const YearlyChange&) const = default;
};

struct PosixZone {
  std::string standardName;
  std::int32_t standardOffset = 0;
  bool hasDaylightSaving = false;
  std::string daylightName;
  std::int32_t daylightOffset = 0;
  YearlyChange toDaylight;
  YearlyChange toStandard;

  // Nothing when the text is no such zone. A zone with a daylight-saving name and no rule changes on the second Sunday
  // of March and the first of November.
  static std::optional<PosixZone> parse(std::string_view text);

  ZoneSegment segmentAt(std::int64_t time) const noexcept;
  bool operator==(const PosixZone&) const = default;
};

}  // namespace cf
