// The libraries ask clock_gettime for the time of day. This program defines it, and the dynamic linker takes the
// program's definition before the C library's.
#include "tests/logging/fixed_clock.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr std::int64_t kEpoch = 978307200;  // 2001-01-01 in seconds since 1970
constexpr std::int64_t kRuns = -1;

// Nanoseconds since 1970, or that the clock runs.
std::atomic<std::int64_t> fixedAt{kRuns};

}  // namespace

extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t clock, timespec* out) noexcept {
  const std::int64_t at = fixedAt;
  const bool isTimeOfDay = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
  if (at == kRuns || !isTimeOfDay) return static_cast<int>(::syscall(SYS_clock_gettime, clock, out));
  *out = {at / 1'000'000'000, at % 1'000'000'000};
  return 0;
}

extern "C" [[gnu::visibility("default")]] int gettimeofday(timeval* out, void*) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  *out = {now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

extern "C" [[gnu::visibility("default")]] time_t time(time_t* out) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (out != nullptr) *out = now.tv_sec;
  return now.tv_sec;
}

namespace test {

FixedClock::FixedClock(std::int64_t seconds, std::int64_t nanoseconds) { set(seconds, nanoseconds); }
FixedClock::~FixedClock() { fixedAt = kRuns; }

void FixedClock::set(std::int64_t seconds, std::int64_t nanoseconds) {
  fixedAt = (kEpoch + seconds) * 1'000'000'000 + nanoseconds;
}

}  // namespace test
