// xml_reader.h: reading an XML document with Expat, with what hostile documents do refused.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace plinth {

// Receives the document in its order. What it throws ends the reading and goes on to the reader's caller.
class XMLReaderEvents {
 public:
  virtual ~XMLReaderEvents() = default;
  // Names and values by turns, a null pointer at the end.
  virtual void elementBegins(const char* name, const char* const* attributes) = 0;
  virtual void elementEnds() = 0;
  // A piece of text inside an element; one text may come in several.
  virtual void text(std::string_view piece) = 0;
};

// Both numbers count from 1, columns in bytes.
struct XMLReadError {
  unsigned long long line;
  unsigned long long column;
  std::string reason;
};

// Reads a whole document in UTF-8 (whatever encoding its declaration names). `events` may be null, to learn only
// whether the document is well-formed. Nothing is ever fetched. Throws std::bad_alloc when memory runs out.
std::optional<XMLReadError> readXML(std::string_view utf8, XMLReaderEvents* events);

}  // namespace plinth
