// When a schedule is on line, and when that changes next.
#include <tovan/service_schedule.h>

#include <algorithm>
#include <cmath>

#include "plist/service_schedule_check.h"
#include "plist/wall_clock.h"

namespace tovan {

bool CServiceSchedule::isOnLineAt(std::uint32_t day, std::uint32_t time) const {
  const std::uint32_t type = types_[day];
  if (type == kOn || type == kOff) return type == kOn;
  if (isConstantSchedule(day)) return type == kOnBetween;
  if (time < timesFrom_[day]) return type == kOffBetween;
  if (time < timesTo_[day]) return type == kOnBetween;
  if (time != kSecondsOfDay) return type == kOffBetween;
  return isOnLineAt((day + 1) % kDays, 0);
}

bool CServiceSchedule::isOnLine(std::uint32_t day, std::uint32_t hours, std::uint32_t minutes,
                                std::uint32_t seconds) const {
  checkScheduleTime("isOnLine", day, hours, minutes, seconds);
  return isOnLineAt(day, scheduleSeconds(hours, minutes, seconds));
}

bool CServiceSchedule::isOnLine(CFAbsoluteTime at) const {
  const WallClock::Time time = WallClock().timeAt(at);
  return isOnLineAt(time.day, time.secondOfDay);
}

bool CServiceSchedule::isOnLine() const {
  if (isConstantSchedule()) return types_[0] == kOn || types_[0] == kOnBetween;
  return isOnLine(CFAbsoluteTimeGetCurrent());
}

bool CServiceSchedule::isConstantSchedule(std::uint32_t day) const {
  checkScheduleDay("isConstantSchedule", day);
  const bool hasWindow = types_[day] == kOnBetween || types_[day] == kOffBetween;
  return !hasWindow || (timesFrom_[day] == 0 && timesTo_[day] == kSecondsOfDay);
}

// Threads that ask at once find the same.
bool CServiceSchedule::isConstantSchedule() const {
  if (!isConstantKnown_.load(std::memory_order_acquire)) {
    isConstant_.store(findConstant(), std::memory_order_relaxed);
    isConstantKnown_.store(true, std::memory_order_release);
  }
  return isConstant_.load(std::memory_order_relaxed);
}

bool CServiceSchedule::findConstant() const {
  for (std::uint32_t day = 0; day < kDays; ++day) {
    if (!isConstantSchedule(day) || isOnLineAt(day, 0) != isOnLineAt(0, 0)) return false;
  }
  return true;
}

CFAbsoluteTime CServiceSchedule::distantFuture() const { return 63113904000.0; }

CFAbsoluteTime CServiceSchedule::nextTransition() const { return nextTransition(CFAbsoluteTimeGetCurrent()); }

// From one time of day at which the state may change to the next. Where clocks are put forward or back in between, it
// may change there too, and the day goes on from what they show then.
CFAbsoluteTime CServiceSchedule::nextTransition(CFAbsoluteTime at) const {
  constexpr double searched = (2 * kDays + 1) * double{kSecondsOfDay};
  if (isConstantSchedule() || !(std::fabs(at) < distantFuture())) return distantFuture();
  const WallClock clock;
  const bool isOnLineNow = isOnLine(at);
  CFAbsoluteTime moment = std::floor(at);
  while (moment <= at + searched) {
    const WallClock::Time time = clock.timeAt(moment);
    std::uint32_t next = kSecondsOfDay;
    for (const std::uint32_t edge : {timesTo_[time.day], timesFrom_[time.day]}) {
      if (edge > time.secondOfDay && edge < next) next = edge;
    }
    moment = clock.endOfStretch(moment, moment + (next - time.secondOfDay));
    const WallClock::Time then = clock.timeAt(moment);
    if (isOnLineAt(then.day, then.secondOfDay) != isOnLineNow) return std::min(moment, distantFuture());
  }
  return distantFuture();
}

bool CServiceSchedule::nextTransition(std::uint32_t& day, std::uint32_t& hours, std::uint32_t& minutes,
                                      std::uint32_t& seconds) const {
  const CFAbsoluteTime next = nextTransition();
  if (next >= distantFuture()) return false;
  fromAbsoluteTime(next, day, hours, minutes, seconds);
  return true;
}

CFAbsoluteTime CServiceSchedule::toAbsoluteTime(std::uint32_t day, std::uint32_t hours, std::uint32_t minutes,
                                                std::uint32_t seconds) const {
  checkScheduleTime("toAbsoluteTime", day, hours, minutes, seconds);
  const std::uint32_t time = scheduleSeconds(hours, minutes, seconds);
  const WallClock::Time wanted =
      time == kSecondsOfDay ? WallClock::Time{(day + 1) % kDays, 0} : WallClock::Time{day, time};
  return WallClock().nextMomentOf(wanted, std::floor(CFAbsoluteTimeGetCurrent()));
}

void CServiceSchedule::fromAbsoluteTime(CFAbsoluteTime at, std::uint32_t& day, std::uint32_t& hours,
                                        std::uint32_t& minutes, std::uint32_t& seconds) const {
  const WallClock::Time time = WallClock().timeAt(at);
  day = time.day;
  splitScheduleSeconds(time.secondOfDay, hours, minutes, seconds);
}

}  // namespace tovan
