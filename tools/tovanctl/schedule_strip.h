// schedule_strip.h: a week as lines of a terminal, a strip of half hours for each day.
#pragma once

#include <tovan/service_schedule.h>

#include <string>

namespace tovanctl {

struct StripLook {
  bool colour;
  bool unicode;  // block characters instead of ASCII
};

// Whether the terminal's locale can show block characters (LC_ALL, LC_CTYPE, LANG).
bool wantsUnicode();

// The strips under a scale of hours, from Monday on, and what the characters mean. `today` is marked.
std::string weekAsStrips(const tovan::CServiceSchedule& schedule, std::uint32_t today, const StripLook& look);

}  // namespace tovanctl
