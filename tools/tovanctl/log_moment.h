// log_moment.h: moments of a log, from and for people.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace tovanctl {

// A moment of a log as a file keeps it: seconds since 2001-01-01 00:00:00 GMT.
using LogMoment = double;

LogMoment logNow();

// The moment that an option's value names, as seen at `now`: "2026-11-21", "2026-11-21 14:05", "2026-11-21 14:05:09" (a
// T may stand for the blank), "14:05" and "14:05:09" on the day of `now`, all in the system's time zone, or "-10m"
// before `now` (s, m, h, d). CommandError(kUsage), naming the option and these forms, for anything else.
LogMoment parseLogMoment(const std::string& option, const std::string& text, LogMoment now);

// The date and time of day that the forms of a calendar and a clock among these name; nothing for any other text.
std::optional<std::tm> parseLocalTime(const std::string& text, LogMoment now);
// The seconds that "10m", "2h" and the like name.
std::optional<double> parseDuration(const std::string& text);

// "2026-11-21 14:05:09.250" in the system's time zone.
std::string logMomentText(LogMoment moment);
// "2026-11-21T14:05:09.250Z".
std::string logMomentUniversal(LogMoment moment);
// "0.020 s", "3 min 05.250 s", "2 h 03 min 05.250 s"; negative when a clock was put back.
std::string durationText(double seconds);

}  // namespace tovanctl
