#include "tools/exports/path_text.h"

#include <array>
#include <cstdint>

namespace exports {
namespace {

bool isOctal(char character) { return character >= '0' && character <= '7'; }

bool isAsciiPlain(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') ||
         std::string_view("_-./:@%+,=").find(character) != std::string_view::npos;
}

// The number of bytes of the character that begins here, 0 when none does.
std::size_t lengthOfCharacter(std::string_view text) {
  const auto byte = [&](std::size_t index) { return static_cast<std::uint8_t>(text[index]); };
  const std::uint8_t first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
  std::uint32_t value = first & (0x7fU >> length);
  for (std::size_t index = 1; index < length; ++index) {
    if ((byte(index) & 0xc0U) != 0x80U) return 0;
    value = (value << 6U) | (byte(index) & 0x3fU);
  }
  constexpr std::array<std::uint32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = value >= 0xd800 && value <= 0xdfff;
  return value < kLeast[length] || value > 0x10ffff || isSurrogate ? 0 : length;
}

}  // namespace

bool isPlainInShell(char character) { return static_cast<std::uint8_t>(character) >= 0x80 || isAsciiPlain(character); }

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = lengthOfCharacter(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string reasonAgainstPath(std::string_view path) {
  if (path.empty() || path.front() != '/') return "it is not an absolute path";
  if (path.find('\0') != std::string_view::npos) return "it holds a NUL character";
  if (!isUtf8(path)) return "it is not UTF-8";
  const std::string plain = withoutIdleSlashes(path);
  if (plain == "/") return "it is the root of all folders, which is never exported";
  const std::string bounded = plain + "/";
  if (bounded.find("/./") != std::string::npos || bounded.find("/../") != std::string::npos) {
    return "its path holds \".\" or \"..\"";
  }
  return "";
}

std::string withoutIdleSlashes(std::string_view path) {
  std::string result;
  for (const char character : path) {
    if (character != '/' || result.empty() || result.back() != '/') result += character;
  }
  if (result.size() > 1 && result.back() == '/') result.pop_back();
  return result;
}

bool liesIn(std::string_view path, std::string_view folder) {
  if (folder == "/" || path == folder) return true;
  return path.size() > folder.size() && path.substr(0, folder.size()) == folder && path[folder.size()] == '/';
}

std::string octalText(std::string_view bytes) {
  std::string text;
  for (const char character : bytes) {
    if (isAsciiPlain(character)) {
      text += character;
      continue;
    }
    const auto byte = static_cast<std::uint8_t>(character);
    text += '\\';
    for (const unsigned shift : {6U, 3U, 0U}) text += static_cast<char>('0' + ((byte >> shift) & 7U));
  }
  return text;
}

std::string bytesOfOctalText(std::string_view text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isEscape = text[at] == '\\' && at + 3 < text.size() && text[at + 1] >= '0' && text[at + 1] <= '3' &&
                          isOctal(text[at + 2]) && isOctal(text[at + 3]);
    if (!isEscape) {
      bytes += text[at];
      continue;
    }
    bytes += static_cast<char>((text[at + 1] - '0') * 64 + (text[at + 2] - '0') * 8 + (text[at + 3] - '0'));
    at += 3;
  }
  return bytes;
}

}  // namespace exports
