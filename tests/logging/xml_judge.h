// xml_judge.h: what an independent XML parser says of a document.
#pragma once

#include <expat.h>

#include <string>
#include <utility>
#include <vector>

namespace test {

struct XMLElement {
  std::string name;
  std::vector<std::pair<std::string, std::string>> attributes;  // in the order of the document

  // "(absent)" when there is no such attribute.
  std::string operator[](const std::string& attribute) const {
    for (const auto& [key, value] : attributes) {
      if (key == attribute) return value;
    }
    return "(absent)";
  }
  // The names of the attributes, a blank between them.
  std::string order() const {
    std::string names;
    for (const auto& [key, value] : attributes) names += (names.empty() ? "" : " ") + key;
    return names;
  }
};

struct XMLDocument {
  std::string error;                 // empty when the document is well-formed
  std::vector<XMLElement> elements;  // every element, in the order of the start tags

  std::vector<XMLElement> named(const std::string& name) const {
    std::vector<XMLElement> found;
    for (const XMLElement& element : elements) {
      if (element.name == name) found.push_back(element);
    }
    return found;
  }
};

inline XMLDocument judged(const std::string& text) {
  XMLDocument document;
  const XML_Parser parser = XML_ParserCreate("UTF-8");
  XML_SetUserData(parser, &document);
  XML_SetStartElementHandler(parser, [](void* data, const XML_Char* name, const XML_Char** attributes) {
    XMLElement element{name, {}};
    for (; *attributes != nullptr; attributes += 2) element.attributes.emplace_back(attributes[0], attributes[1]);
    static_cast<XMLDocument*>(data)->elements.push_back(std::move(element));
  });
  if (XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_TRUE) != XML_STATUS_OK) {
    document.error = std::string(XML_ErrorString(XML_GetErrorCode(parser))) + " in line " +
                     std::to_string(XML_GetCurrentLineNumber(parser)) + ", column " +
                     std::to_string(XML_GetCurrentColumnNumber(parser));
  }
  XML_ParserFree(parser);
  return document;
}

// A log file as the reply would give it: with its end tag.
inline XMLDocument judgedLog(const std::string& file) { return judged(file + "</logs>\n"); }

}  // namespace test
