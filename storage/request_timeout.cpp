#include "storage/request_timeout.h"

#include <tovan/shared_storage_utils.h>

#include <atomic>

namespace tovan::internal {
namespace {

constinit std::atomic<long> testTimeout = -1;

}  // namespace

long standardRequestTimeout() noexcept {
  const long seconds = testTimeout.load(std::memory_order_relaxed);
  return seconds < 0 ? static_cast<long>(CSharedStorageUtils::requestTimeout()) : seconds;
}

void setStandardRequestTimeout(long seconds) noexcept { testTimeout.store(seconds, std::memory_order_relaxed); }

}  // namespace tovan::internal
