// utf8.h: finding the characters of XML in bytes.
#pragma once

#include <cstddef>
#include <string_view>

namespace tovan {

// The length of the well-formed UTF-8 sequence outside ASCII that the bytes begin with; 0 when there is none.
std::size_t utf8SequenceLength(std::string_view bytes) noexcept;

// U+FFFE and U+FFFF, which XML forbids.
inline bool isXMLNoncharacter(std::string_view bytes) noexcept {
  return bytes.starts_with("\xEF\xBF\xBE") || bytes.starts_with("\xEF\xBF\xBF");
}

// Where the first byte at or behind `from` stands that is not plain text in an attribute: a control character, one of
// < & ", or one outside ASCII. The size when there is none.
std::size_t findSpecialByte(std::string_view text, std::size_t from) noexcept;

// The length of the reference that the bytes begin with (a predefined entity, or the number of a character that XML
// allows); 0 when there is none.
std::size_t xmlReferenceLength(std::string_view bytes) noexcept;

}  // namespace tovan
