// Tags and places.
#include "platform/corefoundation/xml_property_list_scanner.h"

#include "platform/corefoundation/xml_property_list_characters.h"

#include <CoreFoundation/CFPropertyList.h>

#include <array>
#include <bit>
#include <cstring>

namespace cf {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kMostAttributes = 16;

// Up to eight bytes of a tag as one number, so that a whole name is compared at once.
struct Word {
  std::uint64_t value;
  std::uint64_t mask;
  std::size_t length;

  bool matches(std::uint64_t bytes) const { return (bytes & mask) == value; }
};

constexpr Word makeWord(std::string_view text) {
  std::array<std::uint8_t, 8> value{}, mask{};
  for (std::size_t i = 0; i < text.size(); ++i) {
    value[i] = static_cast<std::uint8_t>(text[i]);
    mask[i] = 0xFF;
  }
  return {std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(mask), text.size()};
}

std::uint64_t load(const char* at) {
  std::uint64_t bytes;
  std::memcpy(&bytes, at, sizeof bytes);
  return bytes;
}

// The tags as writers write them, the frequent ones first.
struct PlainTag {
  Word word;  // what follows the "<"
  XMLElement element;
  bool closing;
  bool empty;
};

constexpr PlainTag kPlainTags[] = {
    {makeWord("key>"), XMLElement::kKey, false, false},
    {makeWord("string>"), XMLElement::kString, false, false},
    {makeWord("integer>"), XMLElement::kInteger, false, false},
    {makeWord("true/>"), XMLElement::kTrue, false, true},
    {makeWord("false/>"), XMLElement::kFalse, false, true},
    {makeWord("dict>"), XMLElement::kDictionary, false, false},
    {makeWord("/dict>"), XMLElement::kDictionary, true, false},
    {makeWord("array>"), XMLElement::kArray, false, false},
    {makeWord("/array>"), XMLElement::kArray, true, false},
    {makeWord("real>"), XMLElement::kReal, false, false},
    {makeWord("date>"), XMLElement::kDate, false, false},
    {makeWord("data>"), XMLElement::kData, false, false},
    {makeWord("dict/>"), XMLElement::kDictionary, false, true},
    {makeWord("array/>"), XMLElement::kArray, false, true},
};

constexpr std::array<std::string_view, 11> kNames = {"plist", "dict",    "array", "key",  "string", "data",
                                                     "date",  "integer", "real",  "true", "false"};

// What follows the "</" of an end tag, by element.
constexpr std::array<Word, 11> kEndWords = {makeWord("plist>"), makeWord("dict>"),    makeWord("array>"),
                                            makeWord("key>"),   makeWord("string>"),  makeWord("data>"),
                                            makeWord("date>"),  makeWord("integer>"), makeWord("real>"),
                                            makeWord("true>"),  makeWord("false>")};

// The element of a name, or -1.
int findElement(std::string_view name) {
  switch (name.size()) {
    case 3:
      return name == "key" ? static_cast<int>(XMLElement::kKey) : -1;
    case 4:
      if (name == "true") return static_cast<int>(XMLElement::kTrue);
      if (name == "dict") return static_cast<int>(XMLElement::kDictionary);
      if (name == "data") return static_cast<int>(XMLElement::kData);
      if (name == "date") return static_cast<int>(XMLElement::kDate);
      return name == "real" ? static_cast<int>(XMLElement::kReal) : -1;
    case 5:
      if (name == "array") return static_cast<int>(XMLElement::kArray);
      if (name == "false") return static_cast<int>(XMLElement::kFalse);
      return name == "plist" ? static_cast<int>(XMLElement::kPropertyList) : -1;
    case 6:
      return name == "string" ? static_cast<int>(XMLElement::kString) : -1;
    case 7:
      return name == "integer" ? static_cast<int>(XMLElement::kInteger) : -1;
    default:
      return -1;
  }
}

const char* skipMark(const char* begin, std::size_t length) {
  return std::string_view(begin, length).starts_with(kByteOrderMark) ? begin + kByteOrderMark.size() : begin;
}

}  // namespace

std::string_view nameOf(XMLElement element) { return kNames[static_cast<std::size_t>(element)]; }

XMLScanner::XMLScanner(const char* begin, std::size_t length)
    : begin_(skipMark(begin, length)), end_(begin + length), at_(begin_) {}

std::string XMLScanner::placeOf(const char* at) const {
  std::size_t line = 1, column = 1;
  for (const char* p = begin_; p < at; ++p) {
    const bool pairOfLineEnd = *p == '\r' && p + 1 < end_ && p[1] == '\n';
    if (*p == '\n' || (*p == '\r' && !pairOfLineEnd)) {
      ++line;
      column = 1;
    } else if ((static_cast<unsigned char>(*p) & 0xC0) != 0x80) {
      ++column;
    }
  }
  return " at line " + std::to_string(line) + ", column " + std::to_string(column);
}

void XMLScanner::fail(const char* at, const std::string& cause, CFIndex code) const {
  throw ListFailure{code, cause + placeOf(at)};
}

void XMLScanner::failAtEnd(XMLElement inside, const char* insideStart) const {
  std::string cause = "The list ends inside the <" + std::string(nameOf(inside)) + "> that begins";
  cause += placeOf(insideStart) + ", cut off";
  fail(end_, cause);
}

