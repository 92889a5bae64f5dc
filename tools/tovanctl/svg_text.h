// svg_text.h: text in pictures.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tovanctl {

// As character data and attribute values; control characters become "?".
std::string svgEscaped(const std::string& given);
// At most so many characters, the last an ellipsis where there were more. Those of wide scripts count as two.
std::string svgShortened(const std::string& given, std::size_t most);
// A text element of a class of the picture's style sheet.
std::string svgTextAt(double x, double y, std::string_view style, const std::string& says);

}  // namespace tovanctl
