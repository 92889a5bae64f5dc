#include <tovan/time_stamp.h>

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFTimeZone.h>

#include "foundation/milliseconds.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <limits>

namespace tovan {
namespace {

using Milliseconds = std::chrono::duration<std::int64_t, std::milli>;
using Seconds = std::chrono::duration<std::int64_t>;

constexpr std::size_t kSecondLength = sizeof "MM/DD/YYYY hh:mm:ss" - 1;

// Writes the number right-aligned, with leading zeros, and gives the place behind it.
char* putDigits(char* place, int value, int count) {
  for (int digit = count; digit-- > 0; value /= 10) place[digit] = static_cast<char>('0' + value % 10);
  return place + count;
}

// The text of the last whole second that this thread asked for.
struct SecondText {
  std::int64_t second;
  char text[kSecondLength];
};
thread_local constinit SecondText lastSecond{std::numeric_limits<std::int64_t>::min(), {}};

void findText(std::int64_t second, char (&text)[kSecondLength]) {
  const plinth::CSharedCFRef<CFTimeZoneRef> zone = CFTimeZoneCopySystem();
  const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(static_cast<CFAbsoluteTime>(second), zone.get());
  if (date.year > 9999) {
    std::memcpy(text, "12/31/9999 23:59:59", kSecondLength);
    return;
  }
  char* place = putDigits(text, date.month, 2);
  *place++ = '/';
  place = putDigits(place, date.day, 2);
  *place++ = '/';
  place = putDigits(place, std::max(date.year, SInt32{0}), 4);
  *place++ = ' ';
  place = putDigits(place, date.hour, 2);
  *place++ = ':';
  place = putDigits(place, date.minute, 2);
  *place++ = ':';
  putDigits(place, static_cast<int>(date.second), 2);
}

// The moment in whole milliseconds, not beyond the last one of the year 9999.
Milliseconds rounded(CFAbsoluteTime time) {
  using namespace std::chrono;
  constexpr Milliseconds last = sys_days{10000y / January / 1} - sys_days{2001y / January / 1} - 1ms;
  return time * 1000.0 < static_cast<double>(last.count()) ? Milliseconds(roundedMilliseconds(time)) : last;
}

}  // namespace

CTimeStamp::CTimeStamp(CFAbsoluteTime time) noexcept : time_(time >= 0 ? time : CFAbsoluteTimeGetCurrent()) {
  const Milliseconds moment = rounded(time_);
  const Seconds second = std::chrono::floor<Seconds>(moment);
  if (second.count() != lastSecond.second) {
    findText(second.count(), lastSecond.text);
    lastSecond.second = second.count();
  }
  std::memcpy(text_, lastSecond.text, kSecondLength);
  text_[kSecondLength] = '.';
  *putDigits(text_ + kSecondLength + 1, static_cast<int>((moment - second).count()), 3) = '\0';
}

}  // namespace tovan
