// run_loop_schedule.h: when a timer is due. Arithmetic only; the clocks are read by the caller.
//
// A schedule has a start, as a date and as the monotonic time that the date was when it was set, and counts multiples
// of the interval from there: it does not drift, and does not care what happens to the system's clock.
#pragma once

#include "platform/corefoundation/run_loop.h"

namespace cf {

// Both clocks at one moment.
struct ClockReading {
  CFAbsoluteTime date;
  MonotonicTime monotonic;

  static ClockReading now() noexcept;
};

// Times this many seconds away and further are taken as never.
inline constexpr double kSecondsWithoutLimit = 1e9;

// The time so many seconds after another: that time itself for zero, negative seconds and what is not a number, kNever
// for a thousand million seconds and more.
MonotonicTime timeAfter(MonotonicTime start, double seconds) noexcept;

class TimerSchedule {
 public:
  TimerSchedule(CFAbsoluteTime date, CFTimeInterval interval, ClockReading now) noexcept;

  // Starts anew at a date.
  void moveTo(CFAbsoluteTime date, ClockReading now) noexcept;
  // Goes on to the first multiple of the interval after `now`, which is not before due().
  void advance(MonotonicTime now) noexcept;

  MonotonicTime due() const noexcept { return due_; }
  CFAbsoluteTime date() const noexcept { return date_; }
  // Seconds; 0 for once.
  CFTimeInterval interval() const noexcept { return interval_; }
  bool repeats() const noexcept { return interval_ > 0; }

 private:
  CFTimeInterval interval_;
  CFAbsoluteTime startDate_ = 0;
  MonotonicTime start_ = 0;
  CFAbsoluteTime date_ = 0;
  MonotonicTime due_ = 0;
};

}  // namespace cf
