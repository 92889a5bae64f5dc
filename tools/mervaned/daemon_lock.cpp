#include "tools/mervaned/daemon_lock.h"

#include <fcntl.h>
#include <plinth/shared_cf_ref.h>
#include <sys/file.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <tovan/service_pid_file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tools/support/text.h"

namespace mervaned {
namespace {

std::string lockPath() {
  const plinth::CSharedCFRef<CFStringRef> folder(TovanExpandTildeInPath(tovan::TovanCorePrivate::kTovanConfigPath));
  std::string path = tools::textOf(folder.get());
  if (path.empty() || path.back() != '/') path += '/';
  return path + "mervaned.lock";
}

// Locking a file of the folder for writing makes the folder, as the library makes it.
void makeConfigurationFolder() {
  const tovan::CServicePIDFile file(CFSTR("mervaned"));
  file.lockForRW();
}

}  // namespace

DaemonLock::DaemonLock() {
  makeConfigurationFolder();
  const std::string path = lockPath();
  descriptor_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "cannot open " + path);
  isHeld_ = ::flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
  if (!isHeld_ && errno != EWOULDBLOCK) {
    const int error = errno;
    ::close(descriptor_);
    throw std::system_error(error, std::generic_category(), "cannot lock " + path);
  }
  if (!isHeld_) return;
  const std::string id = std::to_string(::getpid()) + "\n";
  // For people only: the lock alone counts.
  if (::ftruncate(descriptor_, 0) == 0) {
    [[maybe_unused]] const ssize_t written = ::pwrite(descriptor_, id.data(), id.size(), 0);
  }
}

DaemonLock::~DaemonLock() { ::close(descriptor_); }

std::string DaemonLock::owner() const {
  char digits[16];
  const ssize_t count = ::pread(descriptor_, digits, sizeof digits, 0);
  const std::string text(digits, count > 0 ? static_cast<std::size_t>(count) : 0);
  return text.substr(0, text.find_first_not_of("0123456789"));
}

}  // namespace mervaned
