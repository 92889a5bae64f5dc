// console_log.h: the console line, for what a person at the machine should see.
#pragma once

#include "platform/system/export.h"

namespace platform {

// Writes "YYYY-MM-DD hh:mm:ss.mmm NAME[PID] text" and a newline to standard error, in local time, as one write(2), so
// that lines of several threads and processes do not mix. NAME is the program's own name. Newlines at the end of the
// text become the one that ends the line; those within it stay. Null is the empty text.
//
// The line may get lost, and the host program never suffers from it: nothing is thrown, errno is kept, a standard error
// that is closed, full or a pipe that nobody reads any more (no SIGPIPE is raised) swallows the line, and one that
// takes nothing is given up after a fifth of a second. Safe from any thread, not from a signal handler nor in the child
// of a fork of a threaded program.
PLATFORM_EXPORT void consoleLog(const char* text) noexcept;

}  // namespace platform
