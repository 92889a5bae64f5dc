// xml_property_list_scanner.h: the lexical half of the XML reader. It turns bytes into tags and texts, checks that they
// are UTF-8 and characters of XML 1.0, and knows nothing of what the elements mean.
#pragma once

#include "platform/corefoundation/property_list_failure.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace cf {

enum class XMLElement : std::uint8_t {
  kPropertyList,
  kDictionary,
  kArray,
  kKey,
  kString,
  kData,
  kDate,
  kInteger,
  kReal,
  kTrue,
  kFalse
};

// "dict" and the like.
std::string_view nameOf(XMLElement element);

struct XMLTag {
  XMLElement element;
  bool closing;       // </name>
  bool empty;         // <name/>
  const char* start;  // its "<"
};

struct XMLText {
  std::string_view bytes;  // UTF-8 with references replaced; good until the next call
  bool ascii;
};

// Every failure is a ListFailure with line and column.
class XMLScanner {
 public:
  XMLScanner(const char* begin, std::size_t length);

  // Passes what may stand before the root: byte order mark, declaration, document-type line, comments, instructions.
  void skipProlog();
  // Passes blanks, comments and processing instructions and reads the tag behind them; anything else is a failure.
  // `inside` is the element that encloses the place, for the message when the list ends there.
  XMLTag nextTag(XMLElement inside, const char* insideStart);
  // The first tag after the prolog.
  XMLTag rootTag();
  // The character data up to the end tag of the element, which is passed too.
  XMLText text(const XMLTag& tag);

  [[noreturn]] void fail(const char* at, const std::string& cause, CFIndex code = 3840) const;
  [[noreturn]] void failAtEnd(XMLElement inside, const char* insideStart) const;
  // " at line 3, column 7"
  std::string placeOf(const char* at) const;

 private:
  bool startsWith(std::string_view text) const {
    return static_cast<std::size_t>(end_ - at_) >= text.size() && std::string_view(at_, text.size()) == text;
  }
  void refuseOtherEncodings() const;
  void skipBlanks() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\n' || *at_ == '\t' || *at_ == '\r')) ++at_;
  }
  bool skipBlanksSome();
  void skipDeclaration();
  void skipDocumentType();
  void skipComment();
  void skipInstruction();
  bool skipCommentOrInstruction();
  void passQuoted(const char* opened, const char* what);
  std::string_view takeName();
  std::string_view takeAttributeValue(std::string_view name);
  XMLTag tag();
  XMLTag unusualTag();
  void takeAttributes(XMLTag& tag);
  void checkVersion(std::string_view value, const char* at) const;
  void checkAttributeReferences(std::string_view value) const;
  void endTag(const XMLTag& opened);
  const char* run(const char* from, bool& ascii) const;
  const char* character(const char* at) const;
  XMLText textWithMarkup(const XMLTag& opened, const char* start, bool ascii);
  void appendReference();
  void appendSection();

  const char* const begin_;  // behind a byte order mark
  const char* const end_;
  const char* at_;
  std::string buffer_;
};

}  // namespace cf
