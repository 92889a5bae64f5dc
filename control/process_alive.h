// process_alive.h: whether a process id of the PID file stands for a process.
#pragma once

#include <signal.h>

#include <cstdint>

namespace tovan {

// Whether it exists and this user may signal it. 0 and negative numbers address groups of processes, never one.
inline bool isAlive(std::int32_t pid) { return pid > 0 && ::kill(pid, 0) == 0; }

}  // namespace tovan
