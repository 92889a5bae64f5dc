// request_timeout.h: how long a client waits for a reply when nobody says.
#pragma once

namespace tovan::internal {

// Whole seconds: CSharedStorageUtils::requestTimeout(), unless a test has set another number of them. Any thread.
long standardRequestTimeout() noexcept;

// For tests, which cannot wait a minute. A negative number brings the real one back.
void setStandardRequestTimeout(long seconds) noexcept;

}  // namespace tovan::internal
