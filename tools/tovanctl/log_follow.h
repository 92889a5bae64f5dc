// log_follow.h: `tovanctl log follow`.
#pragma once

#include "tools/tovanctl/log_options.h"

namespace tovanctl {

// Prints the last records of a log and then each new one as it is written, until Ctrl-C. Goes on when the file is
// emptied or replaced, and waits for one that is not there; says so on standard error.
void followLog(const LogOptions& options);

}  // namespace tovanctl
