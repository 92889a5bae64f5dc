// percent_escapes.cpp: text with %XX in the place of characters, and back.
#include <CoreFoundation/CFURL.h>

#include <cstring>
#include <string>
#include <string_view>

#include "platform/corefoundation/string_encoding.h"
#include "platform/corefoundation/string_utf8.h"

using namespace cf;

namespace {

// The characters of RFC 2396 that may stand in a URL as they are: letters, digits, marks and reserved characters. The
// percent sign is not among them, because it only ever begins an escape.
bool isLegal(char32_t point) {
  if (point >= 0x80 || point == 0) return false;
  const char it = static_cast<char>(point);
  const bool letter = (it >= 'a' && it <= 'z') || (it >= 'A' && it <= 'Z');
  return letter || (it >= '0' && it <= '9') || std::strchr("-_.!~*'();/?:@&=+$,", it) != nullptr;
}

bool contains(CFStringRef set, char32_t point) {
  if (set == nullptr) return false;
  char bytes[4];
  const std::string_view wanted(bytes, encodePoint(point, bytes));
  return utf8View(set).find(wanted) != std::string_view::npos;
}

void appendEscape(std::string& text, std::uint8_t byte) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  text.push_back('%');
  text.push_back(kDigits[byte >> 4]);
  text.push_back(kDigits[byte & 15]);
}

int hexDigit(char it) {
  if (it >= '0' && it <= '9') return it - '0';
  if (it >= 'a' && it <= 'f') return it - 'a' + 10;
  if (it >= 'A' && it <= 'F') return it - 'A' + 10;
  return -1;
}

// The bytes of the escapes that follow each other at `at`, which moves behind them; nothing for a malformed one.
std::optional<std::string> takeEscapes(std::string_view text, std::size_t& at) {
  std::string bytes;
  for (; at < text.size() && text[at] == '%'; at += 3) {
    const int high = at + 2 < text.size() ? hexDigit(text[at + 1]) : -1;
    const int low = at + 2 < text.size() ? hexDigit(text[at + 2]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<char>(high << 4 | low));
  }
  return bytes;
}

// Appends the characters of a run of escapes; those of `leaveEscaped` as the escapes they were.
bool appendUnescaped(std::string& text, std::string_view escapes, const std::string& bytes, const Encoding& encoding,
                     CFStringRef leaveEscaped) {
  const auto* const source = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const std::optional<std::string> decoded = decode(encoding, source, bytes.size(), false);
  if (!decoded) return false;
  std::size_t used = 0;
  for (const char* at = decoded->data(); at < decoded->data() + decoded->size();) {
    const char32_t point = nextPoint(at);
    std::uint8_t encoded[kMaximumPointSize];
    const std::size_t count = encodePointIn(encoding, point, encoded);
    if (contains(leaveEscaped, point)) {
      text.append(escapes.substr(used * 3, count * 3));
    } else {
      appendPoint(text, point);
    }
    used += count;
  }
  return true;
}

}  // namespace

CFStringRef CFURLCreateStringByAddingPercentEscapes(CFAllocatorRef allocator, CFStringRef text,
                                                    CFStringRef leaveUnescaped, CFStringRef alsoEscape,
                                                    CFStringEncoding encoding) {
  const std::optional<Encoding> found = findEncoding(encoding);
  if (text == nullptr || !found) return nullptr;
  std::string escaped;
  bool changed = false;
  const std::string_view source = utf8View(text);
  for (const char* at = source.data(); at < source.data() + source.size();) {
    const char32_t point = nextPoint(at);
    const bool escapes = !isLegal(point) || contains(alsoEscape, point);
    if (!escapes || contains(leaveUnescaped, point)) {
      appendPoint(escaped, point);
      continue;
    }
    std::uint8_t bytes[kMaximumPointSize];
    const std::size_t count = encodePointIn(*found, point, bytes);
    if (count == 0) return nullptr;
    for (std::size_t i = 0; i < count; ++i) appendEscape(escaped, bytes[i]);
    changed = true;
  }
  return changed ? createTrusted(escaped) : CFStringCreateCopy(allocator, text);
}

CFStringRef CFURLCreateStringByReplacingPercentEscapes(CFAllocatorRef allocator, CFStringRef text,
                                                       CFStringRef leaveEscaped) {
  return CFURLCreateStringByReplacingPercentEscapesUsingEncoding(allocator, text, leaveEscaped, kCFStringEncodingUTF8);
}

CFStringRef CFURLCreateStringByReplacingPercentEscapesUsingEncoding(CFAllocatorRef allocator, CFStringRef text,
                                                                    CFStringRef leaveEscaped,
                                                                    CFStringEncoding encoding) {
  const std::optional<Encoding> found = findEncoding(encoding);
  if (text == nullptr || !found) return nullptr;
  const std::string_view source = utf8View(text);
  if (leaveEscaped == nullptr || source.find('%') == std::string_view::npos) return CFStringCreateCopy(allocator, text);
  std::string plain;
  std::size_t at = 0;
  while (at < source.size()) {
    const std::size_t percent = std::min(source.find('%', at), source.size());
    plain.append(source.substr(at, percent - at));
    at = percent;
    const std::optional<std::string> bytes = takeEscapes(source, at);
    if (!bytes) return nullptr;
    if (!appendUnescaped(plain, source.substr(percent, at - percent), *bytes, *found, leaveEscaped)) return nullptr;
  }
  return createTrusted(plain);
}
