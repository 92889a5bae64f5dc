// Time-zone objects. Where zones come from is in time_zone_lookup.cpp, what they say in time_zone_rules.cpp.
#include "platform/corefoundation/time_zone.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/date.h"
#include "platform/corefoundation/string.h"
#include "platform/corefoundation/time_zone_lookup.h"

struct CFTimeZoneStorage {
  CFObjectHead head;
  CFStringRef name;
  const cf::Zone* zone;  // owned
};

namespace cf {
namespace {

void finalizeTimeZone(void* object) noexcept {
  const CFTimeZoneRef timeZone = static_cast<CFTimeZoneRef>(object);
  const std::unique_ptr<const Zone> zone(timeZone->zone);
  release(timeZone->name);
  std::free(object);
}

bool timeZonesAreEqual(const void* left, const void* right) {
  const CFTimeZoneRef one = static_cast<CFTimeZoneRef>(left);
  const CFTimeZoneRef other = static_cast<CFTimeZoneRef>(right);
  return stringsAreEqual(one->name, other->name) && *one->zone == *other->zone;
}

CFHashCode hashOfTimeZone(const void* object) { return stringHash(static_cast<CFTimeZoneRef>(object)->name); }

CFStringRef copyTimeZoneDescription(const void* object) {
  return CFStringCreateCopy(kCFAllocatorDefault, static_cast<CFTimeZoneRef>(object)->name);
}

}  // namespace

constinit const CFRuntimeClass kTimeZoneClass{"CFTimeZone", finalizeTimeZone, timeZonesAreEqual, hashOfTimeZone,
                                              copyTimeZoneDescription};

CFTimeZoneRef createTimeZone(const std::string& name, Zone zone) {
  auto ownedZone = std::make_unique<const Zone>(std::move(zone));
  Owned<CFStringRef> ownedName(createText(name));
  CFTimeZoneStorage* const timeZone = create<CFTimeZoneStorage>(kTimeZoneClass, 0, ownedName.get(), ownedZone.get());
  ownedName.take();
  static_cast<void>(ownedZone.release());
  return timeZone;
}

CFTimeZoneRef createFixedTimeZone(std::int32_t offset) {
  const int distance = std::abs(offset);
  char name[32] = "GMT";
  if (distance != 0) {
    const int length =
        std::snprintf(name, sizeof name, "GMT%c%02d%02d", offset < 0 ? '-' : '+', distance / 3600, distance / 60 % 60);
    if (distance % 60 != 0) {
      std::snprintf(name + length, sizeof name - static_cast<std::size_t>(length), "%02d", distance % 60);
    }
  }
  return createTimeZone(name, Zone::fixed(offset, name));
}

const Zone* zoneOf(CFTimeZoneRef timeZone) noexcept { return timeZone == nullptr ? nullptr : timeZone->zone; }

std::int32_t offsetAt(CFTimeZoneRef timeZone, std::int64_t time) noexcept {
  return timeZone == nullptr ? 0 : timeZone->zone->segmentAt(time).offset;
}

std::int64_t momentOfLocalTime(CFTimeZoneRef timeZone, std::int64_t local) noexcept {
  return timeZone == nullptr ? local : timeZone->zone->momentOfLocalTime(local);
}

}  // namespace cf

CFTypeID CFTimeZoneGetTypeID() { return cf::typeID(cf::kTimeZoneClass); }

CFTimeZoneRef CFTimeZoneCreateWithTimeIntervalFromGMT(CFAllocatorRef, CFTimeInterval interval) {
  const double seconds = std::round(interval);
  if (!(std::fabs(seconds) < static_cast<double>(cf::kSecondsPerDay))) return nullptr;
  return cf::createFixedTimeZone(static_cast<std::int32_t>(seconds));
}

CFStringRef CFTimeZoneGetName(CFTimeZoneRef timeZone) { return timeZone == nullptr ? nullptr : timeZone->name; }

CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef timeZone, CFAbsoluteTime at) {
  return cf::offsetAt(timeZone, cf::wholeSecondsSince1970(at));
}

Boolean CFTimeZoneIsDaylightSavingTime(CFTimeZoneRef timeZone, CFAbsoluteTime at) {
  return timeZone != nullptr && timeZone->zone->segmentAt(cf::wholeSecondsSince1970(at)).isDaylightSaving;
}

CFStringRef CFTimeZoneCopyAbbreviation(CFTimeZoneRef timeZone, CFAbsoluteTime at) {
  if (timeZone == nullptr) return nullptr;
  return cf::createText(std::string(timeZone->zone->segmentAt(cf::wholeSecondsSince1970(at)).abbreviation));
}
