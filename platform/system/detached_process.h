// detached_process.h: launching a program that lives on by itself.
#pragma once

#include "platform/system/export.h"

#include <string>

namespace platform {

// Runs the program, without arguments, as a process that belongs to nobody here: the system adopts it, so that it never
// waits for this process to collect it, in a session of its own, so that neither a terminal nor its keys reach it. It
// has this process's environment, current directory and standard error; standard input and output are /dev/null,
// nothing else is open, no signal is blocked or ignored.
//
// Returns when the program runs or has failed to: 0, or the errno of what failed, be it the program (ENOENT, EACCES,
// ENOEXEC, ...) or the launch (EAGAIN, ENOMEM, EMFILE). Safe from any thread, also in a process that ignores SIGCHLD or
// collects all its children.
PLATFORM_EXPORT int launchDetached(const std::string& program) noexcept;

}  // namespace platform
