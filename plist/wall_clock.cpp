#include "plist/wall_clock.h"

#include <cmath>

namespace tovan {
namespace {

constexpr double kSecondsOfWeek = WallClock::kDaysOfWeek * WallClock::kSecondsOfDay;

// The first whole second after `before` at which the condition holds; it does at `after` and from there back to that
// second, and not at `before`.
template <class Condition>
CFAbsoluteTime firstSecond(CFAbsoluteTime before, CFAbsoluteTime after, Condition holds) {
  while (after - before > 1) {
    const CFAbsoluteTime middle = std::floor((before + after) / 2);
    (holds(middle) ? after : before) = middle;
  }
  return after;
}

}  // namespace

double WallClock::localTimeAt(CFAbsoluteTime at) const { return std::floor(at) + offsetAt(at); }

WallClock::Time WallClock::timeAt(CFAbsoluteTime at) const {
  const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(at, zone_.get());
  const auto minute = static_cast<std::uint32_t>(date.hour * 60 + date.minute);
  return {static_cast<std::uint32_t>(CFAbsoluteTimeGetDayOfWeek(at, zone_.get())) % kDaysOfWeek,
          minute * 60 + static_cast<std::uint32_t>(date.second)};
}

CFAbsoluteTime WallClock::momentOf(double local) const {
  const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(local, nullptr);
  const CFAbsoluteTime moment = CFGregorianDateGetAbsoluteTime(date, zone_.get());
  const double skipped = localTimeAt(moment) - local;
  if (skipped <= 0) return moment;
  // The skip lies before the moment, by less than its own length.
  return firstSecond(moment - skipped, moment, [&](CFAbsoluteTime at) { return localTimeAt(at) >= local; });
}

CFAbsoluteTime WallClock::nextMomentOf(Time time, CFAbsoluteTime now) const {
  constexpr std::uint32_t firstDay = 1;  // 2001 began on a Monday
  const double today = std::floor(localTimeAt(now) / kSecondsOfDay);
  const double weeks = std::floor((today + firstDay) / kDaysOfWeek);
  double local = weeks * kSecondsOfWeek + (static_cast<double>(time.day) - firstDay) * kSecondsOfDay + time.secondOfDay;
  // This week's may be over, and last week's still to come where clocks skip it.
  for (local -= kSecondsOfWeek;; local += kSecondsOfWeek) {
    const CFAbsoluteTime moment = momentOf(local);
    if (moment >= now) return moment;
  }
}

CFAbsoluteTime WallClock::endOfStretch(CFAbsoluteTime from, CFAbsoluteTime to) const {
  const double offset = offsetAt(from);
  if (offsetAt(to) == offset) return to;
  return firstSecond(from, to, [&](CFAbsoluteTime at) { return offsetAt(at) != offset; });
}

}  // namespace tovan
