#include "platform/system/append_file.h"

#include "platform/system/write_signals.h"

#include <poll.h>
#include <sys/file.h>
#include <sys/resource.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <thread>

namespace platform {
namespace {

constexpr int kFlags = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr mode_t kMode = 0666;

// openat, begun again when a signal interrupts it.
Descriptor openIn(int folder, const char* name, int flags) noexcept {
  int number;
  do {
    number = ::openat(folder, name, flags | O_CLOEXEC, kMode);
  } while (number < 0 && errno == EINTR);
  return Descriptor(number);
}

Descriptor openNoLink(const std::string& path, AppendFile::FolderLink folder) {
  constexpr int kCreating = kFlags | O_CREAT | O_NOFOLLOW;
  const std::size_t slash = path.rfind('/');
  const std::size_t folderEnd = slash == std::string::npos ? slash : path.find_last_not_of('/', slash);
  if (folder == AppendFile::FolderLink::allowed || folderEnd == std::string::npos) {
    return openIn(AT_FDCWD, path.c_str(), kCreating);
  }
  // A slash behind the name would make the kernel follow the link.
  const Descriptor opened = openIn(AT_FDCWD, path.substr(0, folderEnd + 1).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW);
  if (!opened) return Descriptor();
  return openIn(opened.get(), path.c_str() + slash + 1, kCreating);
}

// What may be written into; nothing, with errno, for what may not.
std::optional<struct stat> examined(const Descriptor& file, bool isBelowDev, bool isFollowed) noexcept {
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0) return std::nullopt;
  const bool isAllowed =
      S_ISREG(status.st_mode) || (isBelowDev && (S_ISCHR(status.st_mode) || (isFollowed && !S_ISBLK(status.st_mode))));
  if (isAllowed) return status;
  errno = EINVAL;
  return std::nullopt;
}

bool hasFileSizeLimit() noexcept {
  struct rlimit limit;
  return ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

void waitUntilWritable(int descriptor) noexcept {
  pollfd entry{descriptor, POLLOUT, 0};
  ::poll(&entry, 1, -1);
}

}  // namespace

AppendFile AppendFile::open(const std::string& path, FolderLink folder) noexcept {
  try {
    const bool isBelowDev = path.starts_with("/dev/");
    AppendFile result;
    result.file_ = openNoLink(path, folder);
    bool isFollowed = false;
    if (!result.file_ && isBelowDev && errno == ELOOP) {
      result.file_ = openIn(AT_FDCWD, path.c_str(), kFlags);
      isFollowed = true;
    }
    const std::optional<struct stat> status = examined(result.file_, isBelowDev, isFollowed);
    if (!status) {
      result.file_.reset();
      return result;
    }
    result.isRegular_ = S_ISREG(status->st_mode);
    result.mayRaiseSignals_ = !result.isRegular_ || hasFileSizeLimit();
    // It was only the opening that must not wait.
    ::fcntl(result.file_.get(), F_SETFL, O_APPEND);
    if (result.isRegular_) ::lseek(result.file_.get(), 0, SEEK_END);
    return result;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return AppendFile();
  }
}

AppendFile AppendFile::standardError() noexcept {
  AppendFile result;
  result.isStandardError_ = true;
  return result;
}

off_t AppendFile::position() const noexcept {
  return isRegular_ ? ::lseek(file_.get(), 0, SEEK_END) : ::lseek(file_.get(), 0, SEEK_CUR);
}

bool AppendFile::truncate() noexcept {
  if (!isRegular_) return true;
  int result;
  do {
    result = ::ftruncate(file_.get(), 0);
  } while (result < 0 && errno == EINTR);
  return result == 0;
}

bool AppendFile::write(std::string_view bytes) noexcept {
  if (!mayRaiseSignals_) return writeAll(bytes);
  const WriteSignalGuard guard;
  if (writeAll(bytes)) return true;
  return isStandardError_ && (errno == EBADF || errno == EPIPE || errno == EIO);
}

bool AppendFile::writeAll(std::string_view bytes) noexcept {
  const int descriptor = isStandardError_ ? STDERR_FILENO : file_.get();
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      waitUntilWritable(descriptor);  // somebody who shares standard error has made it non-blocking
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

AppendFile::Turn::Turn(const AppendFile& file) noexcept : descriptor_(file.isRegular() ? file.file_.get() : -1) {
  using namespace std::chrono_literals;
  if (descriptor_ < 0) return;
  const auto deadline = std::chrono::steady_clock::now() + 1s;
  while (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > deadline) return;
    std::this_thread::sleep_for(1ms);
  }
}

AppendFile::Turn::~Turn() {
  if (descriptor_ >= 0) ::flock(descriptor_, LOCK_UN);
}

}  // namespace platform
