// process_id.h: this process's id without a system call each time.
#pragma once

#include "platform/system/export.h"

#include <sys/types.h>

namespace platform {

// What getpid() answers. The number is kept after the first call and asked for again in the child of a fork. Safe from
// any thread and from signal handlers once a first call has returned.
PLATFORM_EXPORT pid_t processId() noexcept;

}  // namespace platform
