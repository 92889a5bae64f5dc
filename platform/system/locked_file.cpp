#include "platform/system/locked_file.h"

#include <sys/file.h>
#include <sys/resource.h>

namespace platform {
namespace {

template <class Call>
int repeatWhileInterrupted(Call call) noexcept {
  int result;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

// Whether the path still names the open file. One that names nothing does not.
bool isAtPath(int descriptor, const char* path) noexcept {
  struct stat locked;
  struct stat present;
  if (::fstat(descriptor, &locked) != 0 || ::stat(path, &present) != 0) return false;
  return locked.st_dev == present.st_dev && locked.st_ino == present.st_ino;
}

bool exceedsFileSizeLimit(off_t size) noexcept {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return false;
  return static_cast<rlim_t>(size) > limit.rlim_cur;
}

bool meansCannotReserve(int error) noexcept {
  return error == EOPNOTSUPP || error == ENOSYS || error == EINVAL || error == ENODEV || error == ESPIPE;
}

}  // namespace

Descriptor openLocked(const char* path, FileLock lock) noexcept {
  const bool exclusive = lock == FileLock::exclusive;
  // O_NONBLOCK changes nothing for a regular file, nor for the waiting of flock.
  const int flags = (exclusive ? O_RDWR | O_CREAT : O_RDONLY) | O_NONBLOCK | O_NOCTTY;
  for (;;) {
    Descriptor file = Descriptor::open(path, flags, S_IRUSR | S_IWUSR);
    if (!file) return file;
    if (repeatWhileInterrupted([&] { return ::flock(file.get(), exclusive ? LOCK_EX : LOCK_SH); }) != 0) {
      return Descriptor();  // keeps errno while closing
    }
    if (isAtPath(file.get(), path)) return file;
  }
}

bool reserveSpace(int descriptor, off_t size) noexcept {
  struct stat before;
  if (::fstat(descriptor, &before) != 0) return false;
  if (exceedsFileSizeLimit(size)) {
    errno = EFBIG;
    return false;
  }
  if (repeatWhileInterrupted([&] { return ::fallocate(descriptor, FALLOC_FL_KEEP_SIZE, 0, size); }) == 0) return true;
  if (meansCannotReserve(errno)) return true;
  // Gives back what the attempt may have got hold of behind the file's end.
  const int error = errno;
  repeatWhileInterrupted([&] { return ::ftruncate(descriptor, before.st_size); });
  errno = error;
  return false;
}

}  // namespace platform
