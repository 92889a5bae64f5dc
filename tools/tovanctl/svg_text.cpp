#include "tools/tovanctl/svg_text.h"

#include <fmt/format.h>

#include "tools/tovanctl/log_text.h"

namespace tovanctl {

std::string svgEscaped(const std::string& given) {
  std::string out;
  for (const char letter : harmless(given)) {
    switch (letter) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += letter;
    }
  }
  return out;
}

std::string svgShortened(const std::string& given, std::size_t most) {
  std::size_t width = 0;
  std::size_t fits = 0;  // with room for the ellipsis
  for (std::size_t at = 0; at < given.size(); ++at) {
    const auto byte = static_cast<unsigned char>(given[at]);
    if ((byte & 0xC0U) == 0x80U) continue;  // in the middle of a character
    if (width < most) fits = at;
    width += byte >= 0xE0 ? 2 : 1;
  }
  return width <= most ? given : given.substr(0, fits) + "…";
}

std::string svgTextAt(double x, double y, std::string_view style, const std::string& says) {
  return fmt::format("<text x=\"{:g}\" y=\"{:g}\" class=\"{}\">{}</text>\n", x, y, style, svgEscaped(says));
}

}  // namespace tovanctl
