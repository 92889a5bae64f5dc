// schedule_svg.h: a week as a picture.
#pragma once

#include <tovan/service_schedule.h>

#include <string>

namespace tovanctl {

// What the picture says beside the week itself; UTF-8.
struct WeekPicture {
  std::string title;     // the name that people read
  std::string subtitle;  // the service's own name
  std::string zone;      // the time zone whose clocks are meant
  CFAbsoluteTime now;    // marked
};

// A whole SVG document (SVG 1.1): a bar of 24 hours for each day from Monday on, the windows written in or beside it,
// the hours on line of each day and of the week, a mark for now, and a legend.
std::string weekAsSvg(const tovan::CServiceSchedule& schedule, const WeekPicture& picture);

}  // namespace tovanctl
