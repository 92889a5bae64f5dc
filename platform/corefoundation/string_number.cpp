// string_number.cpp: the number that a string begins with.
#include <stdlib.h>

#include <limits>
#include <string>
#include <string_view>

#include "platform/corefoundation/string_locale.h"
#include "platform/corefoundation/string_utf8.h"

using namespace cf;

namespace {

bool isDigit(char it) { return it >= '0' && it <= '9'; }

std::size_t digitsAt(std::string_view text, std::size_t at) {
  std::size_t count = 0;
  while (at + count < text.size() && isDigit(text[at + count])) ++count;
  return count;
}

bool isSign(std::string_view text, std::size_t at) { return at < text.size() && (text[at] == '+' || text[at] == '-'); }

std::string_view withoutLeadingBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\n\v\f\r");
  return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

// The decimal number at the start: [sign] digits [. digits] [e [sign] digits], with a digit before or behind the
// point. Empty when there is none.
std::string_view decimalPrefix(std::string_view text) {
  std::size_t at = isSign(text, 0) ? 1 : 0;
  const std::size_t whole = digitsAt(text, at);
  at += whole;
  std::size_t fraction = 0;
  if (at < text.size() && text[at] == '.') {
    fraction = digitsAt(text, at + 1);
    at += 1 + fraction;
  }
  if (whole + fraction == 0) return {};
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    const std::size_t digits = isSign(text, at + 1) ? at + 2 : at + 1;
    const std::size_t count = digitsAt(text, digits);
    if (count > 0) at = digits + count;
  }
  return text.substr(0, at);
}

}  // namespace

SInt32 CFStringGetIntValue(CFStringRef string) {
  if (string == nullptr) return 0;
  const std::string_view text = withoutLeadingBlanks(utf8View(string));
  const bool negative = text.starts_with('-');
  using Limits = std::numeric_limits<SInt32>;
  const std::int64_t limit = negative ? -std::int64_t{Limits::min()} : std::int64_t{Limits::max()};
  std::int64_t value = 0;
  for (std::size_t at = isSign(text, 0) ? 1 : 0; at < text.size() && isDigit(text[at]); ++at) {
    value = value * 10 + (text[at] - '0');
    if (value >= limit) {
      value = limit;
      break;
    }
  }
  return static_cast<SInt32>(negative ? -value : value);
}

double CFStringGetDoubleValue(CFStringRef string) {
  if (string == nullptr) return 0;
  const std::string number(decimalPrefix(withoutLeadingBlanks(utf8View(string))));
  return number.empty() ? 0.0 : strtod_l(number.c_str(), nullptr, plainLocale());
}
