// processors.h: how many processors this host has.
#pragma once

#include "platform/system/export.h"

#include <optional>

namespace platform {

// The processors that are on line, at least 1. This is the host's number, not this process's share: an affinity mask
// or a control group's quota does not lower it, so that all processes of the cluster, however they were started, count
// the same.
PLATFORM_EXPORT int processorCount() noexcept;

// The same, for who wants to know that the system does not tell: nothing then.
PLATFORM_EXPORT std::optional<int> knownProcessorCount() noexcept;

// For tests: makes processorCount answer `count`, or makes a system that does not tell with a negative one; 0 makes it
// ask the system again.
PLATFORM_EXPORT void setProcessorCountForTesting(int count) noexcept;

}  // namespace platform
