// xml_property_list_characters.h: which bytes and characters mean what in XML, for its reader and its writer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace cf {

// What a byte of character data means to the scan.
enum XMLByteKind : std::uint8_t { kPlain, kSpecial };

constexpr std::array<XMLByteKind, 256> makeXMLByteKinds() {
  std::array<XMLByteKind, 256> kinds{};
  for (std::size_t byte = 0; byte < kinds.size(); ++byte) {
    const bool control = byte < 0x20 && byte != '\t' && byte != '\n';
    const bool markup = byte == '<' || byte == '&' || byte == ']';
    kinds[byte] = control || markup || byte >= 0x80 ? kSpecial : kPlain;
  }
  return kinds;
}

inline constexpr std::array<XMLByteKind, 256> kXMLByteKinds = makeXMLByteKinds();

constexpr bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

constexpr bool isNameByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ':' ||
         c == '-' || c == '.' || static_cast<unsigned char>(c) >= 0x80;
}

constexpr bool isNameStart(char c) { return isNameByte(c) && !(c >= '0' && c <= '9') && c != '-' && c != '.'; }

inline bool equalsIgnoringCase(std::string_view text, std::string_view lowerCase) {
  if (text.size() != lowerCase.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] | 0x20) : text[i];
    if (c != lowerCase[i]) return false;
  }
  return true;
}

constexpr bool isXMLCharacter(std::uint32_t code) {
  if (code < 0x20) return code == '\t' || code == '\n' || code == '\r';
  return code < 0xD800 || (code >= 0xE000 && code < 0xFFFE) || (code >= 0x10000 && code <= 0x10FFFF);
}

inline std::string hexadecimal(std::uint32_t value, int digits) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) text += kDigits[value >> shift & 15];
  return text;
}

}  // namespace cf
