#include "platform/system/scoped_umask.h"

#include <sys/stat.h>

#include <mutex>

namespace platform {
namespace {

constinit std::recursive_mutex maskMutex;

}  // namespace

ScopedUmask::ScopedUmask(mode_t mask) noexcept : former_(0) {
  maskMutex.lock();
  former_ = ::umask(mask);
}

ScopedUmask::~ScopedUmask() {
  ::umask(former_);
  maskMutex.unlock();
}

}  // namespace platform
