#include "tools/tovanctl/schedule_week.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/suggestions.h"

namespace tovanctl {
namespace {

using tovan::CServiceSchedule;

constexpr std::uint32_t kWholeDay = CServiceSchedule::kSecondsOfDay;
constexpr std::size_t kShortest = 3;  // letters of a day's name

std::string lower(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char letter) { return std::tolower(letter); });
  return text;
}

std::vector<std::string> parts(const std::string& text, char separator) {
  std::vector<std::string> found(1);
  for (const char letter : text) {
    if (letter == separator) {
      found.emplace_back();
    } else {
      found.back() += letter;
    }
  }
  return found;
}

std::uint32_t parseDay(const std::string& name) {
  const std::string wanted = lower(name);
  std::vector<std::string> known;
  for (std::uint32_t day = 0; day < kDayNames.size(); ++day) {
    known.push_back(lower(kDayNames[day]));
    if (wanted.size() >= kShortest && known.back().starts_with(wanted)) return day;
  }
  known.insert(known.end(), {"weekdays", "weekend", "all"});
  throw CommandError(kUsage, unknownName("day", name, known) +
                                 " (days are given as \"monday\", \"mon-fri\", \"sat,sun\", \"weekdays\", "
                                 "\"weekend\" or \"all\")");
}

// "9:00", "09:00", "09:00:30", up to "24:00".
std::optional<std::uint32_t> parseClock(const std::string& text) {
  const std::vector<std::string> fields = parts(text, ':');
  if (fields.size() < 2 || fields.size() > 3) return std::nullopt;
  std::uint32_t seconds = 0;
  for (std::size_t field = 0; field < fields.size(); ++field) {
    const std::string& digits = fields[field];
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool isNumber = error == std::errc() && end == digits.data() + digits.size() && digits.size() <= 2;
    if (!isNumber || number > (field == 0 ? 24U : 59U)) return std::nullopt;
    seconds = seconds * 60 + number;
  }
  if (fields.size() == 2) seconds *= 60;
  return seconds <= kWholeDay ? std::optional(seconds) : std::nullopt;
}

DaySpan parseWindow(const std::string& text) {
  const std::vector<std::string> edges = parts(text, '-');
  const auto from = edges.size() == 2 ? parseClock(edges[0]) : std::nullopt;
  const auto to = edges.size() == 2 ? parseClock(edges[1]) : std::nullopt;
  if (!from || !to) {
    throw CommandError(kUsage, "\"" + text +
                                   "\" is no window of a day; one looks like \"09:00-17:00\" or "
                                   "\"22:30:15-24:00\", its times from 00:00 to 24:00");
  }
  if (*from == *to)
    throw CommandError(kUsage, "the window \"" + text + "\" ends where it begins, and so holds no moment");
  if (*from > *to) {
    const std::string rest = *to == 0 ? "" : ", and 00:00-" + edges[1] + " on the day after";
    throw CommandError(kUsage, "the window \"" + text + "\" ends before it begins; none reaches over midnight: give " +
                                   edges[0] + "-24:00 on the first day" + rest);
  }
  return {*from, *to};
}

std::string windowText(const DaySpan& window) { return clockText(window.from) + "-" + clockText(window.to); }

DaySpan windowOf(const CServiceSchedule& schedule, std::uint32_t day) {
  DaySpan window{};
  schedule.timeFrom(day, window.from);
  schedule.timeTo(day, window.to);
  return window;
}

}  // namespace

std::string clockText(std::uint32_t secondOfDay) {
  const std::string minutes = fmt::format("{:02}:{:02}", secondOfDay / 3600, secondOfDay / 60 % 60);
  return secondOfDay % 60 == 0 ? minutes : minutes + fmt::format(":{:02}", secondOfDay % 60);
}

std::vector<DaySpan> onLineSpans(const CServiceSchedule& schedule, std::uint32_t day) {
  const std::uint32_t type = schedule.scheduleType(day);
  const DaySpan window = windowOf(schedule, day);
  std::vector<DaySpan> spans;
  if (type == CServiceSchedule::kOn) spans = {{0, kWholeDay}};
  if (type == CServiceSchedule::kOnBetween) spans = {window};
  if (type == CServiceSchedule::kOffBetween) {
    const bool isEmpty = window.from >= window.to;
    spans =
        isEmpty ? std::vector<DaySpan>{{0, kWholeDay}} : std::vector<DaySpan>{{0, window.from}, {window.to, kWholeDay}};
  }
  std::erase_if(spans, [](const DaySpan& span) { return span.from >= span.to; });
  return spans;
}

std::uint32_t onLineSeconds(const CServiceSchedule& schedule, std::uint32_t day) {
  std::uint32_t seconds = 0;
  for (const DaySpan& span : onLineSpans(schedule, day)) seconds += span.to - span.from;
  return seconds;
}

std::uint32_t onLineSeconds(const CServiceSchedule& schedule) {
  std::uint32_t seconds = 0;
  for (const std::uint32_t day : kDrawnDays) seconds += onLineSeconds(schedule, day);
  return seconds;
}

std::string amountText(std::uint32_t seconds) {
  std::string text;
  const auto add = [&text](std::uint32_t number, const char* unit) {
    if (number != 0) text += (text.empty() ? "" : " ") + std::to_string(number) + unit;
  };
  add(seconds / 3600, " h");
  add(seconds / 60 % 60, " min");
  add(seconds % 60, " s");
  return text.empty() ? "0 h" : text;
}

std::string dayText(const CServiceSchedule& schedule, std::uint32_t day) {
  const std::vector<DaySpan> spans = onLineSpans(schedule, day);
  if (spans.empty()) return "off line all day";
  if (spans.size() == 1 && spans[0].to - spans[0].from == kWholeDay) return "on line all day";
  if (schedule.scheduleType(day) == CServiceSchedule::kOffBetween) {
    return "off line " + windowText(windowOf(schedule, day));
  }
  return "on line " + windowText(spans[0]);
}

std::vector<std::uint32_t> parseDays(const std::string& text) {
  std::array<bool, kDayNames.size()> named{};
  for (const std::string& part : parts(text, ',')) {
    const std::string word = lower(part);
    const std::string range = word == "weekdays"  ? "mon-fri"
                              : word == "weekend" ? "sat-sun"
                              : word == "all"     ? "sun-sat"
                                                  : part;
    const std::vector<std::string> ends = parts(range, '-');
    if (ends.size() > 2) parseDay(part);  // says that this is none
    const std::uint32_t last = parseDay(ends.back());
    for (std::uint32_t day = parseDay(ends.front());; day = (day + 1) % static_cast<std::uint32_t>(named.size())) {
      named[day] = true;
      if (day == last) break;
    }
  }
  std::vector<std::uint32_t> days;
  for (std::uint32_t day = 0; day < named.size(); ++day) {
    if (named[day]) days.push_back(day);
  }
  return days;
}

DayRule parseDayRule(const std::string& state, const std::string& window) {
  const bool isOn = state == "on";
  if (!isOn && state != "off") {
    throw CommandError(kUsage, "\"" + state + "\" is no state of a service; it takes \"on\" or \"off\"");
  }
  if (window.empty()) return {isOn ? CServiceSchedule::kOn : CServiceSchedule::kOff, {0, kWholeDay}};
  return {isOn ? CServiceSchedule::kOnBetween : CServiceSchedule::kOffBetween, parseWindow(window)};
}

}  // namespace tovanctl
