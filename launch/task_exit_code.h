// task_exit_code.h: the one number for how a child ended.
#pragma once

#include <sys/wait.h>

namespace tovan {

// From a wait status: the signal's number for a child that a signal ended, else the exit status. A child that only
// stopped, which is reported to a tracer, gives 0.
inline int exitCodeOf(int waitStatus) noexcept {
  if (WIFSIGNALED(waitStatus)) return WTERMSIG(waitStatus);
  return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 0;
}

}  // namespace tovan
