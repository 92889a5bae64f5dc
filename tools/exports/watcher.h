// watcher.h: passes for as long as the program runs.
#pragma once

#include "tools/exports/arguments.h"

namespace exports {

// Makes a pass, and another one each time the library's file or the configuration changes, or SIGHUP comes, until
// SIGTERM or SIGINT. A pass that fails is said on standard error, and what was exported stays as it was. Returns the
// exit code: kDone when asked to end; kRefused for a configuration that is refused from the first.
int watch(const Arguments& arguments);

// One pass, its report printed; failures are thrown.
int passOnce(const Arguments& arguments);

}  // namespace exports
