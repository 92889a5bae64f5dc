#include "tools/tovanctl/log_filter.h"

#include <regex.h>

#include "tools/tovanctl/exit_code.h"

namespace tovanctl {

struct LogPattern::Compiled {
  regex_t expression{};
  bool isUsable = false;
  Compiled() = default;
  Compiled(const Compiled&) = delete;
  Compiled& operator=(const Compiled&) = delete;
  ~Compiled() {
    if (isUsable) ::regfree(&expression);
  }
};

LogPattern::LogPattern(const std::string& option, const std::string& expression) {
  const auto compiled = std::make_shared<Compiled>();
  const int failed = ::regcomp(&compiled->expression, expression.c_str(), REG_EXTENDED | REG_NOSUB);
  compiled->isUsable = failed == 0;
  if (failed != 0) {
    char reason[256];
    ::regerror(failed, &compiled->expression, reason, sizeof reason);
    throw CommandError(kUsage, option + ": \"" + expression + "\" is no regular expression: " + reason);
  }
  compiled_ = compiled;
}

bool LogPattern::isFoundIn(const std::string& text) const {
  return ::regexec(&compiled_->expression, text.c_str(), 0, nullptr, 0) == 0;
}

bool LogFilter::takes(const LogRecord& record) const {
  if (level && record.level > *level) return false;
  if ((since || until) && !record.time) return false;
  if (since && *record.time < *since) return false;
  if (until && *record.time > *until) return false;
  if (!pattern) return true;
  return pattern->isFoundIn(record.message) || (!record.what.empty() && pattern->isFoundIn(record.what)) ||
         (!record.requestID.empty() && pattern->isFoundIn(record.requestID));
}

}  // namespace tovanctl
