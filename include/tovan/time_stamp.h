// time_stamp.h: CTimeStamp, a moment and its text.
//
// The text is month/day/year hours:minutes:seconds, such as "03/07/2012 14:05:09.250", in the system time zone. It is
// the text of the moment rounded to the millisecond, so the seconds never read "60.000". A moment after the year 9999
// reads "12/31/9999 23:59:59.999".
//
// A time stamp is a small value that owns no memory. Making one allocates nothing while a thread stays within one
// second, whose date is found once; a change of the system time zone shows from the next second on. Any thread may make
// them.
#pragma once

#include <tovan/export.h>

#include <CoreFoundation/CFDate.h>

namespace tovan {

class TOVAN_EXPORT CTimeStamp {
 public:
  // Seconds since 2001-01-01 00:00:00 GMT; a negative time (or one that is no number) takes the current time.
  explicit CTimeStamp(CFAbsoluteTime time = -1.0) noexcept;

  // The moment as given, not rounded.
  CFAbsoluteTime getAbsoluteTime() const noexcept { return time_; }
  // Lives as long as this object.
  const char* getText() const noexcept { return text_; }

 private:
  CFAbsoluteTime time_;
  char text_[24];  // "MM/DD/YYYY hh:mm:ss.mmm" and its end
};

}  // namespace tovan
