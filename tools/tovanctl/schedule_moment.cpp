#include "tools/tovanctl/schedule_moment.h"

#include <CoreFoundation/CFTimeZone.h>

#include <cmath>
#include <ctime>
#include <optional>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/log_moment.h"
#include "tools/tovanctl/schedule_week.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;
using tovan::CServiceSchedule;

CSharedCFRef<CFTimeZoneRef> systemZone() { return CFTimeZoneCopySystem(); }

// As in a schedule, a time that clocks skip moves to the moment at which they do.
CFAbsoluteTime momentOf(const std::tm& local) {
  const CSharedCFRef<CFTimeZoneRef> zone = systemZone();
  const CFGregorianDate date{local.tm_year + 1900,
                             static_cast<SInt8>(local.tm_mon + 1),
                             static_cast<SInt8>(local.tm_mday),
                             static_cast<SInt8>(local.tm_hour),
                             static_cast<SInt8>(local.tm_min),
                             static_cast<double>(local.tm_sec)};
  const CFAbsoluteTime moment = CFGregorianDateGetAbsoluteTime(date, zone.get());
  const double wanted = CFGregorianDateGetAbsoluteTime(date, nullptr);
  const auto shown = [&zone](CFAbsoluteTime at) { return at + CFTimeZoneGetSecondsFromGMT(zone.get(), at); };
  // The skip lies before the moment that was found, by less than its own length.
  CFAbsoluteTime first = moment;
  CFAbsoluteTime before = moment - (shown(moment) - wanted);
  while (first - before > 1) {
    const CFAbsoluteTime middle = std::floor((before + first) / 2);
    (shown(middle) < wanted ? before : first) = middle;
  }
  return first;
}

// "monday 14:05"; nothing for other forms.
std::optional<CFAbsoluteTime> dayAndTime(const std::string& text, const CServiceSchedule& schedule) {
  const std::size_t blank = text.find(' ');
  if (blank == std::string::npos) return std::nullopt;
  const std::string clock = text.substr(blank + 1);
  const std::optional<std::tm> local = clock.size() > 8 ? std::nullopt : parseLocalTime(clock, logNow());
  if (!local) return std::nullopt;
  try {
    const std::vector<std::uint32_t> days = parseDays(text.substr(0, blank));
    if (days.size() != 1) return std::nullopt;
    return schedule.toAbsoluteTime(days[0], static_cast<std::uint32_t>(local->tm_hour),
                                   static_cast<std::uint32_t>(local->tm_min),
                                   static_cast<std::uint32_t>(local->tm_sec));
  } catch (const CommandError&) {
    return std::nullopt;
  }
}

std::string shortDay(CFAbsoluteTime at) { return std::string(dayNameAt(at)).substr(0, 3); }

}  // namespace

const char* dayNameAt(CFAbsoluteTime at) {
  const auto day = static_cast<std::size_t>(CFAbsoluteTimeGetDayOfWeek(at, systemZone().get()));
  return kDayNames[day % kDayNames.size()];
}

std::string clockTextAt(CFAbsoluteTime at) { return logMomentText(std::floor(at)).substr(0, 19); }

std::string zoneTextAt(CFAbsoluteTime at) {
  const CSharedCFRef<CFStringRef> abbreviation(CFTimeZoneCopyAbbreviation(systemZone().get(), at));
  return text(abbreviation.get());
}

CFAbsoluteTime parseScheduleMoment(const std::string& what, const std::string& text, const CServiceSchedule& schedule) {
  const CFAbsoluteTime now = CFAbsoluteTimeGetCurrent();
  if (text == "now") return now;
  const bool isAhead = text.starts_with('+');
  const std::optional<double> away = isAhead || text.starts_with('-') ? parseDuration(text.substr(1)) : std::nullopt;
  if (away) return isAhead ? now + *away : now - *away;
  const std::optional<std::tm> local = parseLocalTime(text, now);
  if (local) return momentOf(*local);
  const std::optional<CFAbsoluteTime> moment = dayAndTime(text, schedule);
  if (moment) return *moment;
  throw CommandError(
      kUsage,
      what + ": \"" + text +
          "\" is no time; it takes \"now\", \"2026-11-21\", \"2026-11-21 14:05\", \"14:05\" (today; all of "
          "them also with seconds), \"monday 14:05\" (the next one), or \"+2h\", \"-30m\" from now (also s, d)");
}

std::string scheduleMomentText(CFAbsoluteTime at) {
  return shortDay(at) + " " + clockTextAt(at) + " " + zoneTextAt(at);
}

std::string shortMomentText(CFAbsoluteTime at) {
  const std::string time = clockTextAt(at).substr(11);
  return shortDay(at) + " " + (time.ends_with(":00") ? time.substr(0, 5) : time);
}

std::string systemZoneName() { return text(CFTimeZoneGetName(systemZone().get())); }

LineState lineStateAt(const CServiceSchedule& schedule, CFAbsoluteTime at) {
  const CFAbsoluteTime until = schedule.nextTransition(at);
  return {at, schedule.isOnLine(at), until, until >= schedule.distantFuture()};
}

const char* stateText(bool isOnLine) { return isOnLine ? "on line" : "off line"; }

}  // namespace tovanctl