XMLTag XMLScanner::nextTag(XMLElement inside, const char* insideStart) {
  for (;;) {
    skipBlanks();
    if (at_ == end_) failAtEnd(inside, insideStart);
    if (*at_ != '<') {
      fail(at_, "Unexpected text between the elements inside <" + std::string(nameOf(inside)) + ">");
    }
    const char next = at_ + 1 == end_ ? '\0' : at_[1];
    if (next != '!' && next != '?') return tag();
    if (!skipCommentOrInstruction()) {
      if (startsWith("<![CDATA[")) fail(at_, "Unexpected text between the elements");
      fail(at_, "Unexpected \"<!\"");
    }
  }
}

XMLTag XMLScanner::tag() {
  if (end_ - at_ > 8) {  // by far the most tags
    const std::uint64_t bytes = load(at_ + 1);
    for (const PlainTag& plain : kPlainTags) {
      if (!plain.word.matches(bytes)) continue;
      const char* const start = at_;
      at_ += 1 + plain.word.length;
      return {plain.element, plain.closing, plain.empty, start};
    }
  }
  return unusualTag();
}

XMLTag XMLScanner::unusualTag() {
  XMLTag found{XMLElement::kPropertyList, false, false, at_};
  ++at_;
  if (at_ != end_ && *at_ == '/') {
    found.closing = true;
    ++at_;
  }
  const std::string_view name = takeName();
  if (at_ == end_) fail(at_, "The list ends inside a tag, cut off");
  if (name.empty()) fail(found.start, "\"<\" without the name of an element");
  const int element = findElement(name);
  if (element < 0) {
    fail(found.start, "Unknown element <" + printable(name) + ">");
  }
  found.element = static_cast<XMLElement>(element);
  takeAttributes(found);
  return found;
}

// The rest of a tag behind its name. Attributes are read and forgotten, except the version of the list.
void XMLScanner::takeAttributes(XMLTag& tag) {
  std::array<std::string_view, kMostAttributes> seen;
  std::size_t count = 0;
  while (skipBlanksSome() && at_ != end_ && *at_ != '>' && *at_ != '/') {
    const char* const start = at_;
    const std::string_view name = takeName();
    if (name.empty() || tag.closing) fail(start, "A character that cannot stand in a tag");
    for (std::size_t i = 0; i < count; ++i) {
      if (seen[i] == name) fail(start, "The attribute \"" + printable(name) + "\" comes twice,");
    }
    if (count == kMostAttributes) fail(start, "More attributes than an element can have");
    seen[count++] = name;
    const std::string_view value = takeAttributeValue(name);
    checkAttributeReferences(value);
    if (tag.element == XMLElement::kPropertyList && name == "version") checkVersion(value, start);
  }
  if (at_ != end_ && *at_ == '/' && !tag.closing) {
    tag.empty = true;
    ++at_;
  }
  if (at_ == end_) fail(at_, "The list ends inside a tag, cut off");
  if (*at_ != '>') fail(at_, "A character that cannot stand in a tag");
  ++at_;
}

void XMLScanner::checkVersion(std::string_view value, const char* at) const {
  if (value == "1.0") return;
  fail(at, "Property-list version \"" + printable(value) + "\" is not supported, only 1.0 is,",
       kCFPropertyListReadUnknownVersionError);
}

void XMLScanner::checkAttributeReferences(std::string_view value) const {
  if (const auto at = value.find('&'); at != value.npos) {
    fail(value.data() + at, "A reference in an attribute's value, which is not supported,");
  }
}

void XMLScanner::endTag(const XMLTag& opened) {
  const Word& word = kEndWords[static_cast<std::size_t>(opened.element)];
  if (end_ - at_ >= 10 && word.matches(load(at_ + 2))) {
    at_ += 2 + word.length;
    return;
  }
  const XMLTag found = tag();
  if (found.element != opened.element) {
    fail(found.start,
         "</" + std::string(nameOf(found.element)) + "> where </" + std::string(nameOf(opened.element)) + "> belongs");
  }
}

std::string_view XMLScanner::takeName() {
  const char* const from = at_;
  if (at_ != end_ && isNameStart(*at_)) {
    while (at_ != end_ && isNameByte(*at_)) at_ = character(at_);
  }
  return {from, static_cast<std::size_t>(at_ - from)};
}

// Behind the name of an attribute: = and a quoted value.
std::string_view XMLScanner::takeAttributeValue(std::string_view name) {
  const std::string called = "The attribute \"" + printable(name) + "\"";
  skipBlanks();
  if (at_ == end_ || *at_ != '=') fail(at_, called + " has no value");
  ++at_;
  skipBlanks();
  if (at_ == end_ || (*at_ != '"' && *at_ != '\'')) fail(at_, "The value of " + called + " is not in quotes");
  const char* const from = at_ + 1;
  passQuoted(at_, "The attribute's value");
  const std::string_view value(from, static_cast<std::size_t>(at_ - 1 - from));
  if (const auto bad = value.find('<'); bad != value.npos) fail(from + bad, "\"<\" in an attribute's value");
  return value;
}

// A quoted text of valid characters.
void XMLScanner::passQuoted(const char* opened, const char* what) {
  const char quote = *opened;
  at_ = opened + 1;
  while (at_ != end_ && *at_ != quote) {
    const bool plain = kXMLByteKinds[static_cast<unsigned char>(*at_)] == kPlain;
    at_ = plain ? at_ + 1 : character(at_);
  }
  if (at_ == end_) fail(opened, std::string(what) + " has no closing quote");
  ++at_;
}

}  // namespace cf
