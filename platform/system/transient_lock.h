// transient_lock.h: a lock that leaves no file behind.
#pragma once

#include "platform/system/descriptor.h"
#include "platform/system/export.h"

namespace platform {

// Creates the file (permissions 0666 less the process's mask) or opens the one that is there, waits for its exclusive
// lock, and removes its name at once: the lock lives on the descriptor alone and goes when that is closed. Whoever
// opened the same file before its name went waits; whoever comes later makes a file of their own and does not, so what
// is done under the lock must bear company.
//
// A symbolic link (ELOOP) and a folder are refused, and a FIFO is not waited for. Empty, with errno, on failure.
PLATFORM_EXPORT Descriptor openTransientLock(const char* path) noexcept;

}  // namespace platform
