// schedule_json.h: what `tovanctl schedule` says to programs. docs/tovanctl.md has the members.
#pragma once

#include <tovan/service_schedule.h>

#include <string>
#include <vector>

#include "tools/tovanctl/schedule_moment.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {

// The members of `schedule show`, `next` and `at`.
Json weekJson(const std::string& service, const tovan::CServiceSchedule& schedule, const LineState& now);
Json transitionsJson(const std::string& service, const LineState& begin, const std::vector<LineState>& transitions);
Json momentJson(const std::string& service, const LineState& state);

}  // namespace tovanctl
