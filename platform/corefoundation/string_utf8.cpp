#include "platform/corefoundation/string_utf8.h"

#include <algorithm>
#include <cstring>

namespace cf {
namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080u;

// How many leading bytes are ASCII.
std::size_t asciiPrefix(const char* bytes, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes + i, 8);
    if ((word & kHighBits) != 0) break;
  }
  while (i < count && static_cast<unsigned char>(bytes[i]) < 0x80) ++i;
  return i;
}

unsigned byteAt(const char* at) { return static_cast<unsigned char>(*at); }
bool isContinuation(const char* at) { return (byteAt(at) & 0xC0) == 0x80; }

// The length of the valid sequence at `at`, of which `left` bytes remain; 0 when there is none.
std::size_t validSequence(const char* at, std::size_t left) noexcept {
  const unsigned lead = byteAt(at);
  if (lead < 0xC2 || lead > 0xF4) return 0;
  const std::size_t count = sequenceLength(*at);
  if (count > left) return 0;
  for (std::size_t k = 1; k < count; ++k) {
    if (!isContinuation(at + k)) return 0;
  }
  const unsigned second = byteAt(at + 1);
  const bool outside = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                       (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
  return outside ? 0 : count;
}

bool isSurrogateSequence(const char* at) { return byteAt(at) == 0xED && byteAt(at + 1) >= 0xA0; }

}  // namespace

UTF8Facts examineUTF8(const char* bytes, std::size_t byteCount) noexcept {
  std::size_t i = asciiPrefix(bytes, byteCount);
  UTF8Facts facts{true, i == byteCount, static_cast<CFIndex>(i)};
  while (i < byteCount) {
    if (byteAt(bytes + i) < 0x80) {
      const std::size_t plain = asciiPrefix(bytes + i, byteCount - i);
      facts.utf16Length += static_cast<CFIndex>(plain);
      i += plain;
      continue;
    }
    const std::size_t count = validSequence(bytes + i, byteCount - i);
    if (count == 0) {
      facts.valid = false;
      return facts;
    }
    facts.utf16Length += count == 4 ? 2 : 1;
    i += count;
  }
  return facts;
}

char32_t nextPoint(const char*& at) noexcept {
  const unsigned lead = byteAt(at);
  if (lead < 0x80) {
    ++at;
    return lead;
  }
  const auto tail = [at](int k) { return static_cast<char32_t>(byteAt(at + k) & 0x3F); };
  char32_t point;
  if (lead < 0xE0) {
    point = (lead & 0x1F) << 6 | tail(1);
    at += 2;
  } else if (lead < 0xF0) {
    point = (lead & 0x0F) << 12 | tail(1) << 6 | tail(2);
    at += 3;
  } else {
    point = (lead & 0x07) << 18 | tail(1) << 12 | tail(2) << 6 | tail(3);
    at += 4;
  }
  return point;
}

std::size_t encodePoint(char32_t point, char* out) noexcept {
  const auto tail = [point](int shift) { return static_cast<char>(0x80 | ((point >> shift) & 0x3F)); };
  if (point < 0x80) {
    out[0] = static_cast<char>(point);
    return 1;
  }
  if (point < 0x800) {
    out[0] = static_cast<char>(0xC0 | point >> 6);
    out[1] = tail(0);
    return 2;
  }
  if (point < 0x10000) {
    out[0] = static_cast<char>(0xE0 | point >> 12);
    out[1] = tail(6);
    out[2] = tail(0);
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | point >> 18);
  out[1] = tail(12);
  out[2] = tail(6);
  out[3] = tail(0);
  return 4;
}

void appendPoint(std::string& text, char32_t point) {
  if (isLowSurrogate(point) && endsWithHighSurrogate(text)) {
    const char* high = text.data() + text.size() - 3;
    point = joinSurrogates(nextPoint(high), point);
    text.resize(text.size() - 3);
  }
  char bytes[4];
  text.append(bytes, encodePoint(point, bytes));
}

void appendText(std::string& text, std::string_view appended) {
  if (beginsWithLowSurrogate(appended)) {
    const char* at = appended.data();
    appendPoint(text, nextPoint(at));
    appended.remove_prefix(3);
  }
  text.append(appended);
}

void appendUnits(std::string& text, const UniChar* units, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) appendPoint(text, units[i]);
}

TextFacts measure(std::string_view text) noexcept {
  const std::size_t plain = asciiPrefix(text.data(), text.size());
  TextFacts facts{plain == text.size(), true, static_cast<CFIndex>(plain)};
  for (const char* at = text.data() + plain; at < text.data() + text.size();) {
    const std::size_t count = sequenceLength(*at);
    if (count == 3 && isSurrogateSequence(at)) facts.wellFormed = false;
    facts.length += count == 4 ? 2 : 1;
    at += count;
  }
  return facts;
}

bool beginsWithLowSurrogate(std::string_view text) noexcept {
  return text.size() >= 3 && byteAt(text.data()) == 0xED && byteAt(text.data() + 1) >= 0xB0;
}

bool endsWithHighSurrogate(std::string_view text) noexcept {
  if (text.size() < 3) return false;
  const char* const last = text.data() + text.size() - 3;
  return byteAt(last) == 0xED && byteAt(last + 1) >= 0xA0 && byteAt(last + 1) < 0xB0;
}

