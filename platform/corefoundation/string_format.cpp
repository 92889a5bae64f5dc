#include "platform/corefoundation/string_format.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <utility>

#include "platform/corefoundation/string_format_arguments.h"
#include "platform/corefoundation/string_locale.h"
#include "platform/corefoundation/string_mutable.h"
#include "platform/corefoundation/string_utf8.h"

namespace cf {
namespace {

using Size = FormatSpec::Size;
using Source = FormatSpec::Source;

bool hasFlag(const FormatSpec& spec, char flag) { return std::strchr(spec.flags, flag) != nullptr; }

// Width and precision as they come out; a precision of -1 is none.
struct Layout {
  bool left;
  int width;
  int precision;
};

Layout layoutOf(const FormatSpec& spec, FormatArguments& arguments) {
  Layout layout{hasFlag(spec, '-'), 0, -1};
  if (spec.width.source != Source::none) {
    const auto width = static_cast<int>(arguments.get(spec.width, ArgumentKind::integer).integer);
    // A negative width is a flag and a width.
    layout.left = layout.left || width < 0;
    layout.width = width == INT_MIN ? INT_MAX : width < 0 ? -width : width;
  }
  if (spec.precision.source != Source::none) {
    const auto precision = static_cast<int>(arguments.get(spec.precision, ArgumentKind::integer).integer);
    layout.precision = precision < 0 ? -1 : precision;
  }
  return layout;
}

// Appends what snprintf makes of a real number or a pointer.
template <class Number>
void appendNumber(std::string& text, const FormatSpec& spec, const Layout& layout, const char* size, Number value) {
  // The flags, a minus that came with the width, "*.*", a size and the conversion.
  std::string format = "%";
  format.append(spec.flags).append(layout.left ? "-" : "").append("*.*").append(size).push_back(spec.conversion);
  char buffer[128];
  const int count = std::snprintf(buffer, sizeof buffer, format.c_str(), layout.width, layout.precision, value);
  if (count < 0) return;  // longer than INT_MAX
  if (static_cast<std::size_t>(count) < sizeof buffer) {
    text.append(buffer, static_cast<std::size_t>(count));
    return;
  }
  const std::size_t start = text.size();
  text.resize(start + static_cast<std::size_t>(count) + 1);
  std::snprintf(text.data() + start, static_cast<std::size_t>(count) + 1, format.c_str(), layout.width,
                layout.precision, value);
  text.pop_back();
}

// Appends an integer: blanks or zeros up to the width, what comes before the digits, zeros up to the precision, the
// digits. By hand, because integers are most of what is ever formatted.
void appendDigits(std::string& text, const FormatSpec& spec, const Layout& layout, std::string_view before,
                  std::uintmax_t value, unsigned base) {
  const char* const digits = spec.conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
  char buffer[3 * sizeof value];
  char* const end = buffer + sizeof buffer;
  char* first = end;
  // Zero has a digit unless a precision of none is asked for.
  if (value == 0 && layout.precision != 0) *--first = '0';
  for (; value != 0; value /= base) *--first = digits[value % base];
  const std::string_view number(first, static_cast<std::size_t>(end - first));
  const auto wanted = static_cast<std::size_t>(std::max(layout.precision, 0));
  std::size_t zeros = wanted > number.size() ? wanted - number.size() : 0;
  if (base == 8 && hasFlag(spec, '#') && zeros == 0 && !number.starts_with('0')) zeros = 1;
  const std::size_t used = before.size() + zeros + number.size();
  const auto width = static_cast<std::size_t>(layout.width);
  std::size_t blanks = width > used ? width - used : 0;
  if (hasFlag(spec, '0') && !layout.left && layout.precision < 0) zeros += std::exchange(blanks, 0u);
  if (!layout.left) text.append(blanks, ' ');
  text.append(before).append(zeros, '0').append(number);
  if (layout.left) text.append(blanks, ' ');
}

void appendSigned(std::string& text, const FormatSpec& spec, const Layout& layout, std::intmax_t value) {
  const char* const sign = value < 0 ? "-" : hasFlag(spec, '+') ? "+" : hasFlag(spec, ' ') ? " " : "";
  const auto magnitude = static_cast<std::uintmax_t>(value);
  appendDigits(text, spec, layout, sign, value < 0 ? 0 - magnitude : magnitude, 10);
}

void appendUnsigned(std::string& text, const FormatSpec& spec, const Layout& layout, std::uintmax_t value) {
  const bool isHexadecimal = spec.conversion == 'x' || spec.conversion == 'X';
  const bool isOctal = spec.conversion == 'o' || spec.conversion == 'O';
  const char* const prefix = spec.conversion == 'X' ? "0X" : "0x";
  const bool hasPrefix = isHexadecimal && hasFlag(spec, '#') && value != 0;
  appendDigits(text, spec, layout, hasPrefix ? prefix : "", value, isHexadecimal ? 16 : isOctal ? 8 : 10);
}

std::intmax_t asSigned(Size size, long long value) {
  if (size == Size::hh) return static_cast<signed char>(value);
  if (size == Size::h) return static_cast<short>(value);
  return value;
}

std::uintmax_t asUnsigned(Size size, long long value) {
  if (size == Size::hh) return static_cast<unsigned char>(value);
  if (size == Size::h) return static_cast<unsigned short>(value);
  if (integerKind(size) == ArgumentKind::integer) return static_cast<unsigned int>(value);
  if (integerKind(size) == ArgumentKind::longInteger) return static_cast<unsigned long>(value);
  return static_cast<unsigned long long>(value);
}

// Appends text that counts `width` units in its field.
void appendPadded(std::string& text, const Layout& layout, std::string_view appended, std::size_t count) {
  const auto width = static_cast<std::size_t>(layout.width);
  const std::size_t blanks = width > count ? width - count : 0;
  if (!layout.left) text.append(blanks, ' ');
  appendText(text, appended);
  if (layout.left) text.append(blanks, ' ');
}

void appendCounted(std::string& text, const Layout& layout, std::string_view appended) {
  appendPadded(text, layout, appended, layout.width == 0 ? 0 : static_cast<std::size_t>(measure(appended).length));
}

// Bytes as UTF-8, U+FFFD in place of each byte that is none.
std::string repaired(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    const std::size_t count = std::min(sequenceLength(bytes[i]), bytes.size() - i);
    const bool valid = examineUTF8(bytes.data() + i, count).valid;
    if (valid) {
      text.append(bytes, i, count);
    } else {
      appendPoint(text, 0xFFFD);
    }
    i += valid ? count : 1;
  }
  return text;
}

// How many bytes at the end begin a character that a precision cut off.
std::size_t cutOff(std::string_view bytes) {
  for (std::size_t back = 1; back <= 3 && back <= bytes.size(); ++back) {
    const char lead = bytes[bytes.size() - back];
    if ((static_cast<unsigned char>(lead) & 0xC0) == 0x80) continue;
    return static_cast<unsigned char>(lead) >= 0xC2 && sequenceLength(lead) > back ? back : 0;
  }
  return 0;
}

void appendCString(std::string& text, const Layout& layout, const char* string) {
  if (string == nullptr) string = "(null)";
  const bool limited = layout.precision >= 0;
  std::string_view bytes(string,
                         limited ? ::strnlen(string, static_cast<std::size_t>(layout.precision)) : std::strlen(string));
  if (limited && bytes.size() == static_cast<std::size_t>(layout.precision)) bytes.remove_suffix(cutOff(bytes));
  if (examineUTF8(bytes.data(), bytes.size()).valid) return appendPadded(text, layout, bytes, bytes.size());
  appendPadded(text, layout, repaired(bytes), bytes.size());
}

// Zero-terminated UTF-16, or the wide characters of C.
template <class Unit>
void appendWide(std::string& text, const Layout& layout, const Unit* units) {
  if (units == nullptr) return appendCString(text, layout, nullptr);
  std::string converted;
  for (int i = 0; (layout.precision < 0 || i < layout.precision) && units[i] != 0; ++i) {
    const auto point = static_cast<char32_t>(units[i]);
    appendPoint(converted, point > 0x10FFFF ? 0xFFFD : point);
  }
  appendCounted(text, layout, converted);
}

void appendObject(std::string& text, const Layout& layout, CFTypeRef object) {
  Owned<CFStringRef> description;
  if (object == nullptr) {
    description.reset(createString("(null)", 6, true));
  } else if (isString(object)) {
    description = Owned<CFStringRef>::retaining(static_cast<CFStringRef>(object));
  } else {
    description.reset(CFCopyDescription(object));
  }
  if (!description) return;
  const std::string_view whole = utf8View(description.get());
  if (layout.precision < 0) return appendCounted(text, layout, whole);
  std::string part;
  appendRange(part, description.get(), clip(CFRangeMake(0, layout.precision), description.get()->length));
  appendCounted(text, layout, part);
}

void appendCharacter(std::string& text, const FormatSpec& spec, const Layout& layout, long long value) {
  char32_t point = static_cast<unsigned char>(value);
  if (spec.conversion == 'C') point = static_cast<UniChar>(value);
  if (spec.conversion == 'c' && spec.size == Size::l) point = static_cast<char32_t>(value);
  if (point > 0x10FFFF) point = 0xFFFD;
  char bytes[4];
  appendCounted(text, layout, {bytes, encodePoint(point, bytes)});
}

void appendConversion(std::string& text, const FormatSpec& spec, FormatArguments& arguments) {
  const Layout layout = layoutOf(spec, arguments);
  if (spec.conversion == '%') return text.push_back('%');
  const Argument value = arguments.get(spec.value, argumentKind(spec));
  switch (spec.conversion) {
    case '@':
      return appendObject(text, layout, value.pointer);
    case 'c':
    case 'C':
      return appendCharacter(text, spec, layout, value.integer);
    case 's':
      if (spec.size == Size::l) return appendWide(text, layout, static_cast<const wchar_t*>(value.pointer));
      return appendCString(text, layout, static_cast<const char*>(value.pointer));
    case 'S':
      return appendWide(text, layout, static_cast<const UniChar*>(value.pointer));
    case 'n':
      return;
    case 'p':
      return appendNumber(text, spec, layout, "", value.pointer);
    case 'd':
    case 'D':
    case 'i':
      return appendSigned(text, spec, layout, asSigned(spec.size, value.integer));
    case 'u':
    case 'U':
    case 'x':
    case 'X':
    case 'o':
    case 'O':
      return appendUnsigned(text, spec, layout, asUnsigned(spec.size, value.integer));
    default:
      if (spec.size == Size::longDouble) return appendNumber(text, spec, layout, "L", value.real);
      return appendNumber(text, spec, layout, "", static_cast<double>(value.real));
  }
}

}  // namespace

