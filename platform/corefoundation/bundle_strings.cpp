#include "platform/corefoundation/bundle_strings.h"

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFPropertyList.h>
#include <CoreFoundation/CFString.h>

#include "platform/corefoundation/string.h"

#include <cstdint>
#include <optional>

namespace cf {
namespace {

bool isSpace(char character) noexcept { return character == ' ' || (character >= '\t' && character <= '\r'); }

bool isBare(char character) noexcept {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || std::string_view("_$./:-").find(character) != std::string_view::npos;
}

int hexadecimalDigit(char digit) noexcept {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

void appendUTF8(std::string& text, std::uint32_t scalar) {
  const auto put = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (scalar < 0x80) {
    put(scalar);
  } else if (scalar < 0x800) {
    put(0xC0 | scalar >> 6);
    put(0x80 | (scalar & 0x3F));
  } else if (scalar < 0x10000) {
    put(0xE0 | scalar >> 12);
    put(0x80 | (scalar >> 6 & 0x3F));
    put(0x80 | (scalar & 0x3F));
  } else {
    put(0xF0 | scalar >> 18);
    put(0x80 | (scalar >> 12 & 0x3F));
    put(0x80 | (scalar >> 6 & 0x3F));
    put(0x80 | (scalar & 0x3F));
  }
}

// One pass over the text. A function that fails leaves the rest of the text undefined: the whole table is given up.
class TableReader {
 public:
  explicit TableReader(std::string_view text) noexcept : rest_(text) {}

  Owned<CFDictionaryRef> read() {
    const Owned<CFMutableDictionaryRef> table(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!skipSpace()) return {};
    const bool isBraced = accept('{');
    for (;;) {
      if (!skipSpace()) return {};
      if (isBraced && accept('}')) break;
      if (rest_.empty() && !isBraced) break;
      if (!readEntry(table.get())) return {};
    }
    if (!skipSpace() || !rest_.empty()) return {};
    return Owned<CFDictionaryRef>::retaining(table.get());
  }

 private:
  bool readEntry(CFMutableDictionaryRef table) {
    const auto key = readString();
    if (!key || !skipSpace()) return false;
    auto value = key;
    if (accept('=')) {
      if (!skipSpace()) return false;
      value = readString();
      if (!value || !skipSpace()) return false;
    }
    if (!accept(';')) return false;
    const Owned<CFStringRef> keyString(createString(*key));
    const Owned<CFStringRef> valueString(createString(*value));
    if (!keyString || !valueString) return false;
    CFDictionarySetValue(table, keyString.get(), valueString.get());
    return true;
  }

  bool accept(char character) noexcept {
    if (!rest_.starts_with(character)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  // False when a comment has no end.
  bool skipSpace() noexcept {
    for (;;) {
      while (!rest_.empty() && isSpace(rest_.front())) rest_.remove_prefix(1);
      std::string_view end;
      if (rest_.starts_with("//")) {
        end = "\n";
      } else if (rest_.starts_with("/*")) {
        end = "*/";
      } else {
        return true;
      }
      const std::size_t at = rest_.find(end, 2);
      if (at == std::string_view::npos) {
        if (end == "*/") return false;
        rest_ = {};
      } else {
        rest_.remove_prefix(at + end.size());
      }
    }
  }

  std::optional<std::string> readString() {
    if (accept('"')) return readQuoted('"');
    if (accept('\'')) return readQuoted('\'');
    std::size_t length = 0;
    while (length < rest_.size() && isBare(rest_[length])) ++length;
    if (length == 0) return std::nullopt;
    std::string text(rest_.substr(0, length));
    rest_.remove_prefix(length);
    return text;
  }

  std::optional<std::string> readQuoted(char quote) {
    std::string text;
    while (!rest_.empty()) {
      const char character = rest_.front();
      rest_.remove_prefix(1);
      if (character == quote) return text;
      if (character != '\\') {
        text += character;
      } else if (!readEscape(text)) {
        return std::nullopt;
      }
    }
    return std::nullopt;
  }

  bool readEscape(std::string& text) {
    if (rest_.empty()) return false;
    const char character = rest_.front();
    if (character >= '0' && character <= '7') return readOctal(text);
    rest_.remove_prefix(1);
    if (character == 'U' || character == 'u') return readCodeUnits(text);
    constexpr std::string_view kLetters = "ntrabfv";
    constexpr std::string_view kMeanings = "\n\t\r\a\b\f\v";
    const std::size_t index = kLetters.find(character);
    text += index == std::string_view::npos ? character : kMeanings[index];
    return true;
  }

  bool readOctal(std::string& text) {
    std::uint32_t value = 0;
    for (int digits = 0; digits < 3 && !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '7'; ++digits) {
      value = value * 8 + static_cast<std::uint32_t>(rest_.front() - '0');
      rest_.remove_prefix(1);
    }
    appendUTF8(text, value);
    return true;
  }

  std::optional<std::uint32_t> readFourDigits() {
    if (rest_.size() < 4) return std::nullopt;
    std::uint32_t value = 0;
    for (const char digit : rest_.substr(0, 4)) {
      const int number = hexadecimalDigit(digit);
      if (number < 0) return std::nullopt;
      value = value * 16 + static_cast<std::uint32_t>(number);
    }
    rest_.remove_prefix(4);
    return value;
  }

  // One code unit, or the two escapes of a surrogate pair. Half a pair is malformed.
  bool readCodeUnits(std::string& text) {
    const auto first = readFourDigits();
    if (!first || (*first >= 0xDC00 && *first < 0xE000)) return false;
    if (*first < 0xD800 || *first >= 0xE000) {
      appendUTF8(text, *first);
      return true;
    }
    if (!rest_.starts_with("\\U") && !rest_.starts_with("\\u")) return false;
    rest_.remove_prefix(2);
    const auto second = readFourDigits();
    if (!second || *second < 0xDC00 || *second >= 0xE000) return false;
    appendUTF8(text, 0x10000 + ((*first - 0xD800) << 10) + (*second - 0xDC00));
    return true;
  }

  std::string_view rest_;
};

const UInt8* asBytes(const std::string& bytes) { return reinterpret_cast<const UInt8*>(bytes.data()); }

bool isPropertyList(std::string_view bytes) {
  if (bytes.starts_with("bplist")) return true;
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  while (!bytes.empty() && isSpace(bytes.front())) bytes.remove_prefix(1);
  return bytes.starts_with('<');
}

Owned<CFDictionaryRef> readPropertyList(const std::string& bytes) {
  const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, asBytes(bytes), static_cast<CFIndex>(bytes.size())));
  Owned<CFPropertyListRef> list(
      CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
  if (!list || CFGetTypeID(list.get()) != CFDictionaryGetTypeID()) return {};
  return Owned<CFDictionaryRef>(static_cast<CFDictionaryRef>(list.take()));
}

}  // namespace

Owned<CFDictionaryRef> parseStringTableText(std::string_view text) { return TableReader(text).read(); }

Owned<CFDictionaryRef> parseStringTable(const std::string& bytes) {
  if (isPropertyList(bytes)) return readPropertyList(bytes);
  const bool isUTF16 = bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE");
  const Owned<CFStringRef> text(
      CFStringCreateWithBytes(kCFAllocatorDefault, asBytes(bytes), static_cast<CFIndex>(bytes.size()),
                              isUTF16 ? kCFStringEncodingUTF16 : kCFStringEncodingUTF8, true));
  return text ? parseStringTableText(utf8View(text.get())) : Owned<CFDictionaryRef>();
}

}  // namespace cf
