#include "tools/tovanctl/log_moment.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <optional>

#include "tools/tovanctl/exit_code.h"

namespace tovanctl {
namespace {

constexpr std::int64_t kEpoch = 978307200;  // 2001-01-01 as seconds since 1970

struct Milliseconds {
  std::int64_t second;  // since 1970
  int millisecond;
};

Milliseconds rounded(LogMoment moment) {
  const auto all = static_cast<std::int64_t>(std::llround(moment * 1000));
  const std::int64_t second = all >= 0 ? all / 1000 : -((-all + 999) / 1000);
  return {second + kEpoch, static_cast<int>(all - second * 1000)};
}

// "2026-11-21 14:05:09" of a second, kept, since many records share one.
const std::string& localSecond(std::int64_t second) {
  thread_local std::int64_t kept = INT64_MIN;
  thread_local std::string text;
  if (second == kept) return text;
  const std::time_t time = second;
  std::tm local{};
  ::localtime_r(&time, &local);
  text = fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                     local.tm_hour, local.tm_min, local.tm_sec);
  kept = second;
  return text;
}

// Whether the text has digits wherever the form has '9', and the form's characters elsewhere.
bool hasForm(const std::string& text, const std::string& form) {
  if (text.size() != form.size()) return false;
  for (std::size_t at = 0; at < form.size(); ++at) {
    const bool fits = form[at] == '9' ? text[at] >= '0' && text[at] <= '9' : text[at] == form[at];
    if (!fits) return false;
  }
  return true;
}

int digits(const std::string& text, std::size_t at, std::size_t count) { return std::stoi(text.substr(at, count)); }

bool takeDay(const std::string& text, std::tm& local) {
  static constexpr std::array<int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const int year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
  if (year < 1 || month < 1 || month > 12 || day < 1) return false;
  const bool isLeap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  if (day > kDays[static_cast<std::size_t>(month - 1)] + (month == 2 && isLeap ? 1 : 0)) return false;
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  return true;
}

bool takeClock(const std::string& text, std::tm& local) {
  local.tm_hour = digits(text, 0, 2);
  local.tm_min = digits(text, 3, 2);
  local.tm_sec = text.size() > 5 ? digits(text, 6, 2) : 0;
  return local.tm_hour < 24 && local.tm_min < 60 && local.tm_sec < 60;
}

}  // namespace

std::optional<double> parseDuration(const std::string& text) {
  int end = 0;
  long long count = 0;
  char unit = 0;
  if (text.empty() || text[0] < '0' || text[0] > '9') return std::nullopt;
  if (std::sscanf(text.c_str(), "%9lld%c%n", &count, &unit, &end) != 2 ||
      text.size() != static_cast<std::size_t>(end)) {
    return std::nullopt;
  }
  static constexpr std::array<std::pair<char, double>, 4> kUnits = {{{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}}};
  for (const auto& [name, seconds] : kUnits) {
    if (name == unit) return static_cast<double>(count) * seconds;
  }
  return std::nullopt;
}

std::optional<std::tm> parseLocalTime(const std::string& given, LogMoment now) {
  std::tm local{};
  std::string text = given;
  if (text.size() > 10 && text[10] == 'T') text[10] = ' ';
  if (hasForm(text, "99:99") || hasForm(text, "99:99:99")) {
    const std::time_t today = rounded(now).second;
    ::localtime_r(&today, &local);
    if (!takeClock(text, local)) return std::nullopt;
  } else if (hasForm(text, "9999-99-99")) {
    if (!takeDay(text, local)) return std::nullopt;
  } else if (hasForm(text, "9999-99-99 99:99") || hasForm(text, "9999-99-99 99:99:99")) {
    if (!takeDay(text, local) || !takeClock(text.substr(11), local)) return std::nullopt;
  } else {
    return std::nullopt;
  }
  local.tm_isdst = -1;
  return local;
}

LogMoment logNow() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec - kEpoch) + static_cast<double>(now.tv_nsec) / 1e9;
}

LogMoment parseLogMoment(const std::string& option, const std::string& text, LogMoment now) {
  const std::optional<double> ago = text.starts_with('-') ? parseDuration(text.substr(1)) : std::nullopt;
  if (ago) return now - *ago;
  std::optional<std::tm> local = parseLocalTime(text, now);
  if (local) return static_cast<LogMoment>(std::mktime(&*local) - kEpoch);
  throw CommandError(kUsage,
                     option + ": \"" + text +
                         "\" is no time; it takes \"2026-11-21\", \"2026-11-21 14:05\", \"2026-11-21 14:05:09\", "
                         "\"14:05\" or \"14:05:09\" (today), or \"-10m\", \"-2h\", \"-1d\" (ago; also s)");
}

std::string logMomentText(LogMoment moment) {
  const Milliseconds exact = rounded(moment);
  return fmt::format("{}.{:03}", localSecond(exact.second), exact.millisecond);
}

std::string logMomentUniversal(LogMoment moment) {
  const Milliseconds exact = rounded(moment);
  const std::time_t time = exact.second;
  std::tm universal{};
  ::gmtime_r(&time, &universal);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", universal.tm_year + 1900, universal.tm_mon + 1,
                     universal.tm_mday, universal.tm_hour, universal.tm_min, universal.tm_sec, exact.millisecond);
}

std::string durationText(double seconds) {
  const auto all = static_cast<std::int64_t>(std::llround(std::abs(seconds) * 1000));
  const char* const sign = seconds < 0 && all > 0 ? "-" : "";
  const std::int64_t minutes = all / 60000;
  const double rest = static_cast<double>(all % 60000) / 1000;
  if (minutes == 0) return fmt::format("{}{:.3f} s", sign, rest);
  if (minutes < 60) return fmt::format("{}{} min {:06.3f} s", sign, minutes, rest);
  return fmt::format("{}{} h {:02} min {:06.3f} s", sign, minutes / 60, minutes % 60, rest);
}

}  // namespace tovanctl
