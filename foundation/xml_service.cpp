#include <plinth/exception.h>
#include <plinth/xml_service.h>

#include "foundation/xml_reader.h"
#include "foundation/xml_text.h"

#include <algorithm>
#include <string>

namespace plinth {
namespace {

const CStringRef& checked(const CStringRef& text, const char* name) {
  if (text.isNull()) throw CNullPointerException("Error: %s is null!", name);
  return text;
}

}  // namespace

CXMLAttributePair::CXMLAttributePair(const CStringRef& name, const CStringRef& value)
    : name_(CSTR(checked(name, "name"))), value_(CString::nullToEmptyString(CSTR(value))) {
  if (!isXMLName(name->str())) throw CParamException("CXMLAttributePair: \"%s\" is no XML name", name->getUTF8Ptr());
}

CXMLAttributePair::CXMLAttributePair(const CStringRef& name, const CStringRef& value, Checked) noexcept
    : name_(name), value_(value) {}

CXMLAttributePair::~CXMLAttributePair() = default;

// Builds the tree below an element while the reader reports what it sees.
class XMLTreeBuilder final : public XMLReaderEvents {
 public:
  explicit XMLTreeBuilder(CXMLService& root) : root_(root) {}

  void elementBegins(const char* name, const char* const* attributes) override {
    CXMLService& element = open_.empty() ? root_ : addChild(*open_.back());
    element.name_ = CSTR(name);
    for (; attributes[0] != nullptr; attributes += 2) {
      element.attributes_.push_back(CXMLAttributePairRef(
          new CXMLAttributePair(CSTR(attributes[0]), CSTR(attributes[1]), CXMLAttributePair::Checked())));
    }
    open_.push_back(&element);
  }

  void elementEnds() override { open_.pop_back(); }

  void text(std::string_view piece) override {
    auto& content = open_.back()->content_;
    if (content.empty() || !std::holds_alternative<std::string>(content.back())) content.emplace_back(std::string());
    std::get<std::string>(content.back()).append(piece);
  }

 private:
  static CXMLService& addChild(CXMLService& parent) {
    const CXMLServiceRef child(new CXMLService());
    parent.content_.emplace_back(child);
    parent.children_.push_back(child);
    return *child;
  }

  CXMLService& root_;
  std::vector<CXMLService*> open_;
};

CXMLService::CXMLService() noexcept = default;

CXMLService::CXMLService(const CStringRef& xml) {
  XMLTreeBuilder builder(*this);
  if (const auto error = readXML(checked(xml, "xml")->str(), &builder)) {
    throw CParamException("CXMLService: can't parse XML, line %llu, column %llu: %s", error->line, error->column,
                          error->reason.c_str());
  }
}

CXMLService::CXMLService(const CXMLServiceRef& service) {
  if (service.isNull()) throw CNullPointerException("Error: service is null!");
  *this = *service;
}

CXMLService::CXMLService(const CXMLService& other) : CSharedObject(other) { *this = other; }

// Attributes are immutable and shared; elements are copied, as a change of one must not show in the other.
CXMLService& CXMLService::operator=(const CXMLService& other) {
  if (this == &other) return *this;
  std::vector<Content> content;
  std::vector<CXMLServiceRef> children;
  content.reserve(other.content_.size());
  children.reserve(other.children_.size());
  for (const Content& piece : other.content_) {
    if (const auto* child = std::get_if<CXMLServiceRef>(&piece)) {
      children.push_back(CXMLServiceRef(new CXMLService(**child)));
      content.emplace_back(children.back());
    } else {
      content.push_back(piece);
    }
  }
  name_ = other.name_;
  attributes_ = other.attributes_;
  content_ = std::move(content);
  children_ = std::move(children);
  return *this;
}

CXMLService::~CXMLService() = default;

bool CXMLService::HasXMLHeader(const CStringRef& text) { return text && hasXMLHeader(text->str()); }

bool CXMLService::isWellFormed(const CStringRef& xml) noexcept {
  try {
    return xml && isWellFormed(xml->str());
  } catch (...) {
    return false;
  }
}

bool CXMLService::isWellFormed(std::string_view utf8) noexcept {
  try {
    return !readXML(utf8, nullptr);
  } catch (...) {
    return false;
  }
}

CStringRef CXMLService::copyXMLNodeName() const { return CSTR(name_); }

std::size_t CXMLService::getChildCount() const noexcept { return children_.size(); }

CXMLServiceRef CXMLService::getChildAtIndex(std::size_t index) const noexcept {
  return index < children_.size() ? children_[index] : CXMLServiceRef();
}

CStringRef CXMLService::copyText() const {
  std::string joined;
  for (const Content& piece : content_) {
    if (const auto* text = std::get_if<std::string>(&piece)) joined += *text;
  }
  return CSTR(joined);
}

CStringRef CXMLService::getAttributeValueAsString(const CStringRef& name, const CStringRef& defaultValue) const {
  const auto place = std::find_if(attributes_.begin(), attributes_.end(),
                                  [&](const CXMLAttributePairRef& pair) { return pair->getName() == name; });
  return place != attributes_.end() ? CSTR((*place)->getValue()) : defaultValue;
}

void CXMLService::addAttributes(const std::vector<CXMLAttributePairRef>& attributes) {
  std::vector<CXMLAttributePairRef> all = attributes_;
  for (const CXMLAttributePairRef& added : attributes) {
    if (added.isNull()) throw CNullPointerException("Error: attribute is null!");
    const auto place = std::find_if(
        all.begin(), all.end(), [&](const CXMLAttributePairRef& pair) { return pair->getName() == added->getName(); });
    if (place != all.end()) {
      *place = added;
    } else {
      all.push_back(added);
    }
  }
  attributes_ = std::move(all);
}

CStringRef CXMLService::copyToCString(bool withHeader) const {
  std::string text = withHeader ? "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" : "";
  appendTo(text);
  return CSTR(text);
}

void CXMLService::appendTo(std::string& out) const {
  const std::string name = name_->str();
  out += '<' + name;
  for (const CXMLAttributePairRef& pair : attributes_) {
    out += ' ' + pair->getName()->str() + "=\"";
    appendXMLEscaped(out, pair->getValue()->str(), XMLPlace::attribute);
    out += '"';
  }
  if (content_.empty()) {
    out += "/>";
    return;
  }
  out += '>';
  for (const Content& piece : content_) {
    if (const auto* text = std::get_if<std::string>(&piece)) {
      appendXMLEscaped(out, *text, XMLPlace::text);
    } else {
      std::get<CXMLServiceRef>(piece)->appendTo(out);
    }
  }
  out += "</" + name + '>';
}

}  // namespace plinth
