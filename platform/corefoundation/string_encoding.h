// string_encoding.h: turning text into the bytes of an encoding and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/corefoundation/string.h"

namespace cf {

struct Encoding {
  enum class Form : std::uint8_t { utf8, ascii, latin1, macRoman, utf16, utf32 };
  Form form;
  bool bigEndian;  // of utf16 and utf32
  bool marked;     // the external form begins with a byte order mark

  // Bytes of the smallest piece.
  int unitSize() const { return form == Form::utf16 ? 2 : form == Form::utf32 ? 4 : 1; }
  // Whether text that is all ASCII has the same bytes in it.
  bool extendsASCII() const { return unitSize() == 1; }
  // UTF-16 is the one encoding with room for a lone surrogate.
  bool holdsSurrogates() const { return form == Form::utf16; }
};

// Nothing for an encoding that is not available.
std::optional<Encoding> findEncoding(CFStringEncoding name) noexcept;

// The most bytes that one code point takes, a byte order mark included.
constexpr std::size_t kMaximumPointSize = 4;
// Writes a code point and answers how many bytes that took; 0 when the encoding lacks it.
std::size_t encodePointIn(const Encoding& encoding, char32_t point, std::uint8_t* out) noexcept;

// The text of bytes; nothing when they are not in the encoding. `external`: a byte order mark at the start is no
// character, and decides the order where the encoding leaves it open.
std::optional<std::string> decode(const Encoding& encoding, const std::uint8_t* bytes, std::size_t byteCount,
                                  bool external);

}  // namespace cf
