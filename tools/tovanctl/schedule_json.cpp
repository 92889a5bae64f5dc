#include "tools/tovanctl/schedule_json.h"

#include <cmath>

#include "tools/tovanctl/log_moment.h"
#include "tools/tovanctl/schedule_week.h"

namespace tovanctl {
namespace {

using tovan::CServiceSchedule;

Json momentAsJson(CFAbsoluteTime at) {
  return {{"time", logMomentUniversal(std::floor(at))},
          {"absoluteTime", std::floor(at)},
          {"local", clockTextAt(at)},
          {"zone", zoneTextAt(at)},
          {"day", dayNameAt(at)}};
}

Json transitionJson(CFAbsoluteTime at, bool isOnLine) {
  Json object = momentAsJson(at);
  object["onLine"] = isOnLine;
  return object;
}

Json stateJson(const LineState& state) {
  Json object = Json::object();
  object["onLine"] = state.isOnLine;
  object["nextTransition"] = state.isForEver ? Json(nullptr) : transitionJson(state.until, !state.isOnLine);
  return object;
}

Json dayJson(const CServiceSchedule& schedule, std::uint32_t day) {
  static constexpr const char* kTypes[] = {"On", "Off", "OnBetween", "OffBetween"};
  std::uint32_t from = 0, to = 0;
  schedule.timeFrom(day, from);
  schedule.timeTo(day, to);
  Json spans = Json::array();
  for (const DaySpan& span : onLineSpans(schedule, day)) spans.push_back({{"from", span.from}, {"to", span.to}});
  return {{"day", kDayNames[day]}, {"type", kTypes[schedule.scheduleType(day)]},   {"timeFrom", from}, {"timeTo", to},
          {"onLine", spans},       {"secondsOnLine", onLineSeconds(schedule, day)}};
}

}  // namespace

Json weekJson(const std::string& service, const CServiceSchedule& schedule, const LineState& now) {
  Json days = Json::array();
  for (std::uint32_t day = 0; day < CServiceSchedule::kDays; ++day) days.push_back(dayJson(schedule, day));
  Json document = {{"service", service}, {"timeZone", systemZoneName()}, {"now", momentAsJson(now.at)}};
  document.update(stateJson(now));
  document["constant"] = schedule.isConstantSchedule();
  document["secondsOnLine"] = onLineSeconds(schedule);
  document["days"] = days;
  return document;
}

Json transitionsJson(const std::string& service, const LineState& begin, const std::vector<LineState>& transitions) {
  Json list = Json::array();
  for (const LineState& state : transitions) list.push_back(transitionJson(state.at, state.isOnLine));
  return {{"service", service},
          {"timeZone", systemZoneName()},
          {"from", transitionJson(begin.at, begin.isOnLine)},
          {"transitions", list}};
}

Json momentJson(const std::string& service, const LineState& state) {
  Json document = {{"service", service}, {"timeZone", systemZoneName()}, {"at", momentAsJson(state.at)}};
  document.update(stateJson(state));
  return document;
}

}  // namespace tovanctl
