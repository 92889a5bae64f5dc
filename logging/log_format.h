// log_format.h: the elements of the process log as text, made here only.
#pragma once

#include <tovan/time_stamp.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tovan {

inline constexpr std::string_view kLogEnd = "</logs>\n";
inline constexpr std::string_view kRecordTail = "\"/>\n";
inline constexpr std::string_view kMarkName = "mrk";
inline constexpr std::string_view kBegin = "begin";
inline constexpr std::string_view kEnd = "end";

// The moment in seconds with three decimals; its rounding is that of the time stamp's text.
std::string secondsText(const CTimeStamp& moment);

// Each appends to `text`. All but the beginnings of elements end in a newline.
void appendFileHeader(std::string& text, const CTimeStamp& moment);
// A begin or end of the session.
void appendSessionMark(std::string& text, const CTimeStamp& moment, std::string_view kind);
// A record of the log query up to the text that says what is wrong.
void appendErrorRecordHead(std::string& text, const CTimeStamp& moment);

// The beginnings of records, each up to the text of its message, which kRecordTail follows. All but the milliseconds
// stays the same for a second, so it is made once and used again. An object is used by one thread at a time.
class RecordHeads {
 public:
  // Appends that of a record of this moment.
  void append(std::string& text, unsigned int level);
  // The same for any moment.
  void append(std::string& text, CFAbsoluteTime time, unsigned int level);

 private:
  void make(CFAbsoluteTime time);

  std::int64_t second_ = -1;
  std::uint32_t process_ = 0;
  std::string head_;                 // up to and with the process's id
  std::size_t millisecondsAt_[2]{};  // in tms and tmt
};

}  // namespace tovan
