// schedule_store.h: a service's schedule in its preferences: the key "Schedule" of "UserPrefs".
#pragma once

#include <tovan/service_cache_file.h>
#include <tovan/service_schedule.h>

#include <string>
#include <vector>

#include "tools/tovanctl/schedule_week.h"

namespace tovanctl {

// On line all week when the preferences have none. CommandError(kFailed), naming the service and the place, when what
// is there is no dictionary.
tovan::CServiceScheduleRef scheduleOf(const tovan::CServiceCacheEntry& entry);

// What of the stored schedule is not understood and reads as a default, a sentence each.
std::vector<std::string> ignoredParts(const tovan::CServiceCacheEntry& entry);

// Sets these days under the file's lock; other days, other preferences and keys that nobody knows stay as they are. The
// schedule as it is now. Throws as scheduleOf() does, and for a service that is not installed.
tovan::CServiceScheduleRef changeSchedule(const std::string& service, const std::vector<std::uint32_t>& days,
                                          const DayRule& rule);

}  // namespace tovanctl
