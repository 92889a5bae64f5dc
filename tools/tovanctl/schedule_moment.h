// schedule_moment.h: moments of a schedule, from and for people and programs.
#pragma once

#include <tovan/service_schedule.h>

#include <string>

namespace tovanctl {

// The moment that a text names as seen now: "now", a date, a time of today or both as logs take them, "monday 14:05"
// (the next such moment), "+2h", "-30m" (s, m, h, d). A date and time that clocks skip is the next one that they show,
// one that they show twice is the first. CommandError(kUsage), naming `what` and these forms, for anything else.
CFAbsoluteTime parseScheduleMoment(const std::string& what, const std::string& text,
                                   const tovan::CServiceSchedule& schedule);

// "Mon 2026-11-23 09:00:00 CET", in the system's time zone.
std::string scheduleMomentText(CFAbsoluteTime at);
// "Mon 09:00", where the week is clear.
std::string shortMomentText(CFAbsoluteTime at);
// What they are made of: "Monday", "2026-11-23 09:00:00", "CET".
const char* dayNameAt(CFAbsoluteTime at);
std::string clockTextAt(CFAbsoluteTime at);
std::string zoneTextAt(CFAbsoluteTime at);

// "Europe/Berlin".
std::string systemZoneName();

// Whether the service is on line at a moment, and until when; `until` is distantFuture() for ever.
struct LineState {
  CFAbsoluteTime at;
  bool isOnLine;
  CFAbsoluteTime until;
  bool isForEver;
};
LineState lineStateAt(const tovan::CServiceSchedule& schedule, CFAbsoluteTime at);
// "on line", "off line".
const char* stateText(bool isOnLine);

}  // namespace tovanctl
