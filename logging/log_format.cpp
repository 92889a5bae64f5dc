#include "logging/log_format.h"

#include <tovan/logger.h>

#include "foundation/milliseconds.h"
#include "logging/message_text.h"
#include "platform/system/process_id.h"
#include "platform/system/process_manager.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace tovan {
namespace {

void putMilliseconds(char* place, unsigned milliseconds) {
  for (const unsigned digit : {milliseconds / 100, milliseconds / 10 % 10, milliseconds % 10}) {
    *place++ = static_cast<char>('0' + digit);
  }
}

// The beginning of an element, put together in place.
class Beginning {
 public:
  explicit Beginning(std::string& text) : text_(text) {}
  ~Beginning() { text_.append(buffer_, static_cast<std::size_t>(at_ - buffer_)); }
  Beginning(const Beginning&) = delete;
  Beginning& operator=(const Beginning&) = delete;

  template <std::size_t size>
  Beginning& operator<<(const char (&literal)[size]) {
    std::memcpy(at_, literal, size - 1);
    at_ += size - 1;
    return *this;
  }
  Beginning& operator<<(std::string_view piece) {
    std::memcpy(at_, piece.data(), piece.size());
    at_ += piece.size();
    return *this;
  }
  Beginning& operator<<(std::uint64_t number) {
    at_ = std::to_chars(at_, buffer_ + sizeof buffer_, number).ptr;
    return *this;
  }
  Beginning& operator<<(const CTimeStamp& moment) {
    const std::int64_t signedMilliseconds = roundedMilliseconds(moment.getAbsoluteTime());
    if (signedMilliseconds < 0) *this << "-";  // the clock stands before 2001
    const auto milliseconds = static_cast<std::uint64_t>(std::abs(signedMilliseconds));
    *this << milliseconds / 1000 << ".";
    putMilliseconds(at_, static_cast<unsigned>(milliseconds % 1000));
    at_ += 3;
    return *this;
  }

 private:
  std::string& text_;
  char buffer_[192];  // the longest one has 128
  char* at_ = buffer_;
};

void putTimes(Beginning& element, const CTimeStamp& moment) {
  element << " tms=\"" << moment << "\" tmt=\"" << std::string_view(moment.getText()) << "\"";
}

void putTimesAndProcess(Beginning& element, const CTimeStamp& moment) {
  putTimes(element, moment);
  element << " pid=\"" << static_cast<std::uint64_t>(platform::processId()) << "\"";
}

}  // namespace

std::string secondsText(const CTimeStamp& moment) {
  std::string text;
  Beginning(text) << moment;
  return text;
}

void appendFileHeader(std::string& text, const CTimeStamp& moment) {
  const auto process = static_cast<std::uint32_t>(platform::processId());
  const std::optional<std::string> name = platform::copyProcessName({1, process});
  text += "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
  {
    Beginning element(text);
    element << "<logs";
    putTimes(element, moment);
    element << " pnm=\"";
  }
  text += attributeCopy(name.value_or("unknown"));
  text += "\">\n";
}

void appendSessionMark(std::string& text, const CTimeStamp& moment, std::string_view kind) {
  Beginning element(text);
  element << "<mrk";
  putTimesAndProcess(element, moment);
  element << " kind=\"" << kind << "\" what=\"log-session\"/>\n";
}

void appendErrorRecordHead(std::string& text, const CTimeStamp& moment) {
  Beginning element(text);
  element << "<log";
  putTimesAndProcess(element, moment);
  element << " kind=\"mrk\" sub=\"error\" what=\"get-log\" avail=\"false\"";
}

void RecordHeads::append(std::string& text, unsigned int level) { append(text, CFAbsoluteTimeGetCurrent(), level); }

void RecordHeads::append(std::string& text, CFAbsoluteTime time, unsigned int level) {
  const std::int64_t milliseconds = roundedMilliseconds(time);
  const bool isUsable = milliseconds >= 0 && milliseconds / 1000 == second_ &&
                        static_cast<std::uint32_t>(platform::processId()) == process_;
  if (!isUsable) make(time);
  const std::size_t start = text.size();
  text += head_;
  // Before 2001 the two texts have not the same milliseconds.
  if (milliseconds >= 0) {
    const auto fraction = static_cast<unsigned>(milliseconds % 1000);
    for (const std::size_t place : millisecondsAt_) putMilliseconds(text.data() + start + place, fraction);
  }
  Beginning rest(text);
  if (level != CTovanLogger::kDefaultLevel) rest << " lvl=\"" << std::uint64_t{level} << "\"";
  rest << " msg=\"";
}

void RecordHeads::make(CFAbsoluteTime time) {
  second_ = roundedMilliseconds(time) / 1000;
  process_ = static_cast<std::uint32_t>(platform::processId());
  head_.clear();
  {
    Beginning element(head_);
    element << "<log";
    putTimesAndProcess(element, CTimeStamp(time));
  }
  millisecondsAt_[0] = head_.find('.') + 1;
  millisecondsAt_[1] = head_.find('.', millisecondsAt_[0]) + 1;
}

}  // namespace tovan
