// console_user.h: who sits at the machine.
#pragma once

#include "platform/system/export.h"

#include <sys/types.h>

namespace platform {

// The user that owns /dev/console, or (uid_t)-1 when that cannot be told. Linux leaves the device to root unless
// something gives it to whoever logs in at the screen.
PLATFORM_EXPORT uid_t consoleUser() noexcept;

}  // namespace platform
