#include "tools/tovanctl/log_reader.h"

#include <algorithm>
#include <utility>

namespace tovanctl {
namespace {

using Kind = LogElement::Kind;

constexpr std::string_view kBlank = " \t\r\n";
constexpr const char* kStray = "text outside of a record";
constexpr const char* kCutOff = "a record that is cut off";
constexpr const char* kTooLong = "longer than 16 MiB";
// A record that goes on is tried at each line that may be its last. A hostile one is not tried over and over.
constexpr unsigned int kTries = 32;

bool isBlank(std::string_view text) { return text.find_first_not_of(kBlank) == std::string_view::npos; }

bool mayBeEnd(std::string_view line) {
  const std::size_t last = line.find_last_not_of(kBlank);
  return last != std::string_view::npos && line[last] == '>';
}

}  // namespace

LogReader::LogReader(TakeRecord takeRecord, TakeDamage takeDamage)
    : takeRecord_(std::move(takeRecord)), takeDamage_(std::move(takeDamage)) {}

void LogReader::tell(std::uint64_t line, std::uint64_t offset, std::uint64_t length, std::string reason) {
  takeDamage_({line, offset, length, std::move(reason)});
}

void LogReader::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t end = bytes.find('\n');
    const std::string_view piece = bytes.substr(0, end);
    if (skipped_ > 0 || partial_.size() + piece.size() > kLongest) {
      skip(piece);
    } else if (end == std::string_view::npos || !partial_.empty()) {
      partial_ += piece;
    }
    if (end == std::string_view::npos) return;
    endLine(piece);
    bytes.remove_prefix(end + 1);
  }
}

// Part of a line that is too long; it is told when its end is known.
void LogReader::skip(std::string_view piece) {
  if (skipped_ == 0) endPending();
  skipped_ += partial_.size() + piece.size();
  partial_ = {};
}

// The line is the piece, unless it began in earlier bytes.
void LogReader::endLine(std::string_view piece) {
  const std::string_view line = partial_.empty() ? piece : std::string_view(partial_);
  const std::uint64_t length = skipped_ > 0 ? skipped_ : line.size();
  if (skipped_ > 0) {
    tell(lineNumber_, lineOffset_, length, kTooLong);
  } else {
    readLine(line);
  }
  partial_.clear();
  skipped_ = 0;
  lineOffset_ += length + 1;
  ++lineNumber_;
}

void LogReader::finish() {
  if (skipped_ > 0 || !partial_.empty()) endLine({});
  endPending();
  partial_ = {};
  pending_ = {};
  lineNumber_ = 1;
  lineOffset_ = 0;
}

void LogReader::readLine(std::string_view line) {
  if (pending_.empty()) return readRest(line, 0);
  const std::size_t next = std::min(line.find('<'), line.size());
  goOn(line.substr(0, next));
  if (next == line.size()) return;
  endPending();
  readRest(line, next);
}

void LogReader::readRest(std::string_view line, std::size_t at) {
  while (at < line.size()) {
    const std::size_t next = std::min(line.find('<', at), line.size());
    if (!isBlank(line.substr(at, next - at))) tell(lineNumber_, lineOffset_ + at, next - at, kStray);
    if (next == line.size()) return;
    at = readElement(line, next);
  }
}

// Reads what begins at the '<' and gives where it ends.
std::size_t LogReader::readElement(std::string_view line, std::size_t at) {
  std::size_t next = std::min(line.find('<', at + 1), line.size());
  LogElement element;
  if (LogElementParser::beginsKnown(line.substr(at))) {
    element = parser_.parse(line.substr(at, next - at), record_);
  } else if (isBlank(line.substr(0, at))) {
    element = parser_.parseOther(line.substr(at), record_);
    while (next < line.size() && !LogElementParser::beginsKnown(line.substr(next))) {
      next = std::min(line.find('<', next + 1), line.size());
    }
  } else {
    element.reason = "it is neither a message nor a mark";
  }
  if (element.kind == Kind::record) takeRecord_(record_);
  if (element.kind == Kind::record || element.kind == Kind::frame) return at + element.length;
  if (element.kind == Kind::incomplete && next == line.size()) {
    beginPending(line, at);
    return next;
  }
  tell(lineNumber_, lineOffset_ + at, next - at, element.kind == Kind::damaged ? element.reason : kCutOff);
  return next;
}

void LogReader::beginPending(std::string_view line, std::size_t at) {
  pending_ = line.substr(at);
  pendingLine_ = lineNumber_;
  pendingOffset_ = lineOffset_ + at;
  lastTry_ = 0;
  tries_ = 0;
}

// What stands behind the pending element in the next line, up to a '<'.
void LogReader::goOn(std::string_view text) {
  if (pending_.size() + 1 + text.size() > kLongest) {
    tell(pendingLine_, pendingOffset_, pending_.size() + 1 + text.size(), kTooLong);
    pending_ = {};
    return;
  }
  pending_ += '\n';
  pending_ += text;
  if (!mayBeEnd(text) || (tries_ > kTries && pending_.size() < 2 * lastTry_)) return;
  ++tries_;
  lastTry_ = pending_.size();
  const LogElement element = parser_.parse(pending_, record_);
  if (element.kind != Kind::incomplete) takePending(element);
}

void LogReader::endPending() {
  if (pending_.empty()) return;
  LogElement element = parser_.parse(pending_, record_);
  if (element.kind == Kind::incomplete) element = {Kind::damaged, 0, kCutOff};
  takePending(element);
}

void LogReader::takePending(const LogElement& element) {
  const std::string text = std::exchange(pending_, {});
  if (element.kind == Kind::damaged) return tell(pendingLine_, pendingOffset_, text.size(), element.reason);
  if (element.kind == Kind::record) takeRecord_(record_);
  const std::string_view behind = std::string_view(text).substr(element.length);
  if (isBlank(behind)) return;
  tell(pendingLine_, pendingOffset_ + element.length, behind.size(), kStray);
}

}  // namespace tovanctl
