#include "storage/exports_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "foundation/replacement_file.h"
#include "platform/system/descriptor.h"
#include "platform/system/error_text.h"
#include "platform/system/locked_file.h"
#include "storage/file_system_path.h"

namespace tovan {

using platform::Descriptor;

namespace {

constexpr std::size_t kLargest = std::size_t{8} << 20U;

[[noreturn]] void throwTooLarge() { throw ExportsFileFailure(EFBIG, "it is larger than 8 MiB"); }

std::string contentOf(const Descriptor& file) {
  std::string text;
  char buffer[65536];
  for (;;) {
    const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw ExportsFileFailure(errno);
    if (count == 0) return text;
    text.append(buffer, static_cast<std::size_t>(count));
    if (text.size() > kLargest) throwTooLarge();
  }
}

// Whether there is a file; throws for what another file may not take the place of. The folder would let a file be
// replaced that is protected itself.
bool isThere(const std::string& path) {
  struct stat facts {};
  if (::stat(path.c_str(), &facts) != 0) {
    if (errno != ENOENT) throw ExportsFileFailure(errno);
    if (::lstat(path.c_str(), &facts) == 0) throw ExportsFileFailure(ENOENT, "it is a link that leads nowhere");
    return false;
  }
  if (!S_ISREG(facts.st_mode)) throw ExportsFileFailure(EINVAL, "it is not a regular file");
  if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) throw ExportsFileFailure(errno);
  return true;
}

void write(const std::string& path, std::string_view text, bool isNew) {
  const Descriptor file = Descriptor::open(path.c_str(), O_WRONLY);
  struct stat facts {};
  const bool isWritten = file && platform::reserveSpace(file.get(), static_cast<off_t>(text.size())) &&
                         platform::writeAll(file, text.data(), text.size()) && ::fstat(file.get(), &facts) == 0 &&
                         (!isNew || ::fchmod(file.get(), facts.st_mode & 0644) == 0);
  if (!isWritten) throw ExportsFileFailure(errno);
}

}  // namespace

ExportsFileFailure::ExportsFileFailure(int error) : ExportsFileFailure(error, platform::errorText(error)) {}

std::string ExportsFile::folder() const {
  const std::string real = realPath(path_);
  const std::string& path = real.empty() ? path_ : real;
  const std::string::size_type slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

std::string ExportsFile::read() const {
  // Without O_NONBLOCK a FIFO that nobody writes would hold the caller for ever.
  const Descriptor file = Descriptor::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  struct stat facts {};
  if (!file) {
    const int error = errno;
    const bool isLink = ::lstat(path_.c_str(), &facts) == 0;
    if (error == ENOENT && !isLink) return {};
    throw error == ENOENT ? ExportsFileFailure(error, "it is a link that leads nowhere") : ExportsFileFailure(error);
  }
  if (::fstat(file.get(), &facts) != 0) throw ExportsFileFailure(errno);
  if (!S_ISREG(facts.st_mode)) throw ExportsFileFailure(EINVAL, "it is not a regular file");
  if (facts.st_size > static_cast<off_t>(kLargest)) throwTooLarge();
  return contentOf(file);
}

bool ExportsFile::replace(std::string_view text, const std::string* expected) const {
  if (text.size() > kLargest) throwTooLarge();
  const bool isNew = !isThere(path_);
  ReplacementFile replacement(path_);
  if (replacement.error() != 0) throw ExportsFileFailure(replacement.error());
  write(replacement.path(), text, isNew);
  // Before the comparison, so that hardly any time is left between that and the replacement.
  if (const int error = replacement.flush()) throw ExportsFileFailure(error);
  if (expected != nullptr && read() != *expected) return false;
  if (const int error = replacement.replace()) throw ExportsFileFailure(error);
  return true;
}

}  // namespace tovan
