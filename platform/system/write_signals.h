// write_signals.h: WriteSignalGuard, writing without the signals that a write may raise.
#pragma once

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace platform {

// Keeps SIGPIPE (nobody reads the pipe) and SIGXFSZ (the file-size limit is reached) from the process for a scope, also
// those that a write in it raises: the write's own error tells. One that was pending before stays pending.
class WriteSignalGuard {
 public:
  WriteSignalGuard() noexcept {
    sigset_t pending;
    sigpending(&pending);
    sigemptyset(&signals_);
    sigemptyset(&raised_);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      sigaddset(&signals_, signal);
      if (sigismember(&pending, signal) == 0) sigaddset(&raised_, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &signals_, &former_);
  }
  ~WriteSignalGuard() {
    const int saved = errno;
    const timespec none{};
    while (::sigtimedwait(&raised_, nullptr, &none) > 0 || errno == EINTR) {
    }
    ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
    errno = saved;
  }
  WriteSignalGuard(const WriteSignalGuard&) = delete;
  WriteSignalGuard& operator=(const WriteSignalGuard&) = delete;

 private:
  sigset_t signals_;
  sigset_t raised_;  // those of them that were not pending before
  sigset_t former_;
};

}  // namespace platform
