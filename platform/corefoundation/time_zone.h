// time_zone.h: the rules of one time zone: when its offset from GMT changes, and to what.
//
// All times are whole seconds since 1970-01-01 GMT, offsets seconds east of GMT.
#pragma once

#include <CoreFoundation/CFTimeZone.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/corefoundation/time_zone_posix.h"

namespace cf {

class Zone {
 public:
  static Zone fixed(std::int32_t offset, std::string abbreviation);
  static Zone following(PosixZone rules);
  // From the bytes of a TZif file (RFC 8536, versions 1 to 4). Nothing when they are malformed or the file counts leap
  // seconds, which absolute times do not.
  static std::optional<Zone> fromTZif(std::span<const std::uint8_t> file);

  // The stretch that a moment lies in.
  ZoneSegment segmentAt(std::int64_t time) const noexcept;
  // The first moment at which the zone's clocks show a local time (given as if it were GMT); for a time that they
  // skip, the moment reckoned with the offset before the change.
  std::int64_t momentOfLocalTime(std::int64_t local) const noexcept;

  bool operator==(const Zone&) const = default;

 private:
  friend class TZifReader;

  struct LocalType {
    std::int32_t offset;
    bool isDaylightSaving;
    std::uint8_t abbreviationIndex;
    bool operator==(const LocalType&) const = default;
  };

  Zone() = default;
  ZoneSegment segmentOf(const LocalType& type, std::int64_t begin, std::int64_t end) const noexcept;

  std::vector<std::int64_t> changes_;         // ascending
  std::vector<std::uint8_t> changeTypes_;     // what begins at each
  std::vector<LocalType> types_;              // the first holds before the first change
  std::string abbreviations_;                 // NUL behind each
  std::optional<PosixZone> rulesAfterwards_;  // from the last change on
};

// The rules of a zone object; null stands for GMT and gives null.
const Zone* zoneOf(CFTimeZoneRef timeZone) noexcept;

// Seconds east of GMT; 0 for null.
std::int32_t offsetAt(CFTimeZoneRef timeZone, std::int64_t time) noexcept;
// As Zone::momentOfLocalTime.
std::int64_t momentOfLocalTime(CFTimeZoneRef timeZone, std::int64_t local) noexcept;

}  // namespace cf
