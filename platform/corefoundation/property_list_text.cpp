#include "platform/corefoundation/property_list_text.h"

#include "platform/corefoundation/date.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <system_error>

namespace cf {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Takes a leading sign away; true for a minus.
bool takeSign(std::string_view& text) {
  if (text.empty() || (text[0] != '-' && text[0] != '+')) return false;
  const bool negative = text[0] == '-';
  text.remove_prefix(1);
  return negative;
}

bool equalsIgnoringCase(std::string_view text, std::string_view lowerCase) {
  if (text.size() != lowerCase.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] | 0x20) : text[i];
    if (c != lowerCase[i]) return false;
  }
  return true;
}

// The number of `count` digits at `at`, or nothing.
std::optional<int> digits(std::string_view text, std::size_t at, std::size_t count) {
  int value = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (!isDigit(text[i])) return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

char* writeDigits(char* to, int value, int count) {
  for (int i = count - 1; i >= 0; --i, value /= 10) to[i] = static_cast<char>('0' + value % 10);
  return to + count;
}

char* writeText(char* to, std::string_view text) {
  std::memcpy(to, text.data(), text.size());
  return to + text.size();
}

}  // namespace

TextResult parseInteger(std::string_view text, NumberValue& value) {
  const bool negative = takeSign(text);
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] | 0x20) == 'x') {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t magnitude = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
  if (problem == std::errc::invalid_argument || end != text.data() + text.size()) return TextResult::kMalformed;
  if (problem == std::errc::result_out_of_range) return TextResult::kOutOfRange;
  constexpr std::uint64_t kSignedMaximum = std::numeric_limits<std::int64_t>::max();
  if (negative ? magnitude > kSignedMaximum + 1 : false) return TextResult::kOutOfRange;
  if (!negative && magnitude > kSignedMaximum) {
    value.form = NumberForm::kUnsigned;
    value.largeUnsigned = magnitude;
  } else {
    value.form = NumberForm::kSigned;
    value.integer = static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
  }
  return TextResult::kGood;
}

TextResult parseReal(std::string_view text, double& value) {
  const bool negative = takeSign(text);
  if (text.empty()) return TextResult::kMalformed;
  if (isDigit(text[0]) || text[0] == '.') {
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (problem == std::errc::invalid_argument || end != text.data() + text.size()) return TextResult::kMalformed;
    if (problem == std::errc::result_out_of_range) return TextResult::kOutOfRange;
  } else if (equalsIgnoringCase(text, "nan")) {
    value = std::numeric_limits<double>::quiet_NaN();
  } else if (equalsIgnoringCase(text, "inf") || equalsIgnoringCase(text, "infinity")) {
    value = std::numeric_limits<double>::infinity();
  } else {
    return TextResult::kMalformed;
  }
  if (negative) value = -value;
  return TextResult::kGood;
}

TextResult parseDate(std::string_view text, CFAbsoluteTime& value) {
  constexpr std::string_view kPattern = "dddd-dd-ddTdd:dd:ddZ";
  if (text.size() != kPattern.size()) return TextResult::kMalformed;
  for (std::size_t i = 0; i < kPattern.size(); ++i) {
    if (kPattern[i] != 'd' && text[i] != kPattern[i]) return TextResult::kMalformed;
  }
  const auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
  const auto hour = digits(text, 11, 2), minute = digits(text, 14, 2), second = digits(text, 17, 2);
  if (!year || !month || !day || !hour || !minute || !second) return TextResult::kMalformed;
  const bool exists = *year >= 1 && *month >= 1 && *month <= 12 && *day >= 1 && *day <= daysInMonth(*year, *month) &&
                      *hour < 24 && *minute < 60 && *second < 60;
  if (!exists) return TextResult::kOutOfRange;
  value = static_cast<double>(secondsSince1970(*year, *month, *day, *hour, *minute, *second) - kEpochOffset);
  return TextResult::kGood;
}

char* writeInteger(char* to, const NumberValue& value) {
  char* const end = to + kLongestValueText;
  return value.form == NumberForm::kUnsigned ? std::to_chars(to, end, value.largeUnsigned).ptr
                                             : std::to_chars(to, end, value.integer).ptr;
}

char* writeReal(char* to, double value) {
  if (std::isnan(value)) return writeText(to, "nan");
  if (std::isinf(value)) return writeText(to, value > 0 ? "+infinity" : "-infinity");
  return std::to_chars(to, to + kLongestValueText, value).ptr;
}

char* writeDate(char* to, CFAbsoluteTime value) {
  // 0001-01-01T00:00:00Z up to the end of 9999.
  constexpr CFAbsoluteTime kFirst = -63113904000.0;
  constexpr CFAbsoluteTime kEnd = 252423993600.0;
  if (!(value >= kFirst && value < kEnd)) return nullptr;
  const std::int64_t seconds = static_cast<std::int64_t>(std::floor(value)) + kEpochOffset;
  const std::int64_t days = floorDivide(seconds, kSecondsPerDay);
  const int secondOfDay = static_cast<int>(seconds - days * kSecondsPerDay);
  const CivilDay date = civilFromDays(days);
  to = writeDigits(to, static_cast<int>(date.year), 4);
  *to++ = '-';
  to = writeDigits(to, date.month, 2);
  *to++ = '-';
  to = writeDigits(to, date.day, 2);
  *to++ = 'T';
  to = writeDigits(to, secondOfDay / 3600, 2);
  *to++ = ':';
  to = writeDigits(to, secondOfDay / 60 % 60, 2);
  *to++ = ':';
  to = writeDigits(to, secondOfDay % 60, 2);
  *to++ = 'Z';
  return to;
}

}  // namespace cf
