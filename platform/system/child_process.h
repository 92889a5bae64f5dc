// child_process.h: what stands between fork and execve.
#pragma once

#include "platform/system/export.h"

#include <signal.h>
#include <sys/types.h>

namespace platform {

// Closes every descriptor from `first` on, at the same cost whatever the limit on open files is. Async-signal-safe.
PLATFORM_EXPORT void closeDescriptorsFrom(int first) noexcept;

// Keeps signals from this thread while a process or a thread is started: what is started begins with all of them
// blocked, so none is lost and no handler of this process runs in the wrong place. Not for more than that; nothing else
// can be sent to the thread meanwhile.
class PLATFORM_EXPORT BlockedSignals {
 public:
  BlockedSignals() noexcept;
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;
  // Gives the thread back the mask that it had.
  ~BlockedSignals();

  // The last step before execve in the child of a fork: gives the signals that have a handler their default action
  // (they get it at execve anyway), then the mask back, so that a signal that came in between does to the child what it
  // would do to the program. Async-signal-safe.
  void releaseInChild() const noexcept;

 private:
  sigset_t before_;
};

// Whether `id` is a child of this process that nobody has collected, running or not. Never waits.
PLATFORM_EXPORT bool isOwnChild(pid_t id) noexcept;

// Waits until a child of this process has ended and leaves it to be collected, so that its id cannot be given away yet.
// False, with errno, when there is no such child, also when it is collected by others meanwhile.
PLATFORM_EXPORT bool awaitEndOfChild(pid_t id) noexcept;

// Collects a child that has ended, without waiting; false when there is none of that id.
PLATFORM_EXPORT bool collectChild(pid_t id, int& waitStatus) noexcept;

}  // namespace platform
