// base64.h: the standard alphabet of RFC 4648 with padding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cf {

// The most bytes that `length` characters decode to.
constexpr std::size_t base64DecodedBound(std::size_t length) { return (length + 3) / 4 * 3; }

struct Base64Decoded {
  std::size_t count;  // of bytes stored
  const char* wrong;  // the first character that cannot stand there, or the end of a text that is cut off; null: none
};

// Decodes, taking blanks, tabs and line ends anywhere; `to` has base64DecodedBound bytes of room. Padding is required,
// and only blanks may follow it. Spare bits of the last character are ignored.
Base64Decoded decodeBase64(std::string_view text, std::uint8_t* to) noexcept;

// Stores (count + 2) / 3 * 4 characters and gives the place behind them.
char* encodeBase64(const std::uint8_t* bytes, std::size_t count, char* to) noexcept;

}  // namespace cf
