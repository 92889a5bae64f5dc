// exit_gate.h: process exit waits for a piece of work that must not be cut off in the middle.
//
// The work holds an ExitHold. exit() (and so the return from main) and quick_exit() let every hold that was granted
// come to its end, and from then on grant none: a thread that asks gives up its file lock and sleeps until the process
// is gone. The thread that ends the process is always granted one. _exit, abort and signals end the process at once.
//
// The gate closes when the platform library's own destructor functions run, that is after the functions that the
// program registered with atexit and after its static destructors; under quick_exit, when the functions that were
// registered after the process's first hold have run. A child of fork begins with an open gate and no hold.
#pragma once

#include "platform/system/export.h"

namespace platform {

class PLATFORM_EXPORT ExitHold {
 public:
  // Keep the work short: the whole process waits for it. `lockedDescriptor` is the file whose lock is given up when no
  // hold is granted any more, so that nobody waits for a thread that sleeps for ever.
  explicit ExitHold(int lockedDescriptor) noexcept;
  ExitHold(const ExitHold&) = delete;
  ExitHold& operator=(const ExitHold&) = delete;
  ~ExitHold();
};

}  // namespace platform
