// log_show.h: `tovanctl log show`.
#pragma once

#include "tools/tovanctl/log_options.h"

namespace tovanctl {

// Prints the records of a log that the options want, as they are read; at the end what could not be read.
void showLog(const LogOptions& options);

}  // namespace tovanctl
