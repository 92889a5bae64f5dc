// wall_clock.h: what the clocks of the system time zone show, and when they show it.
//
// A local time is what clocks show, in seconds from their 2001-01-01 00:00:00 on. Moments are absolute times; whole
// seconds and less than ten thousand years away from 2001 in all of these.
#pragma once

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFTimeZone.h>

#include <cstdint>

namespace tovan {

class WallClock {
 public:
  static constexpr std::uint32_t kDaysOfWeek = 7;
  static constexpr std::uint32_t kSecondsOfDay = 86400;

  // A time of a week; days are numbered from 0, Sunday.
  struct Time {
    std::uint32_t day;
    std::uint32_t secondOfDay;
  };

  WallClock() : zone_(CFTimeZoneCopySystem()) {}

  double localTimeAt(CFAbsoluteTime at) const;
  // Any moment at all, its fraction of a second dropped.
  Time timeAt(CFAbsoluteTime at) const;

  // The first moment at which clocks show the local time; for one that they skip, the moment at which they skip it.
  CFAbsoluteTime momentOf(double local) const;
  // The first moment from `now` on that momentOf() gives for this time of any week. The second of the day is below
  // kSecondsOfDay.
  CFAbsoluteTime nextMomentOf(Time time, CFAbsoluteTime now) const;

  // The first moment after `from`, and up to `to`, at which clocks have been put forward or back since `from`; `to`
  // when they show the same offset there.
  CFAbsoluteTime endOfStretch(CFAbsoluteTime from, CFAbsoluteTime to) const;

 private:
  double offsetAt(CFAbsoluteTime at) const { return CFTimeZoneGetSecondsFromGMT(zone_.get(), at); }

  plinth::CSharedCFRef<CFTimeZoneRef> zone_;
};

}  // namespace tovan
