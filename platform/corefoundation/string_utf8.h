// string_utf8.h: the text inside strings: UTF-8 in which a lone surrogate may stand as a code point of its own.
//
// Everything here trusts its bytes, except examineUTF8 (string.h), which is how bytes come to be trusted.
#pragma once

#include "platform/corefoundation/string.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace cf {

// ---- Code points and surrogates

constexpr bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
constexpr bool isSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }
constexpr char32_t joinSurrogates(char32_t high, char32_t low) {
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}
constexpr char32_t highSurrogate(char32_t point) { return 0xD800 + ((point - 0x10000) >> 10); }
constexpr char32_t lowSurrogate(char32_t point) { return 0xDC00 + ((point - 0x10000) & 0x3FF); }
constexpr int unitsOf(char32_t point) { return point >= 0x10000 ? 2 : 1; }

// The bytes of the sequence that begins with this one.
constexpr std::size_t sequenceLength(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

// The code point at `at`, which moves behind it.
char32_t nextPoint(const char*& at) noexcept;
// Writes at most 4 bytes and answers how many.
std::size_t encodePoint(char32_t point, char* out) noexcept;
// These three join a low surrogate that comes behind a high one.
void appendPoint(std::string& text, char32_t point);
void appendText(std::string& text, std::string_view appended);
void appendUnits(std::string& text, const UniChar* units, std::size_t count);

// ---- A whole text at once

struct TextFacts {
  bool ascii;
  bool wellFormed;  // no lone surrogate
  CFIndex length;   // in UTF-16 code units
};
TextFacts measure(std::string_view text) noexcept;
// Whether a text's first or last code point is a surrogate, so that joining it with another may make a pair.
bool beginsWithLowSurrogate(std::string_view text) noexcept;
bool endsWithHighSurrogate(std::string_view text) noexcept;

// A new string from trusted bytes. The caller owns it.
CFStringRef createTrusted(std::string_view text);

// ---- UTF-16 indexes

// Where an index lies: at a byte or, when `insidePair`, between the halves of the pair that begins at that byte.
struct Place {
  std::size_t byte;
  CFIndex index;
  bool insidePair;
};
// `index` is between 0 and the string's length.
Place placeOfIndex(CFStringRef string, CFIndex index) noexcept;
// `byte` is where a code point begins, or the end.
CFIndex indexOfByte(CFStringRef string, std::size_t byte) noexcept;

// The part of a range that lies inside 0..length.
CFRange clip(CFRange range, CFIndex length) noexcept;
// Appends a part of a string; `range` is clipped already. A cut through a pair leaves the half.
void appendRange(std::string& text, CFStringRef string, CFRange range);

// Reads a range of a string code point by code point; a pair that the range cuts through yields its half.
class PointReader {
 public:
  PointReader(CFStringRef string, CFRange clippedRange) noexcept;
  bool done() const noexcept { return index_ >= end_; }
  char32_t next() noexcept;
  CFIndex index() const noexcept { return index_; }

 private:
  const char* at_;
  CFIndex index_;
  CFIndex end_;
  bool insidePair_;
};

// The same in UTF-16 code units.
class UnitReader {
 public:
  UnitReader(CFStringRef string, CFRange clippedRange) noexcept : points_(string, clippedRange) {}
  bool done() const noexcept { return pending_ == 0 && points_.done(); }
  char16_t next() noexcept;

 private:
  PointReader points_;
  char16_t pending_ = 0;
};

std::u16string unitsOfRange(CFStringRef string, CFRange clippedRange);

}  // namespace cf
