// scoped_umask.h: a file-creation mask for one scope.
//
// The mask belongs to the whole process: files that other threads create in the meantime are created under it too, so
// keep the scope to the one call that needs it. If scopes of two threads overlapped the wrong mask might stay, so one
// mutex serialises them; within a thread scopes may nest.
#pragma once

#include "platform/system/export.h"

#include <sys/types.h>

namespace platform {

class PLATFORM_EXPORT ScopedUmask {
 public:
  // Waits until no other thread holds a scope, then sets the mask.
  explicit ScopedUmask(mode_t mask) noexcept;
  // Puts the former mask back.
  ~ScopedUmask();
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  mode_t former_;
};

}  // namespace platform
