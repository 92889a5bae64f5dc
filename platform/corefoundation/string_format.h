// string_format.h: printf with %@. What the conversions mean stands at CFStringCreateWithFormat.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

namespace cf {

// One conversion as it stands in a format.
struct FormatSpec {
  // A width, a precision or a value: nothing, a number, or the argument at a position (0: the next one).
  enum class Source : unsigned char { none, number, argument };
  struct Field {
    Source source = Source::none;
    int number = 0;
  };
  enum class Size : unsigned char { none, hh, h, l, ll, j, z, t, longDouble };

  char flags[8] = "";  // of "-+ #0'", each at most once
  Field width;
  Field precision;
  Field value{Source::argument, 0};
  Size size = Size::none;
  char conversion = '\0';
};

// Reads the conversion that begins behind the percent sign at `at` and moves behind it. false, with nothing moved,
// when there is none that can be read.
bool parseFormatSpec(std::string_view format, std::size_t& at, FormatSpec& spec);

// Appends the formatted text.
void appendFormat(std::string& text, std::string_view format, va_list arguments);

}  // namespace cf
