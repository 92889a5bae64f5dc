// locked_file.h: opening a file together with its whole-file lock, and reserving the space of a write beforehand.
//
// The lock is flock's: advisory, shared or exclusive, on the open file, and gone when its last descriptor is closed.
// Safe from any thread.
#pragma once

#include "platform/system/descriptor.h"
#include "platform/system/export.h"

#include <sys/types.h>

namespace platform {

enum class FileLock {
  shared,    // opens for reading; a missing file is the error ENOENT
  exclusive  // opens for reading and writing; a missing file is created with permissions 0600
};

// Opens the file and takes the lock, waiting for as long as others hold one that excludes it. The file that is locked
// is the one at the path at the moment the lock is had: one that was renamed or removed while this call waited is let
// go, and the path is opened again. Nothing but the lock is waited for: a FIFO in the file's place is opened at once.
//
// Empty, with errno, on failure.
PLATFORM_EXPORT Descriptor openLocked(const char* path, FileLock lock) noexcept;

// Makes sure that the first `size` bytes of an open file can be written; its size and content stay as they are. Space
// that turns out not to be needed is given back by truncating the file.
//
// True when the space is there, and also when the file system cannot reserve any: then the write itself has to tell.
// False, with errno, when there is no room (ENOSPC, EDQUOT), when the process's file-size limit is lower (EFBIG, and no
// SIGXFSZ), and on any other failure; the file is then as before.
PLATFORM_EXPORT bool reserveSpace(int descriptor, off_t size) noexcept;

}  // namespace platform
