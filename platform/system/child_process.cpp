#include "platform/system/child_process.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace platform {
namespace {

// For kernels, and sandboxes, that refuse close_range.
void closeOneByOne(int first) noexcept {
  rlimit limit{};
  rlim_t end = 65536;
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) end = limit.rlim_cur;
  end = std::min<rlim_t>(end, INT_MAX);
  for (int number = first; static_cast<rlim_t>(number) < end; ++number) ::close(number);
}

}  // namespace

void closeDescriptorsFrom(int first) noexcept {
  if (::close_range(static_cast<unsigned>(first), ~0U, 0) != 0) closeOneByOne(first);
}

BlockedSignals::BlockedSignals() noexcept {
  sigset_t all;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before_);
}

BlockedSignals::~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

void BlockedSignals::releaseInChild() const noexcept {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action;
    if (::sigaction(signal, nullptr, &action) != 0) continue;
    if (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(signal, &action, nullptr);
  }
  ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

bool isOwnChild(pid_t id) noexcept {
  siginfo_t info;
  return id > 0 && ::waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT | WNOHANG) == 0;
}

bool awaitEndOfChild(pid_t id) noexcept {
  siginfo_t info;
  int result;
  do {
    result = ::waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool collectChild(pid_t id, int& waitStatus) noexcept { return id > 0 && ::waitpid(id, &waitStatus, WNOHANG) == id; }

}  // namespace platform
