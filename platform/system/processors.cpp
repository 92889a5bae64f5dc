#include "platform/system/processors.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>

namespace platform {
namespace {

constinit std::atomic<int> countForTesting{0};

}  // namespace

int processorCount() noexcept {
  if (const int count = countForTesting.load(std::memory_order_relaxed); count > 0) return count;
  return static_cast<int>(std::clamp<long>(::sysconf(_SC_NPROCESSORS_ONLN), 1, INT_MAX));
}

void setProcessorCountForTesting(int count) noexcept { countForTesting.store(count, std::memory_order_relaxed); }

}  // namespace platform
