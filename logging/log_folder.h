// log_folder.h: where services log to.
#pragma once

#include <plinth/string.h>

namespace tovan {

// kTovanLogFilePath with its tilde expanded.
plinth::CStringRef logFolder();

// Makes the log folder with mode 0700, and what is missing above it up to the home folder; a folder that is there gets
// that mode. A symbolic link in its place is left alone. A failure shows when the log is opened.
void makeLogFolder();

// The log of a service's instance.
plinth::CStringRef logPathOf(const plinth::CStringRef& serviceName, unsigned int instance);

// Whether a path lies directly in the log folder.
bool isInLogFolder(const plinth::CStringRef& path);

}  // namespace tovan
