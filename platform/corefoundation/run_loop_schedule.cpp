#include "platform/corefoundation/run_loop_schedule.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace cf {
namespace {

constexpr double kNanoseconds = 1e9;  // in a second

}  // namespace

MonotonicTime monotonicNow() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<MonotonicTime>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

ClockReading ClockReading::now() noexcept {
  // In this order: a pause between the two makes a timer late and not early.
  const CFAbsoluteTime date = CFAbsoluteTimeGetCurrent();
  return {date, monotonicNow()};
}

MonotonicTime timeAfter(MonotonicTime start, double seconds) noexcept {
  if (!(seconds > 0)) return start;
  if (seconds >= kSecondsWithoutLimit) return kNever;
  return start + static_cast<MonotonicTime>(std::ceil(seconds * kNanoseconds));
}

TimerSchedule::TimerSchedule(CFAbsoluteTime date, CFTimeInterval interval, ClockReading now) noexcept
    : interval_(interval > 0 ? interval : 0) {
  moveTo(date, now);
}

void TimerSchedule::moveTo(CFAbsoluteTime date, ClockReading now) noexcept {
  date_ = std::isnan(date) ? now.date : date;
  const double ahead = date_ - now.date;
  if (ahead > 0) {
    startDate_ = date;
    start_ = timeAfter(now.monotonic, ahead);
  } else {
    // A start in the past still fixes the times that follow.
    const double ago = std::min(-ahead, kSecondsWithoutLimit);
    startDate_ = now.date - ago;
    start_ = now.monotonic - static_cast<MonotonicTime>(ago * kNanoseconds);
  }
  due_ = start_;
}

void TimerSchedule::advance(MonotonicTime now) noexcept {
  if (interval_ >= kSecondsWithoutLimit) {
    due_ = kNever;
    date_ = startDate_ + interval_;
    return;
  }
  // The multiple is computed from the start each time, so that rounding does not add up.
  const long double interval = std::max(static_cast<long double>(interval_) * 1e9L, 1.0L);
  const auto passed = static_cast<long double>(now - start_);
  long double count = std::floor(passed / interval) + 1;
  if (std::ceil(count * interval) <= passed) ++count;
  due_ = start_ + static_cast<MonotonicTime>(std::ceil(count * interval));
  date_ = startDate_ + static_cast<double>(count * interval / 1e9L);
}

}  // namespace cf
