#include "platform/system/processors.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>

namespace platform {
namespace {

constinit std::atomic<int> countForTesting{0};

}  // namespace

std::optional<int> knownProcessorCount() noexcept {
  const int forTesting = countForTesting.load(std::memory_order_relaxed);
  const long count = forTesting != 0 ? forTesting : ::sysconf(_SC_NPROCESSORS_ONLN);
  if (count < 1) return std::nullopt;
  return static_cast<int>(std::min<long>(count, INT_MAX));
}

int processorCount() noexcept { return knownProcessorCount().value_or(1); }

void setProcessorCountForTesting(int count) noexcept { countForTesting.store(count, std::memory_order_relaxed); }

}  // namespace platform
