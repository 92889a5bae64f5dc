// xml_text.h: writing characters into XML 1.0 text, and what counts as a name and as a header.
#pragma once

#include <string>
#include <string_view>

namespace plinth {

// Where characters go: between quotes a tab and a line break need an escape too, or a reader turns them into blanks.
enum class XMLPlace { text, attribute };

// Appends UTF-8 text so that a reader gets the same characters back. What XML cannot carry becomes U+FFFD.
void appendXMLEscaped(std::string& out, std::string_view utf8, XMLPlace place);

// Whether the text is a name that elements and attributes may have.
bool isXMLName(std::string_view utf8);

// Whether the text begins with an XML declaration (a byte order mark may stand in front).
bool hasXMLHeader(std::string_view utf8) noexcept;

}  // namespace plinth
