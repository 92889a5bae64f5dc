// schedule_week.h: the days and windows of a schedule, to and from the command line.
#pragma once

#include <tovan/service_schedule.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace tovanctl {

// The schedule's own names, from its day 0 on.
inline constexpr std::array<const char*, tovan::CServiceSchedule::kDays> kDayNames = {
    "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
// The order in which weeks are drawn.
inline constexpr std::array<std::uint32_t, tovan::CServiceSchedule::kDays> kDrawnDays = {1, 2, 3, 4, 5, 6, 0};

// "09:00", "09:00:30"; "24:00" for the end of the day.
std::string clockText(std::uint32_t secondOfDay);

// A stretch of a day, in seconds since midnight; the end does not belong to it.
struct DaySpan {
  std::uint32_t from;
  std::uint32_t to;
};
// When the day is on line, in order; none of them is empty.
std::vector<DaySpan> onLineSpans(const tovan::CServiceSchedule& schedule, std::uint32_t day);
// Of the day, and of the week.
std::uint32_t onLineSeconds(const tovan::CServiceSchedule& schedule, std::uint32_t day);
std::uint32_t onLineSeconds(const tovan::CServiceSchedule& schedule);
// "47 h", "7 h 30 min", "30 s".
std::string amountText(std::uint32_t seconds);

// "on line 09:00-17:00", "off line all day".
std::string dayText(const tovan::CServiceSchedule& schedule, std::uint32_t day);

// The days that "monday", "mon-fri", "sat,sun", "weekdays", "weekend" and "all" name, each once, from day 0 on. Names
// may be shortened to three letters. CommandError(kUsage), with the nearest name, for anything else.
std::vector<std::uint32_t> parseDays(const std::string& text);

// What "on" and "off", with or without a window such as "09:00-17:00" or "22:30:15-24:00", make of a day.
struct DayRule {
  std::uint32_t type;
  DaySpan window;
};
// CommandError(kUsage), naming the text and what is wrong with it. A window that holds no moment is refused.
DayRule parseDayRule(const std::string& state, const std::string& window);

}  // namespace tovanctl
