// Character data: texts, references, CDATA sections.
#include "platform/corefoundation/xml_property_list_scanner.h"

#include "platform/corefoundation/xml_property_list_characters.h"

#include <bit>
#include <cstring>

namespace cf {
namespace {

// Eight bytes at a time: the top bit of each byte that may be special (also tab and newline, which are not); exact for
// the first such byte.
std::uint64_t specialBytes(const char* at) {
  constexpr std::uint64_t kOnes = 0x0101010101010101, kTops = 0x8080808080808080;
  std::uint64_t bytes;
  std::memcpy(&bytes, at, sizeof bytes);
  const auto equalTo = [bytes](std::uint64_t byte) {
    const std::uint64_t zero = bytes ^ kOnes * byte;
    return (zero - kOnes) & ~zero;
  };
  const std::uint64_t control = (bytes - kOnes * 0x20) & ~bytes;
  return (control | equalTo('<') | equalTo('&') | equalTo(']') | bytes) & kTops;
}

const char* skipPlain(const char* at, const char* end) {
  while (end - at >= 8) {
    const std::uint64_t special = specialBytes(at);
    if (special == 0) {
      at += 8;
      continue;
    }
    if constexpr (std::endian::native == std::endian::little) at += std::countr_zero(special) / 8;
    if (kXMLByteKinds[static_cast<unsigned char>(*at)] != kPlain) return at;
    ++at;
  }
  while (at != end && kXMLByteKinds[static_cast<unsigned char>(*at)] == kPlain) ++at;
  return at;
}

void appendUTF8(std::string& to, std::uint32_t code) {
  if (code < 0x80) {
    to += static_cast<char>(code);
    return;
  }
  if (code < 0x800) {
    to += static_cast<char>(0xC0 | code >> 6);
  } else if (code < 0x10000) {
    to += static_cast<char>(0xE0 | code >> 12);
    to += static_cast<char>(0x80 | (code >> 6 & 0x3F));
  } else {
    to += static_cast<char>(0xF0 | code >> 18);
    to += static_cast<char>(0x80 | (code >> 12 & 0x3F));
    to += static_cast<char>(0x80 | (code >> 6 & 0x3F));
  }
  to += static_cast<char>(0x80 | (code & 0x3F));
}

}  // namespace

// Passes one character that is not plain ASCII, checking that it is one; also takes "<", "&", "]" and carriage return.
const char* XMLScanner::character(const char* at) const {
  const auto byte = [&](std::ptrdiff_t i) -> std::uint32_t {
    return at + i < end_ ? static_cast<unsigned char>(at[i]) : 0u;
  };
  const std::uint32_t first = byte(0);
  if (first < 0x80) {
    if (isXMLCharacter(first)) return at + 1;
    fail(at, "The control character U+" + hexadecimal(first, 4) + ", which XML does not allow,");
  }
  const auto follows = [&](std::ptrdiff_t i) { return (byte(i) & 0xC0) == 0x80; };
  std::uint32_t code = 0;
  std::ptrdiff_t length = 0;
  if (first >= 0xC2 && first < 0xE0 && follows(1)) {
    code = (first & 0x1F) << 6 | (byte(1) & 0x3F);
    length = 2;
  } else if (first >= 0xE0 && first < 0xF0 && follows(1) && follows(2)) {
    code = (first & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
    length = code >= 0x800 && (code < 0xD800 || code > 0xDFFF) ? 3 : 0;
  } else if (first >= 0xF0 && first < 0xF5 && follows(1) && follows(2) && follows(3)) {
    code = (first & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F);
    length = code >= 0x10000 && code <= 0x10FFFF ? 4 : 0;
  }
  if (length == 0) fail(at, "Bytes that are not UTF-8 (0x" + hexadecimal(first, 2) + ")");
  if (!isXMLCharacter(code)) fail(at, "The character U+" + hexadecimal(code, 4) + ", which XML does not allow,");
  return at + length;
}

// Passes characters that stand for themselves; stops at "<", "&", a carriage return and the end.
const char* XMLScanner::run(const char* from, bool& ascii) const {
  for (const char* p = from;;) {
    p = skipPlain(p, end_);
    if (p == end_ || *p == '<' || *p == '&' || *p == '\r') return p;
    if (*p == ']') {
      if (end_ - p > 2 && p[1] == ']' && p[2] == '>') fail(p, "\"]]>\" outside of a CDATA section");
      ++p;
    } else {
      p = character(p);
      ascii = false;
    }
  }
}

XMLText XMLScanner::text(const XMLTag& opened) {
  bool ascii = true;
  const char* const start = at_;
  at_ = run(at_, ascii);
  if (end_ - at_ > 1 && at_[0] == '<' && at_[1] == '/') {  // by far the most texts: used where they lie
    const std::string_view bytes(start, static_cast<std::size_t>(at_ - start));
    endTag(opened);
    return {bytes, ascii};
  }
  return textWithMarkup(opened, start, ascii);
}

XMLText XMLScanner::textWithMarkup(const XMLTag& opened, const char* start, bool ascii) {
  buffer_.assign(start, at_);
  while (at_ != end_) {
    if (*at_ == '&') {
      appendReference();
    } else if (*at_ == '\r') {  // a line end, however it is written, reads as a newline
      at_ += end_ - at_ > 1 && at_[1] == '\n' ? 2 : 1;
      buffer_ += '\n';
    } else if (startsWith("</")) {
      endTag(opened);
      for (const char c : buffer_) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
      return {buffer_, ascii};
    } else if (startsWith("<![CDATA[")) {
      appendSection();
    } else if (!skipCommentOrInstruction()) {
      if (end_ - at_ == 1) failAtEnd(opened.element, opened.start);
      const XMLTag inner = tag();
      fail(inner.start,
           "<" + std::string(nameOf(inner.element)) + "> inside <" + std::string(nameOf(opened.element)) + ">");
    }
    const char* const from = at_;
    at_ = run(at_, ascii);
    buffer_.append(from, at_);
  }
  failAtEnd(opened.element, opened.start);
}

void XMLScanner::appendSection() {
  const char* const start = at_;
  at_ += std::string_view("<![CDATA[").size();
  while (at_ != end_ && !startsWith("]]>")) {
    const char* const from = at_;
    at_ = character(at_);
    if (*from == '\r') {
      if (at_ != end_ && *at_ == '\n') ++at_;
      buffer_ += '\n';
    } else {
      buffer_.append(from, at_);
    }
  }
  if (at_ == end_) fail(start, "The list ends inside the CDATA section that begins");
  at_ += 3;
}

void XMLScanner::appendReference() {
  constexpr std::ptrdiff_t kLongest = 64;  // leading zeros included
  const char* const start = at_++;
  const char* const limit = end_ - at_ < kLongest ? end_ : at_ + kLongest;
  const auto* const semicolon = static_cast<const char*>(std::memchr(at_, ';', static_cast<std::size_t>(limit - at_)));
  if (semicolon == nullptr) fail(start, "\"&\" that begins no reference");
  const std::string_view name(at_, static_cast<std::size_t>(semicolon - at_));
  at_ = semicolon + 1;
  if (name == "lt") return void(buffer_ += '<');
  if (name == "gt") return void(buffer_ += '>');
  if (name == "amp") return void(buffer_ += '&');
  if (name == "quot") return void(buffer_ += '"');
  if (name == "apos") return void(buffer_ += '\'');
  if (!name.starts_with('#')) fail(start, "Unknown entity &" + printable(name) + ";");
  const bool hexadecimalForm = name.starts_with("#x");
  const std::string_view digits = name.substr(hexadecimalForm ? 2 : 1);
  std::uint32_t code = 0;
  for (const char c : digits) {
    const std::uint32_t digit = c >= '0' && c <= '9' ? static_cast<std::uint32_t>(c - '0')
                                : hexadecimalForm && (c | 0x20) >= 'a' && (c | 0x20) <= 'f'
                                    ? static_cast<std::uint32_t>((c | 0x20) - 'a' + 10)
                                    : 99u;
    if (digit == 99) fail(start, "\"&" + printable(name) + ";\" is no character reference");
    code = code > 0x10FFFF ? code : code * (hexadecimalForm ? 16 : 10) + digit;
  }
  if (digits.empty() || !isXMLCharacter(code)) {
    fail(start, "\"&" + printable(name) + ";\" stands for no character that XML allows,");
  }
  appendUTF8(buffer_, code);
}

}  // namespace cf
