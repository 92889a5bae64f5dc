// milliseconds.h: a moment in whole milliseconds, rounded as "%.3lf" prints it.
#pragma once

#include <cmath>
#include <cstdint>

namespace tovan {

// The exact value of the time, rounded to the nearest millisecond, a half to the even one. The time is less than 9e12 s
// away from 0.
inline std::int64_t roundedMilliseconds(double seconds) noexcept {
  if (seconds < 0) return -roundedMilliseconds(-seconds);
  const double product = seconds * 1000.0;
  const auto whole = static_cast<std::int64_t>(product);
  const double fraction = product - static_cast<double>(whole);
  if (fraction < 0.499) return whole;
  if (fraction > 0.501) return whole + 1;
  // Beside a half, what the multiplication has lost decides.
  const double beyondHalf = fraction - 0.5 + std::fma(seconds, 1000.0, -product);
  return beyondHalf > 0 || (beyondHalf == 0 && whole % 2 != 0) ? whole + 1 : whole;
}

}  // namespace tovan
