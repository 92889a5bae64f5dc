#include "platform/system/exit_gate.h"

#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace platform {
namespace {

constexpr std::uint32_t kClosed = std::uint32_t{1} << 31;

// The number of holds, and kClosed once the process is ending.
constinit std::atomic<std::uint32_t> state{0};
constinit thread_local std::uint32_t ownHolds = 0;
constinit thread_local bool endsTheProcess = false;

// The threads that held are not in the child.
void openInChild() noexcept { state.store(ownHolds); }

// exit called from a signal handler may find a hold of its own thread, which can never end: it is not waited for.
void close() noexcept {
  endsTheProcess = true;
  std::uint32_t seen = state.fetch_or(kClosed) | kClosed;
  while ((seen & ~kClosed) > ownHolds) {
    state.wait(seen);
    seen = state.load();
  }
}

__attribute__((destructor)) void closeAtExit() { close(); }

void registerOnce() {
  static constinit pthread_once_t once = PTHREAD_ONCE_INIT;
  ::pthread_once(&once, [] {
    ::pthread_atfork(nullptr, nullptr, openInChild);
    ::at_quick_exit(close);
  });
}

void leave() noexcept {
  if ((state.fetch_sub(1) & kClosed) != 0) state.notify_all();
}

}  // namespace

ExitHold::ExitHold(int lockedDescriptor) noexcept {
  registerOnce();
  if ((state.fetch_add(1) & kClosed) != 0 && !endsTheProcess) {
    leave();
    ::flock(lockedDescriptor, LOCK_UN);
    for (;;) ::pause();
  }
  ++ownHolds;
}

ExitHold::~ExitHold() {
  --ownHolds;
  leave();
}

}  // namespace platform
