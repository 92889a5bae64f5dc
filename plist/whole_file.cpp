#include "plist/whole_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "platform/system/locked_file.h"

namespace tovan {
namespace {

// One transfer, begun again only when a signal came before the first byte. A short count is a failure.
template <class Transfer>
bool transferAll(std::size_t size, Transfer transfer) {
  ssize_t done;
  do {
    done = transfer();
  } while (done < 0 && errno == EINTR);
  if (done >= 0 && static_cast<std::size_t>(done) != size) errno = EIO;
  return done >= 0 && static_cast<std::size_t>(done) == size;
}

struct FreeBytes {
  void operator()(UInt8* bytes) const noexcept { std::free(bytes); }
};

}  // namespace

plinth::CSharedCFRef<CFDataRef> readWhole(int descriptor) {
  struct stat status;
  if (::fstat(descriptor, &status) != 0) return nullptr;
  if (S_ISDIR(status.st_mode)) {
    errno = EISDIR;
    return nullptr;
  }
  const std::size_t size = static_cast<std::size_t>(status.st_size);
  std::unique_ptr<UInt8, FreeBytes> bytes(static_cast<UInt8*>(std::malloc(size + 1)));
  if (bytes == nullptr) return nullptr;
  if (!transferAll(size, [&] { return ::pread(descriptor, bytes.get(), size, 0); })) return nullptr;
  plinth::CSharedCFRef<CFDataRef> data =
      CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes.get(), static_cast<CFIndex>(size), kCFAllocatorDefault);
  if (!data.isNull()) static_cast<void>(bytes.release());  // the data frees them
  return data;
}

bool writeWhole(int descriptor, CFDataRef data) {
  const off_t size = static_cast<off_t>(CFDataGetLength(data));
  return platform::reserveSpace(descriptor, size) && transferAll(static_cast<std::size_t>(size), [&] {
           return ::pwrite(descriptor, CFDataGetBytePtr(data), static_cast<std::size_t>(size), 0);
         });
}

bool truncateTo(int descriptor, off_t size) {
  int result;
  do {
    result = ::ftruncate(descriptor, size);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace tovan
