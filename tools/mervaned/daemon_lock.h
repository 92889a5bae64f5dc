// daemon_lock.h: one daemon for each user.
#pragma once

#include <sys/types.h>

#include <string>

namespace mervaned {

// The lock of "mervaned.lock" in the configuration folder, which says who the daemon is before anything else does. It
// goes with this object, or with the process, and does not reach children. The file stays and holds the daemon's
// process id, for people.
class DaemonLock {
 public:
  // Makes the configuration folder when it is missing. Throws std::system_error when the file cannot be used, and what
  // the PID file throws.
  DaemonLock();
  ~DaemonLock();
  DaemonLock(const DaemonLock&) = delete;
  DaemonLock& operator=(const DaemonLock&) = delete;

  // False when another process has it.
  bool isHeld() const noexcept { return isHeld_; }
  // What the file says about the process that has the lock; "" when it does not say.
  std::string owner() const;

 private:
  int descriptor_ = -1;
  bool isHeld_ = false;
};

}  // namespace mervaned
