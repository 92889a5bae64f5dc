// failure_report.h: failures that become a line on the console instead of reaching the caller.
#pragma once

#include <plinth/exception.h>

#include <string>

namespace tovan {

// Writes "FUNCTION failed, exception = MESSAGE.", a newline and the advice to the console.
void reportFailure(const std::string& function, const plinth::CException& failure, const std::string& advice = "");

// Runs an action, and reports a plinth::CException that leaves it. Exceptions of other types pass through.
template <class Action>
void reportingFailures(const std::string& function, Action&& action, const std::string& advice = "") {
  try {
    action();
  } catch (const plinth::CException& failure) {
    reportFailure(function, failure, advice);
  }
}

}  // namespace tovan