void appendFormat(std::string& text, std::string_view format, va_list list) {
  const PlainLocale plain;
  FormatArguments arguments(format, list);
  FormatSpec spec;
  std::size_t at = 0;
  while (at < format.size()) {
    const std::size_t percent = std::min(format.find('%', at), format.size());
    appendText(text, format.substr(at, percent - at));
    at = percent;
    if (at == format.size()) break;
    if (std::size_t behind = at + 1; parseFormatSpec(format, behind, spec)) {
      appendConversion(text, spec, arguments);
      at = behind;
    } else {
      appendText(text, format.substr(at));
      break;
    }
  }
}

}  // namespace cf

using namespace cf;

CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef, CFDictionaryRef, CFStringRef format,
                                                 va_list arguments) {
  if (format == nullptr) return nullptr;
  std::string text;
  appendFormat(text, utf8View(format), arguments);
  return createTrusted(text);
}

CFStringRef CFStringCreateWithFormat(CFAllocatorRef allocator, CFDictionaryRef formatOptions, CFStringRef format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const CFStringRef string = CFStringCreateWithFormatAndArguments(allocator, formatOptions, format, arguments);
  va_end(arguments);
  return string;
}

void CFStringAppendFormatAndArguments(CFMutableStringRef string, CFDictionaryRef, CFStringRef format,
                                      va_list arguments) {
  if (string == nullptr || !isMutableString(string) || format == nullptr) return;
  std::string text;
  appendFormat(text, utf8View(format), arguments);
  append(string, text);
}

void CFStringAppendFormat(CFMutableStringRef string, CFDictionaryRef formatOptions, CFStringRef format, ...) {
  va_list arguments;
  va_start(arguments, format);
  CFStringAppendFormatAndArguments(string, formatOptions, format, arguments);
  va_end(arguments);
}
