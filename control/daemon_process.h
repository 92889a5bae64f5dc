// daemon_process.h: how the daemon is known.
#pragma once

#include <CoreFoundation/CFString.h>

namespace tovan {

// The daemon's process name, and its name in the PID file.
inline CFStringRef daemonName() { return CFSTR("mervaned"); }
// The version of the daemon that belongs to this library.
inline CFStringRef daemonVersion() { return CFSTR("2"); }

}  // namespace tovan
