// What stands before the root and between elements: declaration, document type, comments, instructions.
#include "platform/corefoundation/xml_property_list_scanner.h"

#include "platform/corefoundation/xml_property_list_characters.h"

#include <CoreFoundation/CFPropertyList.h>

#include <array>

namespace cf {

void XMLScanner::refuseOtherEncodings() const {
  const std::string_view text(at_, static_cast<std::size_t>(end_ - at_));
  const bool sixteen = text.starts_with("\xFE\xFF") || text.starts_with("\xFF\xFE") ||
                       text.starts_with(std::string_view("\0<", 2)) || text.starts_with(std::string_view("<\0", 2));
  const bool thirtyTwo = text.starts_with(std::string_view("\0\0", 2)) ||
                         text.starts_with(std::string_view("\xFF\xFE\0\0", 4)) ||
                         text.starts_with(std::string_view("<\0\0\0", 4));
  if (thirtyTwo) fail(at_, "The encoding UTF-32 is not supported, only UTF-8 is,");
  if (sixteen) fail(at_, "The encoding UTF-16 is not supported, only UTF-8 is,");
}

void XMLScanner::skipProlog() {
  refuseOtherEncodings();
  if (startsWith("<?xml") && end_ - at_ > 5 && isBlank(at_[5])) skipDeclaration();
  bool documentType = false;
  for (;;) {
    skipBlanks();
    if (startsWith("<!DOCTYPE")) {
      if (documentType) fail(at_, "A second document-type line");
      documentType = true;
      skipDocumentType();
    } else if (!skipCommentOrInstruction()) {
      return;
    }
  }
}

bool XMLScanner::skipBlanksSome() {
  const char* const from = at_;
  skipBlanks();
  return at_ != from;
}

XMLTag XMLScanner::rootTag() {
  skipProlog();
  if (at_ == end_) fail(at_, "There is no list: no element has begun");
  if (*at_ == '{' || *at_ == '(') {
    fail(at_, "Property lists in the old text format are not supported, only XML and binary ones are,",
         kCFPropertyListReadUnknownVersionError);
  }
  if (*at_ != '<') fail(at_, "Unexpected text before the list");
  return tag();
}

void XMLScanner::skipDeclaration() {
  const char* const start = at_;
  at_ += 5;
  // Each at most once, in this order.
  constexpr std::array<std::string_view, 3> kAttributes = {"version", "encoding", "standalone"};
  std::size_t next = 0;
  while (skipBlanksSome() && at_ != end_ && *at_ != '?') {
    const char* const nameStart = at_;
    const std::string_view name = takeName();
    const bool hasVersion = next > 0;
    while (next < kAttributes.size() && kAttributes[next] != name) ++next;
    if (next == kAttributes.size() || (!hasVersion && next > 0)) {
      fail(nameStart, "Unexpected \"" + printable(name) + "\" in the XML declaration");
    }
    ++next;
    const std::string_view value = takeAttributeValue(name);
    if (name == "version" && value != "1.0") {
      fail(nameStart, "XML version \"" + printable(value) + "\" is not supported, only 1.0 is,");
    }
    if (name == "encoding" && !equalsIgnoringCase(value, "utf-8")) {
      fail(nameStart, "The encoding \"" + printable(value) + "\" is not supported, only UTF-8 is,");
    }
    if (name == "standalone" && value != "yes" && value != "no") {
      fail(nameStart, "\"standalone\" must be yes or no, not \"" + printable(value) + "\",");
    }
  }
  if (next == 0) fail(start, "The XML declaration has no version");
  if (!startsWith("?>")) fail(start, "The XML declaration does not end in \"?>\"");
  at_ += 2;
}

void XMLScanner::skipDocumentType() {
  const char* const start = at_;
  at_ += std::string_view("<!DOCTYPE").size();
  const char* const nameStart = at_;
  if (!skipBlanksSome() || takeName() != "plist") fail(nameStart, "The document type is not \"plist\"");
  skipBlanks();
  const int identifiers = startsWith("PUBLIC") ? 2 : startsWith("SYSTEM") ? 1 : 0;
  if (identifiers > 0) at_ += 6;
  for (int i = 0; i < identifiers; ++i) {
    const bool apart = skipBlanksSome();
    if (!apart || at_ == end_ || (*at_ != '"' && *at_ != '\'')) {
      fail(at_, "The document-type line lacks an identifier in quotes");
    }
    passQuoted(at_, "The document type's identifier");
  }
  skipBlanks();
  if (at_ != end_ && *at_ == '[') {
    fail(at_, "The document-type line has an internal subset, which is not supported, nor is any entity of its own,");
  }
  if (at_ == end_ || *at_ != '>') fail(start, "The document-type line does not end in \">\"");
  ++at_;
}

bool XMLScanner::skipCommentOrInstruction() {
  if (startsWith("<!--")) {
    skipComment();
  } else if (startsWith("<?")) {
    skipInstruction();
  } else {
    return false;
  }
  return true;
}

void XMLScanner::skipComment() {
  const char* const start = at_;
  for (at_ += 4; at_ != end_;) {
    if (*at_ == '-' && startsWith("--")) {
      if (!startsWith("-->")) {
        fail(at_, end_ - at_ > 2 ? "\"--\" in a comment" : "The list ends inside a comment, cut off");
      }
      at_ += 3;
      return;
    }
    at_ = kXMLByteKinds[static_cast<unsigned char>(*at_)] == kPlain ? at_ + 1 : character(at_);
  }
  fail(start, "The list ends inside the comment that begins");
}

void XMLScanner::skipInstruction() {
  const char* const start = at_;
  at_ += 2;
  const std::string_view target = takeName();
  if (target.empty()) fail(start, "A processing instruction without a name");
  if (equalsIgnoringCase(target, "xml")) fail(start, "An XML declaration anywhere but at the very beginning");
  if (at_ != end_ && !isBlank(*at_) && *at_ != '?') fail(at_, "A character that cannot stand in a name");
  while (at_ != end_ && !startsWith("?>")) {
    at_ = kXMLByteKinds[static_cast<unsigned char>(*at_)] == kPlain ? at_ + 1 : character(at_);
  }
  if (at_ == end_) fail(start, "The list ends inside the processing instruction that begins");
  at_ += 2;
}

}  // namespace cf
