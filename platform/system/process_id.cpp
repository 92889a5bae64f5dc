#include "platform/system/process_id.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace platform {
namespace {

constinit std::atomic<pid_t> known{0};
constinit pthread_once_t once = PTHREAD_ONCE_INIT;
constinit std::atomic<bool> isWatchingForks{false};

void refresh() { known.store(::getpid(), std::memory_order_relaxed); }

void watchForks() { isWatchingForks.store(::pthread_atfork(nullptr, nullptr, refresh) == 0); }

}  // namespace

pid_t processId() noexcept {
  if (const pid_t id = known.load(std::memory_order_relaxed); id != 0) return id;
  ::pthread_once(&once, watchForks);
  // Kept only once a fork is sure to be noticed.
  if (isWatchingForks.load()) refresh();
  return ::getpid();
}

}  // namespace platform
