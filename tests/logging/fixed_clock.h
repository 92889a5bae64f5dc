// fixed_clock.h: a clock that stands where a test puts it.
#pragma once

#include <cstdint>

namespace test {

// As long as the object lives the time of day of this process is the moment given, in every thread; other clocks go on.
// One at a time.
class FixedClock {
 public:
  // Seconds since 2001-01-01 00:00:00 GMT and nanoseconds of the second.
  explicit FixedClock(std::int64_t seconds, std::int64_t nanoseconds = 0);
  ~FixedClock();
  FixedClock(const FixedClock&) = delete;
  FixedClock& operator=(const FixedClock&) = delete;

  void set(std::int64_t seconds, std::int64_t nanoseconds = 0);
};

}  // namespace test
