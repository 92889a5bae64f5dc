#include "tools/tovanctl/svg_text.h"

#include <fmt/format.h>
#include <plinth/xml_service.h>

#include "tools/support/text.h"
#include "tools/tovanctl/log_text.h"

namespace tovanctl {

using plinth::CSTR;
using plinth::CString;
using plinth::CXMLAttributePair;
using plinth::CXMLService;

std::string svgEscaped(const std::string& given) {
  CXMLService element(CSTR("<t/>"));
  const auto value = plinth::makeShared<CString>(tools::stringOf(harmless(given)).get());
  element.addAttributes({plinth::makeShared<CXMLAttributePair>(CSTR("v"), value)});
  const std::string written = tools::textOf(element.copyToCString()->getStringRef());  // <t v="..."/>
  constexpr std::string_view kBefore = "<t v=\"";
  constexpr std::string_view kAfter = "\"/>";
  return written.substr(kBefore.size(), written.size() - kBefore.size() - kAfter.size());
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
