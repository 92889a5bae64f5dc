#include "tools/launchctl/embedded/host_folder.h"

#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>

#include "tools/launchctl/failure.h"

namespace launchctl {
namespace {

constexpr const char* kSocket = "socket";

std::string placeOfFolder() {
  const char* const given = std::getenv(kFolderVariable);
  if (given != nullptr && *given != '\0') return given;
  return "/tmp/tovan-launchd-" + std::to_string(::geteuid());
}

// An address may hold 107 bytes; through the open folder the path is short whatever its length.
sockaddr_un addressIn(int folder) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + kSocket;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

Descriptor newSocket(int flags) {
  Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
  if (!made) throw systemFailure("cannot make a socket");
  return made;
}

}  // namespace

HostFolder::HostFolder() : path_(placeOfFolder()) {
  if (::mkdir(path_.c_str(), 0700) != 0 && errno != EEXIST) throw systemFailure("cannot make the folder " + path_);
  folder_.reset(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder_) throw systemFailure("cannot use the folder " + path_);
  struct stat facts {};
  if (::fstat(folder_.get(), &facts) != 0) throw systemFailure("cannot look at the folder " + path_);
  if (facts.st_uid != ::geteuid()) {
    throw Failure("the folder " + path_ + " belongs to user " + std::to_string(facts.st_uid) + ": not used");
  }
  if ((facts.st_mode & 077U) != 0) throw Failure("the folder " + path_ + " is open to others: not used; chmod 700 it");
}

Descriptor HostFolder::lock(const char* name) const {
  Descriptor file(::openat(folder_.get(), name, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw systemFailure("cannot open " + path_ + "/" + name);
  while (::flock(file.get(), LOCK_EX) != 0) {
    if (errno != EINTR) throw systemFailure("cannot lock " + path_ + "/" + name);
  }
  return file;
}

std::string HostFolder::read(const char* name) const {
  const Descriptor file(::openat(folder_.get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == ENOENT) return {};
  if (!file) throw systemFailure("cannot open " + path_ + "/" + name);
  std::string content;
  char buffer[16384];
  for (;;) {
    const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemFailure("cannot read " + path_ + "/" + name);
    if (count == 0) return content;
    content.append(buffer, static_cast<std::size_t>(count));
  }
}

void HostFolder::replace(const char* name, const std::string& content) const {
  const std::string fresh = std::string(name) + ".new";
  const std::string what = "cannot write " + path_ + "/" + name;
  Descriptor file(::openat(folder_.get(), fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw systemFailure(what);
  for (std::size_t at = 0; at < content.size();) {
    const ssize_t count = ::write(file.get(), content.data() + at, content.size() - at);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemFailure(what);
    at += static_cast<std::size_t>(count);
  }
  if (::renameat(folder_.get(), fresh.c_str(), folder_.get(), name) != 0) throw systemFailure(what);
}

void HostFolder::remove(const char* name) const noexcept { ::unlinkat(folder_.get(), name, 0); }

bool HostFolder::has(const char* name) const noexcept {
  struct stat facts {};
  return ::fstatat(folder_.get(), name, &facts, AT_SYMLINK_NOFOLLOW) == 0;
}

Descriptor HostFolder::listen() const {
  Descriptor socket = newSocket(SOCK_NONBLOCK);
  ::unlinkat(folder_.get(), kSocket, 0);
  const sockaddr_un address = addressIn(folder_.get());
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(socket.get(), 128) != 0) {
    throw systemFailure("cannot listen in " + path_);
  }
  return socket;
}

Descriptor HostFolder::connect() const {
  Descriptor socket = newSocket(0);
  const sockaddr_un address = addressIn(folder_.get());
  while (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno == EINTR) continue;
    if (errno == ENOENT || errno == ECONNREFUSED) return {};
    throw systemFailure("cannot reach the host in " + path_);
  }
  return socket;
}

}  // namespace launchctl
