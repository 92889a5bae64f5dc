#include "platform/corefoundation/stream_file.h"

#include "platform/corefoundation/runtime.h"

#include <CoreFoundation/CFString.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <climits>

namespace cf {
namespace {

constexpr mode_t kCreationMode = 0666;

template <class Call>
auto uninterrupted(const Call& call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace

int StreamFile::open(const std::string& path, int flags) {
  // Without blocking, so that a FIFO that nobody serves does not hold the caller up; files do not care.
  const int descriptor =
      uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, kCreationMode); });
  // A FIFO without a reader, or a socket, cannot even be opened for writing.
  if (descriptor == -1) return errno == ENXIO ? EINVAL : errno;
  struct stat facts {};
  int problem = ::fstat(descriptor, &facts) == 0 ? 0 : errno;
  if (problem == 0 && !S_ISREG(facts.st_mode)) problem = S_ISDIR(facts.st_mode) ? EISDIR : EINVAL;
  if (problem != 0) {
    ::close(descriptor);
    return problem;
  }
  descriptor_ = descriptor;
  return 0;
}

int StreamFile::openForReading(const std::string& path) { return open(path, O_RDONLY); }

int StreamFile::openForWriting(const std::string& path, bool append) {
  // Emptied only once it is known to be a file.
  if (const int problem = open(path, O_WRONLY | O_CREAT | (append ? O_APPEND : 0)); problem != 0) return problem;
  if (append || uninterrupted([&] { return ::ftruncate(descriptor_, 0); }) == 0) return 0;
  const int problem = errno;
  static_cast<void>(close());
  return problem;
}

int StreamFile::close() {
  if (descriptor_ == -1) return 0;
  const int descriptor = descriptor_;
  descriptor_ = -1;
  // An interrupted close has closed the descriptor all the same.
  return ::close(descriptor) == 0 || errno == EINTR ? 0 : errno;
}

std::ptrdiff_t StreamFile::read(std::uint8_t* to, std::size_t count, int& problem) {
  const std::ptrdiff_t result = uninterrupted([&] { return ::read(descriptor_, to, count); });
  if (result == -1) problem = errno;
  return result;
}

std::ptrdiff_t StreamFile::write(const std::uint8_t* from, std::size_t count, int& problem) {
  const std::ptrdiff_t result = uninterrupted([&] { return ::write(descriptor_, from, count); });
  if (result == -1) problem = errno;
  return result;
}

std::optional<std::string> pathOfFileURL(CFURLRef url) {
  if (url == nullptr) return std::nullopt;
  const Owned<CFURLRef> absolute(CFURLCopyAbsoluteURL(url));
  const Owned<CFStringRef> scheme(absolute ? CFURLCopyScheme(absolute.get()) : nullptr);
  if (!scheme || CFStringCompare(scheme.get(), CFSTR("file"), kCFCompareCaseInsensitive) != kCFCompareEqualTo) {
    return std::nullopt;
  }
  UInt8 path[PATH_MAX];
  if (!CFURLGetFileSystemRepresentation(absolute.get(), true, path, sizeof path)) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(path));
}

}  // namespace cf
