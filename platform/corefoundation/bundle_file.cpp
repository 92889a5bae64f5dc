#include "platform/corefoundation/bundle_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace cf {
namespace {

class OpenFile {
 public:
  explicit OpenFile(const char* path) noexcept
      // Not blocking: a FIFO put in place after the look at it must not hold the caller up.
      : number_(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
  ~OpenFile() {
    if (number_ >= 0) ::close(number_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int get() const noexcept { return number_; }

 private:
  int number_;
};

// Up to `limit` bytes to the file's end; false on an error and for a file that has grown past the limit.
bool readToEnd(int file, std::size_t expected, std::string& content) {
  content.resize(expected + 1);
  std::size_t used = 0;
  for (;;) {
    if (used == content.size()) {
      if (used > kBundleFileLimit) return false;
      content.resize(used * 2);
    }
    const ssize_t count = ::read(file, content.data() + used, content.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
  }
  content.resize(used);
  return used <= kBundleFileLimit;
}

bool sameTime(const timespec& left, const timespec& right) noexcept {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

}  // namespace

FileStamp FileStamp::of(const struct stat& status) noexcept {
  return {true, status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

FileStamp FileStamp::of(const std::string& path) noexcept {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 ? of(status) : FileStamp{};
}

bool FileStamp::operator==(const FileStamp& other) const noexcept {
  return present == other.present && device == other.device && inode == other.inode && size == other.size &&
         sameTime(modified, other.modified) && sameTime(changed, other.changed);
}

bool FileStamp::isSettled() const noexcept {
  if (!present) return true;
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  const double age =
      static_cast<double>(now.tv_sec - changed.tv_sec) + static_cast<double>(now.tv_nsec - changed.tv_nsec) / 1e9;
  return age > 0.1;
}

std::optional<std::string> readBundleFile(const std::string& path, FileStamp* stamp) {
  if (stamp != nullptr) *stamp = FileStamp{};
  struct stat status;
  // Looked at before it is opened: opening alone makes some devices act.
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  if (stamp != nullptr) *stamp = FileStamp::of(status);
  if (!S_ISREG(status.st_mode)) return std::nullopt;
  const OpenFile file(path.c_str());
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) return std::nullopt;
  if (stamp != nullptr) *stamp = FileStamp::of(status);
  if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(kBundleFileLimit)) return std::nullopt;
  std::string content;
  if (!readToEnd(file.get(), static_cast<std::size_t>(status.st_size), content)) return std::nullopt;
  return content;
}

bool pathExists(const std::string& path) noexcept {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0;
}

bool isDirectory(const std::string& path) noexcept {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isExecutableFile(const std::string& path) noexcept {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

}  // namespace cf
