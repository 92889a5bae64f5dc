// Date objects, and the clock.
#include "platform/corefoundation/date.h"

#include <bit>
#include <cmath>
#include <ctime>

#include "platform/corefoundation/base.h"

struct CFDateStorage {
  CFObjectHead head;
  CFAbsoluteTime at;
};

namespace cf {
namespace {

// Dates that are not a number come first, and are equal, so that there is an order.
CFComparisonResult compareTimes(CFAbsoluteTime left, CFAbsoluteTime right) noexcept {
  const bool leftIsNumber = !std::isnan(left);
  const bool rightIsNumber = !std::isnan(right);
  if (!leftIsNumber || !rightIsNumber) {
    return static_cast<CFComparisonResult>(static_cast<int>(leftIsNumber) - static_cast<int>(rightIsNumber));
  }
  return left < right ? kCFCompareLessThan : left > right ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

bool datesAreEqual(const void* left, const void* right) {
  return compareTimes(static_cast<CFDateRef>(left)->at, static_cast<CFDateRef>(right)->at) == kCFCompareEqualTo;
}

CFHashCode hashOfDate(const void* object) {
  const CFAbsoluteTime at = static_cast<CFDateRef>(object)->at;
  if (std::isnan(at)) return mixBits(1);
  return mixBits(std::bit_cast<std::uint64_t>(at == 0 ? 0.0 : at));  // -0.0 equals 0.0
}

// "2001-01-01 00:00:00 +0000"
CFStringRef copyDateDescription(const void* object) {
  const std::int64_t seconds = wholeSecondsSince1970(static_cast<CFDateRef>(object)->at);
  const std::int64_t days = floorDivide(seconds, kSecondsPerDay);
  const int secondOfDay = static_cast<int>(seconds - days * kSecondsPerDay);
  const CivilDay civil = civilFromDays(days);
  char text[64];
  std::snprintf(text, sizeof text, "%04jd-%02d-%02d %02d:%02d:%02d +0000", static_cast<std::intmax_t>(civil.year),
                civil.month, civil.day, secondOfDay / 3600, secondOfDay / 60 % 60, secondOfDay % 60);
  return createText(text);
}

}  // namespace

constinit const CFRuntimeClass kDateClass{"CFDate", nullptr, datesAreEqual, hashOfDate, copyDateDescription};

}  // namespace cf

constinit const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = static_cast<CFTimeInterval>(cf::kEpochOffset);
constinit const CFTimeInterval kCFAbsoluteTimeIntervalSince1904 = 3061152000.0;

CFAbsoluteTime CFAbsoluteTimeGetCurrent() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec - cf::kEpochOffset) + static_cast<double>(now.tv_nsec) * 1e-9;
}

CFTypeID CFDateGetTypeID() { return cf::typeID(cf::kDateClass); }

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime at) { return cf::create<CFDateStorage>(cf::kDateClass, 0, at); }

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) { return date == nullptr ? 0 : date->at; }

CFTimeInterval CFDateGetTimeIntervalSinceDate(CFDateRef date, CFDateRef other) {
  return CFDateGetAbsoluteTime(date) - CFDateGetAbsoluteTime(other);
}

CFComparisonResult CFDateCompare(CFDateRef date, CFDateRef other, void*) {
  return cf::compareTimes(CFDateGetAbsoluteTime(date), CFDateGetAbsoluteTime(other));
}
