#include "platform/corefoundation/base64.h"

#include <array>

namespace cf {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kBlank = 64;
constexpr std::uint8_t kPadding = 65;
constexpr std::uint8_t kWrong = 66;

constexpr std::array<std::uint8_t, 256> makeValues() {
  std::array<std::uint8_t, 256> values{};
  values.fill(kWrong);
  for (std::uint8_t i = 0; i < 64; ++i) values[static_cast<unsigned char>(kAlphabet[i])] = i;
  for (const char blank : {' ', '\t', '\n', '\r'}) values[static_cast<unsigned char>(blank)] = kBlank;
  values['='] = kPadding;
  return values;
}

constexpr std::array<std::uint8_t, 256> kValues = makeValues();

}  // namespace

Base64Decoded decodeBase64(std::string_view text, std::uint8_t* to) noexcept {
  const std::uint8_t* const start = to;
  const auto stored = [&] { return static_cast<std::size_t>(to - start); };
  std::uint32_t bits = 0;
  int have = 0;     // characters of the current group of four
  int padding = 0;  // how many of them are padding
  const char* const end = text.data() + text.size();
  for (const char* at = text.data(); at != end; ++at) {
    const std::uint8_t value = kValues[static_cast<unsigned char>(*at)];
    if (value == kBlank) continue;
    if (value == kWrong || (padding > 0 && (value != kPadding || have == 0))) return {stored(), at};
    if (value == kPadding) {
      if (have < 2) return {stored(), at};
      ++padding;
    }
    bits = bits << 6 | (value == kPadding ? 0u : value);
    if (++have < 4) continue;
    *to++ = static_cast<std::uint8_t>(bits >> 16);
    if (padding < 2) *to++ = static_cast<std::uint8_t>(bits >> 8);
    if (padding < 1) *to++ = static_cast<std::uint8_t>(bits);
    have = 0;
    bits = 0;
  }
  return {stored(), have == 0 ? nullptr : end};
}

char* encodeBase64(const std::uint8_t* bytes, std::size_t count, char* to) noexcept {
  for (; count >= 3; bytes += 3, count -= 3) {
    const std::uint32_t bits = std::uint32_t{bytes[0]} << 16 | std::uint32_t{bytes[1]} << 8 | bytes[2];
    *to++ = kAlphabet[bits >> 18];
    *to++ = kAlphabet[bits >> 12 & 63];
    *to++ = kAlphabet[bits >> 6 & 63];
    *to++ = kAlphabet[bits & 63];
  }
  if (count == 0) return to;
  const std::uint32_t bits = std::uint32_t{bytes[0]} << 16 | (count == 2 ? std::uint32_t{bytes[1]} << 8 : 0);
  *to++ = kAlphabet[bits >> 18];
  *to++ = kAlphabet[bits >> 12 & 63];
  *to++ = count == 2 ? kAlphabet[bits >> 6 & 63] : '=';
  *to++ = '=';
  return to;
}

}  // namespace cf
