// xml_service.h: CXMLService, one element of an XML document with everything below it, and CXMLAttributePair.
//
// Documents are read with Expat. What a hostile document could do is refused while it is read: elements nested deeper
// than CXMLService::kDepthLimit, entity declarations, external document types. Comments and processing instructions
// are dropped; text and CDATA sections are kept, in their place between the child elements.
//
// One element, and the elements below it, are changed by one thread at a time; reading from many is safe.
#pragma once

#include <plinth/string.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace plinth {

// The name and the value of one attribute; immutable.
class PLINTH_EXPORT CXMLAttributePair : public CSharedObject {
 public:
  // An empty holder for the value counts as the empty text. Throws CNullPointerException "Error: name is null!" for an
  // empty holder, CParamException for a text that is no XML name.
  CXMLAttributePair(const CStringRef& name, const CStringRef& value);

  // Never empty holders.
  const CStringRef& getName() const noexcept { return name_; }
  const CStringRef& getValue() const noexcept { return value_; }

 protected:
  ~CXMLAttributePair() override;

 private:
  friend class XMLTreeBuilder;
  struct Checked {};  // the name is known to be one
  CXMLAttributePair(const CStringRef& name, const CStringRef& value, Checked) noexcept;

  CStringRef name_;
  CStringRef value_;
};

using CXMLAttributePairRef = CSharedObjectRef<CXMLAttributePair>;

class CXMLService;
using CXMLServiceRef = CSharedObjectRef<CXMLService>;

class PLINTH_EXPORT CXMLService : public CSharedObject {
 public:
  // How deep elements may be nested, the root included.
  static constexpr int kDepthLimit = 512;

  // The root element of a document (with or without an XML declaration). Whatever encoding the declaration names, the
  // text is taken as the characters it is. Throws CNullPointerException "Error: xml is null!" for an empty holder,
  // CParamException for a document that is refused, with the line, the column (both from 1; columns in bytes) and
  // the reason.
  explicit CXMLService(const CStringRef& xml);
  // A copy of an element and everything below it. Throws CNullPointerException "Error: service is null!".
  explicit CXMLService(const CXMLServiceRef& service);
  CXMLService(const CXMLService& other);
  CXMLService& operator=(const CXMLService& other);
  ~CXMLService() override;

  // Whether the text begins with an XML declaration. False for an empty holder.
  static bool HasXMLHeader(const CStringRef& text);
  // Whether the constructor would take the text, found without building anything. Never throws.
  static bool isWellFormed(const CStringRef& xml) noexcept;
  static bool isWellFormed(std::string_view utf8) noexcept;

  // The element's name.
  CStringRef copyXMLNodeName() const;

  // Child elements only; text between them is not counted.
  std::size_t getChildCount() const noexcept;
  // The element itself, not a copy; an empty holder when there is none at the index.
  CXMLServiceRef getChildAtIndex(std::size_t index) const noexcept;

  // The text directly inside this element, its pieces joined; the empty string when there is none.
  CStringRef copyText() const;

  // The value of an attribute, or `defaultValue` when there is no attribute of that name.
  CStringRef getAttributeValueAsString(const CStringRef& name, const CStringRef& defaultValue = nullptr) const;
  // In the order of the document, added ones at the end.
  const std::vector<CXMLAttributePairRef>& getAttributes() const noexcept { return attributes_; }
  // Adds attributes in order. One that is there already gets the new value and keeps its place. Throws
  // CNullPointerException "Error: attribute is null!" for an empty holder, and changes nothing then.
  void addAttributes(const std::vector<CXMLAttributePairRef>& attributes);

  // The element as XML text, attributes in order, without added blanks or lines: <mrk a="b"/>. What has a meaning in
  // XML is escaped, a tab or line break in a value as a character reference, so that reading gives the same element
  // back. A character that XML cannot carry (most control characters) becomes U+FFFD. With the header,
  // <?xml version="1.0" encoding="UTF-8"?> comes first, on the same line.
  CStringRef copyToCString(bool withHeader = false) const;

 private:
  friend class XMLTreeBuilder;
  using Content = std::variant<std::string, CXMLServiceRef>;

  CXMLService() noexcept;
  void appendTo(std::string& out) const;

  CStringRef name_;
  std::vector<CXMLAttributePairRef> attributes_;
  std::vector<Content> content_;          // text and elements, in order
  std::vector<CXMLServiceRef> children_;  // the elements of content_
};

}  // namespace plinth
