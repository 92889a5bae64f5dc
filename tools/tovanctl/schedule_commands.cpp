// tovanctl schedule: when in the week a service is on line.
#include <fmt/format.h>
#include <plinth/plinth.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_schedule.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/schedule_json.h"
#include "tools/tovanctl/schedule_moment.h"
#include "tools/tovanctl/schedule_store.h"
#include "tools/tovanctl/schedule_strip.h"
#include "tools/tovanctl/schedule_svg.h"
#include "tools/tovanctl/schedule_week.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/status.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

using tovan::CServiceCacheEntry;
using tovan::CServiceCacheFile;
using tovan::CServiceScheduleRef;

constexpr std::uint32_t kMostTransitions = 10000;

struct Arguments {
  std::string service;
  std::string days;
  std::string state;
  std::string window;
  std::string svg;
  std::string from = "now";
  std::vector<std::string> time;
  std::uint32_t count = 10;
  bool json = false;
};

// What is wrong with what is stored is said, and does not end the command.
CServiceScheduleRef readSchedule(const CServiceCacheEntry& entry) {
  CServiceScheduleRef schedule = scheduleOf(entry);
  for (const std::string& part : ignoredParts(entry)) {
    message("in the schedule of \"" + text(entry.name()) + "\" " + part);
  }
  return schedule;
}

CServiceScheduleRef readSchedule(const std::string& service) {
  return readSchedule(serviceOfName(CServiceCacheFile(), service));
}

void writePicture(const std::string& path, const std::string& svg) {
  if (path == "-") return print(svg);
  std::FILE* const file = std::fopen(path.c_str(), "wbe");
  const bool isWritten = file != nullptr && std::fwrite(svg.data(), 1, svg.size(), file) == svg.size();
  const int whyWrite = errno;
  const bool isClosed = file != nullptr && std::fclose(file) == 0;
  if (isWritten && isClosed) return;
  throw CommandError(kFailed,
                     "cannot write the picture \"" + path + "\": " + std::strerror(isWritten ? errno : whyWrite));
}

std::string sentenceOf(const LineState& state) {
  if (state.isForEver) return std::string("always ") + stateText(state.isOnLine);
  return stateText(state.isOnLine) + std::string(" until ") + scheduleMomentText(state.until) + ", for " +
         upTimeText(state.until - state.at);
}

void show(const Arguments& arguments) {
  const CServiceCacheEntry entry = serviceOfName(CServiceCacheFile(), arguments.service);
  const CServiceScheduleRef schedule = readSchedule(entry);
  const LineState now = lineStateAt(*schedule, CFAbsoluteTimeGetCurrent());
  if (!arguments.svg.empty()) {
    const std::string title = entry.displayName() == nullptr ? arguments.service : text(entry.displayName());
    writePicture(arguments.svg, weekAsSvg(*schedule, {title, arguments.service, systemZoneName(), now.at}));
    if (arguments.svg == "-") return;
  }
  if (arguments.json) return printJson(weekJson(arguments.service, *schedule, now));
  std::uint32_t today = 0, hours = 0, minutes = 0, seconds = 0;
  schedule->fromAbsoluteTime(now.at, today, hours, minutes, seconds);
  print(arguments.service + "\n" + sentenceOf(now) + "\n" + amountText(onLineSeconds(*schedule)) +
        " of a week on line; times are those of " + systemZoneName() + "\n\n" +
        weekAsStrips(*schedule, today, {wantsColour(), wantsUnicode()}));
  if (!arguments.svg.empty()) message("the picture is in " + arguments.svg);
}

void set(const Arguments& arguments) {
  const std::vector<std::uint32_t> days = parseDays(arguments.days);
  const DayRule rule = parseDayRule(arguments.state, arguments.window);
  const CServiceScheduleRef schedule = changeSchedule(arguments.service, days, rule);
  for (const std::uint32_t day : days) {
    print(arguments.service + ": " + kDayNames[day] + " is now " + dayText(*schedule, day) + "\n");
  }
}

