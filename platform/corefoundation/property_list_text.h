// property_list_text.h: the text forms of numbers and dates in XML property lists, both ways. No locale plays a part.
#pragma once

#include <CoreFoundation/CFDate.h>

#include "platform/corefoundation/number.h"

#include <cstdint>
#include <string_view>

namespace cf {

enum class TextResult : std::uint8_t { kGood, kMalformed, kOutOfRange };

// Decimal, or hexadecimal behind "0x" or "0X", with an optional sign; INT64_MIN to UINT64_MAX. Blanks around the value
// must be gone already, here and below.
TextResult parseInteger(std::string_view text, NumberValue& value);
// Decimal with optional fraction and exponent, or "nan", "inf" and "infinity" in any case, with an optional sign. A
// value too large for a double, or too small to be told from zero, is out of range.
TextResult parseReal(std::string_view text, double& value);
// Exactly "YYYY-MM-DDThh:mm:ssZ", in the years 1 to 9999. A date that does not exist is out of range.
TextResult parseDate(std::string_view text, CFAbsoluteTime& value);

// The writers store at most kLongestValueText bytes at `to` and give the place behind the last one.
constexpr int kLongestValueText = 32;
char* writeInteger(char* to, const NumberValue& value);  // kSigned or kUnsigned
// The fewest digits that read back as the same double.
char* writeReal(char* to, double value);
// Whole seconds, rounded down. Null, with nothing stored, outside of the years 1 to 9999.
char* writeDate(char* to, CFAbsoluteTime value);

}  // namespace cf
