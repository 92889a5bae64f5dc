#include "control/failure_report.h"

#include <tovan/cf_util.h>

namespace tovan {

void reportFailure(const std::string& function, const plinth::CException& failure, const std::string& advice) {
  const std::string line = function + " failed, exception = " + failure.getMessage()->str() + ".\n" + advice;
  CFUtil::LogToConsole(line.c_str());
}

}  // namespace tovan
