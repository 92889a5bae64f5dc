// log_filter.h: which records of a log somebody wants to see.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "tools/tovanctl/log_moment.h"
#include "tools/tovanctl/log_record.h"

namespace tovanctl {

// An extended regular expression of POSIX.
class LogPattern {
 public:
  // CommandError(kUsage), naming the option, when it is no regular expression.
  LogPattern(const std::string& option, const std::string& expression);
  bool isFoundIn(const std::string& text) const;

 private:
  struct Compiled;
  std::shared_ptr<const Compiled> compiled_;
};

struct LogFilter {
  std::optional<std::uint32_t> level;  // this level and those below it
  std::optional<LogMoment> since;
  std::optional<LogMoment> until;     // both included
  std::optional<LogPattern> pattern;  // in the message; of a mark also in what it marks and in its request

  // An element without a time is outside every limit of time.
  bool takes(const LogRecord& record) const;
};

}  // namespace tovanctl
