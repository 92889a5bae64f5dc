#include "foundation/xml_text.h"

#include "foundation/xml_reader.h"

#include <algorithm>

namespace plinth {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

bool isASCIINameCharacter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '_' || character == ':' || character == '-' ||
         character == '.';
}

// U+FFFE and U+FFFF, the only characters of well-formed UTF-8 outside ASCII that XML forbids.
bool isNoncharacter(std::string_view rest) {
  return rest.starts_with("\xEF\xBF\xBE") || rest.starts_with("\xEF\xBF\xBF");
}

}  // namespace

void appendXMLEscaped(std::string& out, std::string_view utf8, XMLPlace place) {
  const bool inAttribute = place == XMLPlace::attribute;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const char character = utf8[i];
    switch (character) {
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
        out += inAttribute ? "&quot;" : "\"";
        break;
      case '\t':
        out += inAttribute ? "&#9;" : "\t";
        break;
      case '\n':
        out += inAttribute ? "&#10;" : "\n";
        break;
      case '\r':
        out += "&#13;";
        break;
      case '\xEF':
        if (isNoncharacter(utf8.substr(i))) {
          out += kReplacementCharacter;
          i += 2;
        } else {
          out += character;
        }
        break;
      default:
        if (static_cast<unsigned char>(character) < 0x20) {
          out += kReplacementCharacter;
        } else {
          out += character;
        }
    }
  }
}

bool isXMLName(std::string_view utf8) {
  const auto isASCII = [](char character) { return static_cast<signed char>(character) >= 0; };
  if (utf8.empty()) return false;
  const char first = utf8.front();
  if ((first >= '0' && first <= '9') || first == '-' || first == '.') return false;
  const bool isPlain = std::all_of(
      utf8.begin(), utf8.end(), [&](char character) { return !isASCII(character) || isASCIINameCharacter(character); });
  if (!isPlain || std::all_of(utf8.begin(), utf8.end(), isASCII)) return isPlain;
  // Which characters outside ASCII a name may have is the reader's table.
  return !readXML('<' + std::string(utf8) + "/>", nullptr);
}

bool hasXMLHeader(std::string_view utf8) noexcept {
  if (utf8.starts_with("\xEF\xBB\xBF")) utf8.remove_prefix(3);
  constexpr std::string_view kStart = "<?xml";
  if (!utf8.starts_with(kStart) || utf8.size() == kStart.size()) return false;
  const char next = utf8[kStart.size()];
  return next == ' ' || next == '\t' || next == '\r' || next == '\n';
}

}  // namespace plinth
