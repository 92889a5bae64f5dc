#include "logging/message_text.h"

#include <plinth/xml_service.h>
#include <tovan/logger.h>

#include "foundation/xml_text.h"
#include "logging/utf8.h"

#include <array>
#include <cstddef>
#include <utility>

namespace tovan {
namespace {

// The rule of CFURLCreateStringByAddingPercentEscapes, which a test compares with it: too many records are escaped to
// make CoreFoundation strings of them first.
constexpr std::string_view kLeftUnescaped = " !#$%'()*+,-./?@[]\\^_{}|~`";
constexpr std::string_view kAlwaysEscaped = "<>\"&";
constexpr std::string_view kAllowedInURLs =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.!~*'();/?:@&=+$,";

constexpr std::array<bool, 256> makeKept() {
  std::array<bool, 256> kept{};
  for (const char byte : kAllowedInURLs) kept[static_cast<unsigned char>(byte)] = true;
  for (const char byte : kAlwaysEscaped) kept[static_cast<unsigned char>(byte)] = false;
  for (const char byte : kLeftUnescaped) kept[static_cast<unsigned char>(byte)] = true;
  return kept;
}
constexpr std::array<bool, 256> kKept = makeKept();

bool isXMLBlank(char byte) { return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r'; }

// Behind a double quote only another attribute can follow, and it needs a blank in front.
AttributeFit fitBehindQuote(std::string_view rest) noexcept {
  const bool mayGoOn = !rest.empty() && isXMLBlank(rest.front()) && rest.find('=') != std::string_view::npos;
  return mayGoOn ? AttributeFit::unclear : AttributeFit::fails;
}

bool isElement(std::string_view start, std::string_view text) {
  std::string element;
  element.reserve(start.size() + text.size() + 3);
  element += start;
  element += text;
  element += "\"/>";
  return plinth::CXMLService::isWellFormed(element);
}

std::string escaped(std::string_view text) {
  std::optional<std::string> result = percentEscaped(text);
  return result ? std::move(*result) : attributeCopy(text);
}

}  // namespace

AttributeFit attributeFit(std::string_view text) noexcept {
  std::size_t at = 0;
  while ((at = findSpecialByte(text, at)) < text.size()) {
    const std::string_view rest = text.substr(at);
    std::size_t length = 0;
    switch (rest.front()) {
      case '"':
        return fitBehindQuote(rest.substr(1));
      case '&':
        length = xmlReferenceLength(rest);
        break;
      case '\t':
      case '\n':
      case '\r':
        length = 1;
        break;
      default:  // "<" and control characters, which begin no sequence, among them
        length = isXMLNoncharacter(rest) ? 0 : utf8SequenceLength(rest);
    }
    if (length == 0) return AttributeFit::fails;
    at += length;
  }
  return AttributeFit::fits;
}

bool fitsAttribute(std::string_view text) {
  const AttributeFit fit = attributeFit(text);
  return fit == AttributeFit::fits || (fit == AttributeFit::unclear && isElement("<log msg=\"", text));
}

std::optional<std::string> percentEscaped(std::string_view text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string result(3 * text.size(), '\0');
  char* place = result.data();
  for (std::size_t at = 0; at < text.size();) {
    if (kKept[static_cast<unsigned char>(text[at])]) {
      *place++ = text[at++];
      continue;
    }
    const bool isASCII = static_cast<signed char>(text[at]) >= 0;
    const std::size_t length = isASCII ? 1 : utf8SequenceLength(text.substr(at));
    if (length == 0) return std::nullopt;
    for (const char byte : text.substr(at, length)) {
      *place++ = '%';
      *place++ = kDigits[static_cast<unsigned char>(byte) >> 4];
      *place++ = kDigits[static_cast<unsigned char>(byte) & 15];
    }
    at += length;
  }
  result.resize(static_cast<std::size_t>(place - result.data()));
  return result;
}

std::string attributeCopy(std::string_view text) {
  std::string characters;
  for (std::size_t at = 0; at < text.size();) {
    const bool isASCII = static_cast<signed char>(text[at]) >= 0;
    const std::size_t length = isASCII ? 1 : utf8SequenceLength(text.substr(at));
    if (length != 0) {
      characters += text.substr(at, length);
    } else {
      characters += "\xEF\xBF\xBD";
    }
    at += length != 0 ? length : 1;
  }
  std::string copy;
  plinth::appendXMLEscaped(copy, characters, plinth::XMLPlace::attribute);
  return copy;
}

std::string_view recordText(std::string_view message, std::string& storage) {
  const AttributeFit fit = attributeFit(message);
  if (fit == AttributeFit::fits) return message;
  // A quote in the message may begin an attribute: never one that the record has already.
  const bool isKept =
      fit == AttributeFit::unclear && isElement("<log tms=\"\" tmt=\"\" pid=\"\" lvl=\"\" msg=\"", message);
  if (isKept) return message;
  storage = escaped(message);
  return storage;
}

std::string CTovanLogger::escapedString(std::string_view text) {
  return fitsAttribute(text) ? std::string(text) : escaped(text);
}

plinth::CStringRef CTovanLogger::escapedString(const plinth::CStringRef& text) {
  if (text.isNull() || text->isEmpty()) return text;
  return plinth::CSTR(escapedString(text->str()));
}

}  // namespace tovan
