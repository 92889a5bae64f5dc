// log_element.h: one element of a process log, from its text.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "tools/tovanctl/log_record.h"

struct XML_ParserStruct;

namespace tovanctl {

// How the reading of an element came out.
struct LogElement {
  enum class Kind {
    record,      // a record, complete
    frame,       // the XML declaration, the start of the root or its end: complete, and nothing to show
    incomplete,  // it may go on behind the text
    damaged,     // it is no record, whatever follows
  };
  Kind kind = Kind::damaged;
  std::size_t length = 0;  // of a complete one: how much of the text it is
  std::string reason;      // of a damaged one, for people
};

// Reads elements, each with Expat; one object for many of them. No document type is read, so nothing expands.
class LogElementParser {
 public:
  LogElementParser();
  ~LogElementParser();
  LogElementParser(const LogElementParser&) = delete;
  LogElementParser& operator=(const LogElementParser&) = delete;

  // The element that the text begins with ('<'); `record` is set when it is a record. What is behind it, without a '<',
  // is not judged.
  LogElement parse(std::string_view text, LogRecord& record);
  // The text, whole, as an element of another name, with children as may be.
  LogElement parseOther(std::string_view text, LogRecord& record);

  // Whether the text begins with an element that the format has.
  static bool beginsKnown(std::string_view text);

 private:
  struct State;
  LogElement parseTag(std::string_view text, LogRecord& record);
  bool run(std::string_view text);

  std::unique_ptr<State> state_;
  std::unique_ptr<XML_ParserStruct, void (*)(XML_ParserStruct*)> parser_;
};

}  // namespace tovanctl