void next(const Arguments& arguments) {
  const CServiceScheduleRef schedule = readSchedule(arguments.service);
  const LineState begin = lineStateAt(*schedule, parseScheduleMoment("--from", arguments.from, *schedule));
  std::vector<LineState> transitions;
  for (LineState state = begin; transitions.size() < arguments.count && !state.isForEver;) {
    state = lineStateAt(*schedule, state.until);
    transitions.push_back(state);
  }
  if (arguments.json) return printJson(transitionsJson(arguments.service, begin, transitions));
  if (transitions.empty()) return print(arguments.service + ": " + sentenceOf(begin) + ", without a transition\n");
  Table table({"TIME", "IN", "THE SERVICE GOES"});
  for (const LineState& state : transitions) {
    table.add({scheduleMomentText(state.at), upTimeText(state.at - begin.at), stateText(state.isOnLine)},
              state.isOnLine ? Style::good : Style::plain);
  }
  print(table.render(wantsColour()));
}

void at(const Arguments& arguments) {
  const CServiceScheduleRef schedule = readSchedule(arguments.service);
  const std::string given = arguments.time.empty() ? "now" : fmt::format("{}", fmt::join(arguments.time, " "));
  const LineState state = lineStateAt(*schedule, parseScheduleMoment("TIME", given, *schedule));
  if (arguments.json) return printJson(momentJson(arguments.service, state));
  print(scheduleMomentText(state.at) + ": " + sentenceOf(state) + "\n");
}

CLI::App* addVerb(CLI::App& schedule, const std::shared_ptr<Arguments>& arguments, const std::string& verb,
                  const std::string& help) {
  CLI::App* const command = schedule.add_subcommand(verb, help);
  command->add_option("NAME", arguments->service, "The service's name")->required();
  return command;
}

}  // namespace

void addScheduleCommands(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App& schedule = *app.add_subcommand("schedule", "When in the week a service is on line");
  schedule.require_subcommand(1);

  CLI::App* const showVerb = addVerb(schedule, arguments, "show", "A service's week, and whether it is on line now");
  showVerb->add_option("--svg", arguments->svg, "Draw it into this file too, as SVG; - for standard output instead");
  showVerb->add_flag("--json", arguments->json, "One JSON document");
  showVerb->callback([arguments] { show(*arguments); });

  CLI::App* const setVerb = addVerb(schedule, arguments, "set", "Change days of a service's week");
  setVerb->add_option("DAYS", arguments->days, "monday, mon-fri, sat,sun, weekdays, weekend or all")->required();
  setVerb->add_option("STATE", arguments->state, "on or off: all day, or in the window only")->required();
  setVerb->add_option("WINDOW", arguments->window, "Such as 09:00-17:00 or 22:30:15-24:00");
  setVerb->callback([arguments] { set(*arguments); });

  CLI::App* const nextVerb =
      addVerb(schedule, arguments, "next", "The next times at which a service goes on or off line");
  nextVerb->add_option("--count", arguments->count, "So many")
      ->check(CLI::Range(1U, kMostTransitions))
      ->capture_default_str();
  nextVerb->add_option("--from", arguments->from, "From this time on, in the forms of `schedule at`")
      ->capture_default_str();
  nextVerb->add_flag("--json", arguments->json, "One JSON document");
  nextVerb->callback([arguments] { next(*arguments); });

  CLI::App* const atVerb = addVerb(schedule, arguments, "at", "Whether a service is on line at a moment");
  atVerb->add_option("TIME", arguments->time,
                     "now (when not given), 2026-11-21, \"2026-11-21 14:05\", 14:05 today, monday 14:05, or +2h");
  atVerb->add_flag("--json", arguments->json, "One JSON document");
  atVerb->callback([arguments] { at(*arguments); });
}

}  // namespace tovanctl
