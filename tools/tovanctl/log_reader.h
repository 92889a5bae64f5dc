// log_reader.h: the records of a process log, from its bytes as they come.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tovanctl/log_element.h"
#include "tools/tovanctl/log_record.h"

namespace tovanctl {

// A part of a file that is no record.
struct LogDamage {
  std::uint64_t line = 0;    // its first line, from 1
  std::uint64_t offset = 0;  // its first byte, from 0
  std::uint64_t length = 0;  // in bytes
  std::string reason;
};

// Reads a log that may never have been closed, holds several sessions, and may be damaged anywhere: what is no record
// is told, and reading goes on with the next '<', which no record has inside. A message may hold line breaks, so a
// record that is not complete goes on in the lines behind it that have no '<'.
//
// Memory is bounded by kLongest, however long the lines are. One object belongs to one thread.
class LogReader {
 public:
  // What is longer than this is told as damage.
  static constexpr std::size_t kLongest = std::size_t{16} << 20U;

  using TakeRecord = std::function<void(const LogRecord&)>;
  using TakeDamage = std::function<void(const LogDamage&)>;

  LogReader(TakeRecord takeRecord, TakeDamage takeDamage);

  // The next bytes of the file. The records that they complete are taken before this returns.
  void feed(std::string_view bytes);
  // The file is at its end: what is not complete never will be, and the next bytes are those of another file.
  void finish();

 private:
  void skip(std::string_view piece);
  void endLine(std::string_view piece);
  void readLine(std::string_view line);
  void readRest(std::string_view line, std::size_t at);
  std::size_t readElement(std::string_view line, std::size_t at);
  void beginPending(std::string_view line, std::size_t at);
  void goOn(std::string_view text);
  void endPending();
  void takePending(const LogElement& element);
  void tell(std::uint64_t line, std::uint64_t offset, std::uint64_t length, std::string reason);

  TakeRecord takeRecord_;
  TakeDamage takeDamage_;
  LogElementParser parser_;
  LogRecord record_;

  std::string partial_;           // a line whose end has not come yet
  std::uint64_t skipped_ = 0;     // bytes of that line when it is too long to be kept
  std::uint64_t lineNumber_ = 1;  // of the line that begins at lineOffset_
  std::uint64_t lineOffset_ = 0;
  std::string pending_;            // an element that goes on in the next line; empty when there is none
  std::uint64_t pendingLine_ = 0;  // where that began
  std::uint64_t pendingOffset_ = 0;
  std::size_t lastTry_ = 0;  // how long it was when it was tried last
  unsigned int tries_ = 0;
};

}  // namespace tovanctl
