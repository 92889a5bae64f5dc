#include "logging/utf8.h"

#include <charconv>
#include <cstdint>

namespace tovan {
namespace {

constexpr unsigned char isSpecial(char byte) noexcept {
  const auto value = static_cast<unsigned char>(byte);
  return static_cast<unsigned char>((value < 0x20) | (value >= 0x80) | (value == '<') | (value == '&') |
                                    (value == '"'));
}

// Many bytes at once; compilers make vector instructions of it.
constexpr std::size_t kBlock = 32;
bool hasSpecial(const char* block) noexcept {
  unsigned char found = 0;
  for (std::size_t i = 0; i < kBlock; ++i) found = static_cast<unsigned char>(found | isSpecial(block[i]));
  return found != 0;
}

bool isCharacter(std::uint32_t number) noexcept {
  if (number < 0x20) return number == '\t' || number == '\n' || number == '\r';
  return number <= 0x10FFFF && (number < 0xD800 || number > 0xDFFF) && number != 0xFFFE && number != 0xFFFF;
}

}  // namespace

std::size_t utf8SequenceLength(std::string_view bytes) noexcept {
  const auto at = [bytes](std::size_t index) -> unsigned {
    return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0;
  };
  const auto isTail = [&at](std::size_t index) { return (at(index) & 0xC0) == 0x80; };
  const unsigned lead = at(0);
  const unsigned second = at(1);
  if (!isTail(1)) return 0;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) {
    const bool isShortest = lead != 0xE0 || second >= 0xA0;
    const bool isSurrogate = lead == 0xED && second >= 0xA0;
    return isShortest && !isSurrogate && isTail(2) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    const bool isInRange = (lead != 0xF0 || second >= 0x90) && (lead != 0xF4 || second <= 0x8F);
    return isInRange && isTail(2) && isTail(3) ? 4 : 0;
  }
  return 0;
}

std::size_t findSpecialByte(std::string_view text, std::size_t from) noexcept {
  while (from + kBlock <= text.size() && !hasSpecial(text.data() + from)) from += kBlock;
  while (from < text.size() && isSpecial(text[from]) == 0) ++from;
  return from;
}

std::size_t xmlReferenceLength(std::string_view bytes) noexcept {
  for (const std::string_view entity : {"&lt;", "&gt;", "&amp;", "&quot;", "&apos;"}) {
    if (bytes.starts_with(entity)) return entity.size();
  }
  if (!bytes.starts_with("&#")) return 0;
  const bool isHexadecimal = bytes.substr(2).starts_with('x');
  const std::size_t start = isHexadecimal ? 3 : 2;
  const std::size_t end = bytes.find(';', start);
  if (end == std::string_view::npos) return 0;
  std::string_view digits = bytes.substr(start, end - start);
  std::uint32_t number = 0;
  const auto [stop, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, isHexadecimal ? 16 : 10);
  const bool isNumber = error == std::errc() && stop == digits.data() + digits.size();
  return isNumber && isCharacter(number) ? end + 1 : 0;
}

}  // namespace tovan
