// time_zone_lookup.h: making time-zone objects.
#pragma once

#include <string>

#include "platform/corefoundation/time_zone.h"

namespace cf {

// The caller owns what these give.
CFTimeZoneRef createTimeZone(const std::string& name, Zone zone);
// "GMT", "GMT+hhmm" or "GMT-hhmm", with seconds behind it where there are any; less than a day.
CFTimeZoneRef createFixedTimeZone(std::int32_t offset);

}  // namespace cf
