#include "platform/system/transient_lock.h"

#include <sys/file.h>

namespace platform {

Descriptor openTransientLock(const char* path) noexcept {
  Descriptor file = Descriptor::open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0666);
  if (!file) return file;
  int result;
  do {
    result = ::flock(file.get(), LOCK_EX);
  } while (result != 0 && errno == EINTR);
  if (result != 0) return Descriptor();  // keeps errno while closing
  ::unlink(path);
  return file;
}

}  // namespace platform
