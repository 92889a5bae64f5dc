#include "platform/corefoundation/notification_center_text.h"

#include "platform/corefoundation/string_utf8.h"

#include <cstring>
#include <optional>

namespace cf {
namespace {

constexpr char kSubstitute = '\x1a';
constexpr int kDigits = 6;

constexpr bool isNoncharacter(char32_t point) {
  return (point >= 0xFDD0 && point <= 0xFDEF) || (point & 0xFFFE) == 0xFFFE;
}

constexpr bool isEscaped(char32_t point) {
  return point == 0 || point == static_cast<char32_t>(kSubstitute) || isSurrogate(point) || isNoncharacter(point);
}

// Most strings are told to be plain by their ASCII bit and two looks for bytes.
bool isPlain(CFStringRef string, std::string_view text) {
  if (isASCII(string)) {
    return std::memchr(text.data(), 0, text.size()) == nullptr &&
           std::memchr(text.data(), kSubstitute, text.size()) == nullptr;
  }
  for (const char *at = text.data(), *const end = at + text.size(); at < end;) {
    if (isEscaped(nextPoint(at))) return false;
  }
  return true;
}

void appendEscape(std::string& text, char32_t point) {
  constexpr char kHexadecimal[] = "0123456789abcdef";
  text += kSubstitute;
  for (int shift = 4 * (kDigits - 1); shift >= 0; shift -= 4) text += kHexadecimal[(point >> shift) & 15];
}

std::optional<char32_t> escapedPoint(const char* digits) {
  char32_t point = 0;
  for (int i = 0; i < kDigits; ++i) {
    const char digit = digits[i];
    if (digit >= '0' && digit <= '9') {
      point = point << 4 | static_cast<char32_t>(digit - '0');
    } else if (digit >= 'a' && digit <= 'f') {
      point = point << 4 | static_cast<char32_t>(digit - 'a' + 10);
    } else {
      return {};
    }
  }
  if (point > 0x10FFFF || !isEscaped(point)) return {};
  return point;
}

}  // namespace

BusText::BusText(CFStringRef string) : plain_(utf8View(string)) {
  if (isPlain(string, plain_)) return;
  const char* at = plain_.data();
  const char* const end = at + plain_.size();
  while (at < end) {
    const char* const begin = at;
    const char32_t point = nextPoint(at);
    if (isEscaped(point)) {
      appendEscape(escaped_, point);
    } else {
      escaped_.append(begin, at);
    }
  }
}

Owned<CFStringRef> stringFromBusText(const char* text) {
  const char* escape = std::strchr(text, kSubstitute);
  if (escape == nullptr) return Owned<CFStringRef>(createString(std::string_view(text)));
  std::string bytes;
  while (escape != nullptr) {
    bytes.append(text, escape);
    const std::optional<char32_t> point = escapedPoint(escape + 1);
    if (!point) return {};
    appendPoint(bytes, *point);
    text = escape + 1 + kDigits;
    escape = std::strchr(text, kSubstitute);
  }
  appendText(bytes, text);
  return Owned<CFStringRef>(createTrusted(bytes));
}

}  // namespace cf
