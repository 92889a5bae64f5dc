// What the rules of a zone say about a moment and about a local time.
#include <algorithm>

#include "platform/corefoundation/time_zone.h"

namespace cf {

Zone Zone::fixed(std::int32_t offset, std::string abbreviation) {
  Zone zone;
  zone.types_.push_back({offset, false, 0});
  zone.abbreviations_ = std::move(abbreviation) + '\0';
  return zone;
}

Zone Zone::following(PosixZone rules) {
  Zone zone;
  zone.rulesAfterwards_ = std::move(rules);
  return zone;
}

ZoneSegment Zone::segmentOf(const LocalType& type, std::int64_t begin, std::int64_t end) const noexcept {
  return {begin, end, type.offset, type.isDaylightSaving, abbreviations_.c_str() + type.abbreviationIndex};
}

ZoneSegment Zone::segmentAt(std::int64_t time) const noexcept {
  const auto next = std::ranges::upper_bound(changes_, time);
  if (next == changes_.end() && rulesAfterwards_) {
    ZoneSegment segment = rulesAfterwards_->segmentAt(time);
    if (!changes_.empty()) segment.begin = std::max(segment.begin, changes_.back());
    return segment;
  }
  const std::int64_t end = next == changes_.end() ? kEndOfTime : *next;
  if (next == changes_.begin()) return segmentOf(types_.front(), kBeginningOfTime, end);
  const std::size_t last = static_cast<std::size_t>(next - changes_.begin()) - 1;
  return segmentOf(types_[changeTypes_[last]], changes_[last], end);
}

// No offset reaches 26 hours, so that the search begins in a stretch that the local time cannot lie before.
std::int64_t Zone::momentOfLocalTime(std::int64_t local) const noexcept {
  constexpr std::int64_t greatestOffset = std::int64_t{26} * 3600;
  ZoneSegment segment = segmentAt(local - greatestOffset);
  while (local - segment.offset >= segment.end) {
    const ZoneSegment next = segmentAt(segment.end);
    if (local - next.offset < next.begin) break;  // skipped by the clocks
    segment = next;
  }
  return local - segment.offset;
}

}  // namespace cf
