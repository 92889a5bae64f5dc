// log_record.h: what stands in a process log, record by record. docs/process-log.md describes the file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tovanctl {

enum class LogRecordKind {
  message,  // <log>
  mark,     // <mrk>
  element,  // an element of another name, which a process may write as well
};

// Texts are as a parser gives them: references such as &amp; are resolved, percent escapes are not.
struct LogRecord {
  LogRecordKind kind = LogRecordKind::message;
  std::optional<double> time;        // seconds since 2001-01-01 00:00:00 GMT; only an element may be without
  std::optional<std::uint32_t> pid;  // likewise
  std::uint32_t level = 3;           // a mark and an element have none of their own, and count as 3
  std::string message;               // of an element: the element as it is written
  // Of a mark.
  std::string markKind;  // "begin", "end", empty for a mark without a counterpart, or what else the file says
  std::string what;
  std::string requestID;
  // Attributes that the format does not have, in their order: what a message brought along that holds an even number of
  // quotes, or the details of an error document.
  std::vector<std::pair<std::string, std::string>> others;
};

}  // namespace tovanctl
