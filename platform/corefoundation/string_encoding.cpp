#include "platform/corefoundation/string_encoding.h"

#include <algorithm>
#include <bit>

#include "platform/corefoundation/string_utf8.h"

namespace cf {
namespace {

constexpr bool kNativeIsBig = std::endian::native == std::endian::big;
constexpr char32_t kByteOrderMark = 0xFEFF;

// Mac OS Roman from 0x80 on, as Unicode's mapping table ROMAN.TXT has it (with the euro sign at 0xDB).
constexpr char16_t kMacRoman[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5,
    0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4,
    0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6,
    0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, 0x221E, 0x00B1, 0x2264, 0x2265,
    0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF,
    0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5,
    0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044,
    0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9,
    0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7};

std::size_t oneByte(char32_t byte, std::uint8_t* out) {
  *out = static_cast<std::uint8_t>(byte);
  return 1;
}

std::size_t encodeMacRoman(char32_t point, std::uint8_t* out) {
  if (point < 0x80) return oneByte(point, out);
  const auto* const found = std::find(std::begin(kMacRoman), std::end(kMacRoman), point);
  if (found == std::end(kMacRoman)) return 0;
  return oneByte(static_cast<char32_t>(0x80 + (found - kMacRoman)), out);
}

// `size` bytes of a number, in the encoding's order.
void store(char32_t value, std::size_t size, bool bigEndian, std::uint8_t* out) {
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t shift = 8 * (bigEndian ? size - 1 - i : i);
    out[i] = static_cast<std::uint8_t>(value >> shift);
  }
}

char32_t load(const std::uint8_t* bytes, std::size_t size, bool bigEndian) {
  char32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = value << 8 | bytes[bigEndian ? i : size - 1 - i];
  return value;
}

std::size_t encodeUTF16(char32_t point, bool bigEndian, std::uint8_t* out) {
  if (point < 0x10000) {
    store(point, 2, bigEndian, out);
    return 2;
  }
  store(highSurrogate(point), 2, bigEndian, out);
  store(lowSurrogate(point), 2, bigEndian, out + 2);
  return 4;
}

// UTF-8, ASCII, ISO Latin-1 and Mac OS Roman.
std::optional<std::string> decodeBytes(Encoding::Form form, std::string_view bytes) {
  if (form == Encoding::Form::utf8) {
    if (!examineUTF8(bytes.data(), bytes.size()).valid) return std::nullopt;
    return std::string(bytes);
  }
  std::string text;
  text.reserve(bytes.size());
  for (const char it : bytes) {
    const auto byte = static_cast<unsigned char>(it);
    if (byte < 0x80) {
      text.push_back(it);
    } else if (form == Encoding::Form::ascii) {
      return std::nullopt;
    } else {
      appendPoint(text, form == Encoding::Form::latin1 ? byte : char32_t{kMacRoman[byte - 0x80]});
    }
  }
  return text;
}

// UTF-16 and UTF-32.
std::optional<std::string> decodeUnits(const Encoding& encoding, const std::uint8_t* bytes, std::size_t byteCount,
                                       bool external) {
  const auto size = static_cast<std::size_t>(encoding.unitSize());
  if (byteCount % size != 0) return std::nullopt;
  bool bigEndian = encoding.bigEndian;
  std::size_t i = 0;
  if (external && byteCount >= size) {
    const bool swapped = encoding.marked && load(bytes, size, !bigEndian) == kByteOrderMark;
    if (swapped) bigEndian = !bigEndian;
    if (load(bytes, size, bigEndian) == kByteOrderMark) i = size;
  }
  std::string text;
  text.reserve(byteCount / size);
  for (; i < byteCount; i += size) {
    const char32_t unit = load(bytes + i, size, bigEndian);
    if (size == 4 && (unit > 0x10FFFF || isSurrogate(unit))) return std::nullopt;
    appendPoint(text, unit);
  }
  return text;
}

}  // namespace

std::optional<Encoding> findEncoding(CFStringEncoding name) noexcept {
  using Form = Encoding::Form;
  switch (name) {
    case kCFStringEncodingMacRoman:
      return Encoding{Form::macRoman, false, false};
    case kCFStringEncodingISOLatin1:
      return Encoding{Form::latin1, false, false};
    case kCFStringEncodingASCII:
      return Encoding{Form::ascii, false, false};
    case kCFStringEncodingUTF8:
      return Encoding{Form::utf8, false, false};
    case kCFStringEncodingUTF16:
      return Encoding{Form::utf16, kNativeIsBig, true};
    case kCFStringEncodingUTF16BE:
      return Encoding{Form::utf16, true, false};
    case kCFStringEncodingUTF16LE:
      return Encoding{Form::utf16, false, false};
    case kCFStringEncodingUTF32:
      return Encoding{Form::utf32, kNativeIsBig, true};
    case kCFStringEncodingUTF32BE:
      return Encoding{Form::utf32, true, false};
    case kCFStringEncodingUTF32LE:
      return Encoding{Form::utf32, false, false};
    default:
      return std::nullopt;
  }
}

std::size_t encodePointIn(const Encoding& encoding, char32_t point, std::uint8_t* out) noexcept {
  if (isSurrogate(point) && !encoding.holdsSurrogates()) return 0;
  switch (encoding.form) {
    case Encoding::Form::utf8:
      return encodePoint(point, reinterpret_cast<char*>(out));
    case Encoding::Form::ascii:
      return point < 0x80 ? oneByte(point, out) : 0;
    case Encoding::Form::latin1:
      return point < 0x100 ? oneByte(point, out) : 0;
    case Encoding::Form::macRoman:
      return encodeMacRoman(point, out);
    case Encoding::Form::utf16:
      return encodeUTF16(point, encoding.bigEndian, out);
    case Encoding::Form::utf32:
      store(point, 4, encoding.bigEndian, out);
      return 4;
  }
  return 0;
}

std::optional<std::string> decode(const Encoding& encoding, const std::uint8_t* bytes, std::size_t byteCount,
                                  bool external) {
  if (encoding.unitSize() != 1) return decodeUnits(encoding, bytes, byteCount, external);
  std::string_view text(reinterpret_cast<const char*>(bytes), byteCount);
  if (external && encoding.form == Encoding::Form::utf8 && text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  return decodeBytes(encoding.form, text);
}

}  // namespace cf