// ---- Indexes of strings that are not all ASCII. The last place found is kept in the string, index and byte in one
// word, so that readers in several threads only ever see a whole place.
namespace {

struct Crumb {
  std::size_t byte;
  CFIndex index;
};

Crumb loadCrumb(CFStringRef string) noexcept {
  const std::uint64_t word = __atomic_load_n(&string->breadcrumb, __ATOMIC_RELAXED);
  return {static_cast<std::size_t>(word & 0xFFFFFFFFu), static_cast<CFIndex>(word >> 32)};
}

void storeCrumb(CFStringRef string, Crumb crumb) noexcept {
  if (crumb.byte > 0xFFFFFFFFu) return;
  const std::uint64_t word = static_cast<std::uint64_t>(crumb.index) << 32 | crumb.byte;
  __atomic_store_n(&const_cast<CFStringStorage*>(string)->breadcrumb, word, __ATOMIC_RELAXED);
}

// Walks to the last code point that does not lie beyond the target, from the nearest known place. `distance` answers
// how far ahead of a place the target lies, negative when it lies behind.
template <class Distance>
Crumb walk(CFStringRef string, Distance distance) noexcept {
  const Crumb end{static_cast<std::size_t>(string->byteCount), string->length};
  Crumb here = loadCrumb(string);
  if (distance(here) < 0 && distance(Crumb{0, 0}) < -distance(here)) here = {0, 0};
  if (distance(here) > -distance(end)) here = end;
  const char* const bytes = string->bytes;
  while (distance(here) < 0) {
    do --here.byte;
    while (isContinuation(bytes + here.byte));
    here.index -= sequenceLength(bytes[here.byte]) == 4 ? 2 : 1;
  }
  while (here.byte < end.byte) {
    const std::size_t count = sequenceLength(bytes[here.byte]);
    const Crumb next{here.byte + count, here.index + (count == 4 ? 2 : 1)};
    if (distance(next) < 0) break;
    here = next;
  }
  storeCrumb(string, here);
  return here;
}

}  // namespace

Place placeOfIndex(CFStringRef string, CFIndex index) noexcept {
  if (isASCII(string)) return {static_cast<std::size_t>(index), index, false};
  const Crumb found = walk(string, [index](const Crumb& here) { return index - here.index; });
  return {found.byte, found.index, found.index != index};
}

CFIndex indexOfByte(CFStringRef string, std::size_t byte) noexcept {
  if (isASCII(string)) return static_cast<CFIndex>(byte);
  const auto target = static_cast<CFIndex>(byte);
  return walk(string, [target](const Crumb& here) { return target - static_cast<CFIndex>(here.byte); }).index;
}

CFRange clip(CFRange range, CFIndex length) noexcept {
  const CFIndex location = std::clamp<CFIndex>(range.location, 0, length);
  // A negative start shortens the range by what lies before the string.
  CFIndex end = location;
  if (range.length > 0) {
    CFIndex sum;
    if (__builtin_add_overflow(range.location, range.length, &sum)) sum = length;
    end = std::clamp<CFIndex>(sum, location, length);
  }
  return CFRangeMake(location, end - location);
}

void appendRange(std::string& text, CFStringRef string, CFRange range) {
  if (range.length == 0) return;
  Place from = placeOfIndex(string, range.location);
  const Place to = placeOfIndex(string, range.location + range.length);
  if (from.insidePair) {
    const char* at = string->bytes + from.byte;
    appendPoint(text, lowSurrogate(nextPoint(at)));
    from.byte += 4;
  }
  if (from.byte < to.byte) appendText(text, utf8View(string).substr(from.byte, to.byte - from.byte));
  if (to.insidePair) {
    const char* at = string->bytes + to.byte;
    appendPoint(text, highSurrogate(nextPoint(at)));
  }
}

// ---- Readers

PointReader::PointReader(CFStringRef string, CFRange clippedRange) noexcept
    : at_(string->bytes), index_(clippedRange.location), end_(clippedRange.location + clippedRange.length) {
  const Place place = placeOfIndex(string, clippedRange.location);
  at_ += place.byte;
  insidePair_ = place.insidePair;
}

char32_t PointReader::next() noexcept {
  char32_t point = nextPoint(at_);
  if (insidePair_) {
    insidePair_ = false;
    point = lowSurrogate(point);
  } else if (point >= 0x10000 && index_ + 1 == end_) {
    point = highSurrogate(point);
  }
  index_ += unitsOf(point);
  return point;
}

char16_t UnitReader::next() noexcept {
  if (pending_ != 0) return std::exchange(pending_, u'\0');
  const char32_t point = points_.next();
  if (point < 0x10000) return static_cast<char16_t>(point);
  pending_ = static_cast<char16_t>(lowSurrogate(point));
  return static_cast<char16_t>(highSurrogate(point));
}

std::u16string unitsOfRange(CFStringRef string, CFRange clippedRange) {
  std::u16string units;
  units.reserve(static_cast<std::size_t>(clippedRange.length));
  for (UnitReader reader(string, clippedRange); !reader.done();) units.push_back(reader.next());
  return units;
}

}  // namespace cf
