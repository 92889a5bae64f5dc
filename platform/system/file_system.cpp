#include "platform/system/file_system.h"

#include "platform/system/descriptor.h"
#include "platform/system/mount_table.h"
#include "platform/system/small_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

namespace platform {
namespace {

constexpr int kMostLinks = 40;
constexpr std::size_t kRecordLimit = std::size_t{64} * 1024;

// Follows a path name by name, so that another machine's file system is noticed before anything on it is looked at.
class PathWalk {
 public:
  PathWalk(const MountTable& table, std::string path) : table_(table), rest_(std::move(path)) {}

  // The mount; null with errno.
  const Mount* run() {
    if (rest_.empty()) return failed(ENOENT);
    if (rest_.front() != '/' && !startAtWorkingFolder()) return nullptr;
    while (!rest_.empty()) {
      takeName();
      const Mount* const mount = table_.at(reached_.empty() ? "/" : reached_);
      if (mount != nullptr && !mount->facts.isLocal) return mount;
      if (!followLink()) return nullptr;
    }
    return mountReached();
  }

 private:
  const Mount* failed(int error) {
    errno = error;
    return nullptr;
  }

  bool startAtWorkingFolder() {
    char folder[PATH_MAX];
    if (::getcwd(folder, sizeof folder) == nullptr) return false;
    rest_ = std::string(folder) + "/" + rest_;
    return true;
  }

  // Moves the next name of what is left to what is reached.
  void takeName() {
    const std::size_t begin = rest_.find_first_not_of('/');
    if (begin == std::string::npos) {
      rest_.clear();
      return;
    }
    const std::size_t end = rest_.find('/', begin);
    const std::string name = rest_.substr(begin, end == std::string::npos ? end : end - begin);
    rest_ = end == std::string::npos ? std::string() : rest_.substr(end);
    if (name == "..") {
      reached_.erase(reached_.empty() ? 0 : reached_.rfind('/'));
    } else if (name != ".") {
      reached_ += "/" + name;
    }
  }

  // Replaces a symbolic link by what it says.
  bool followLink() {
    struct stat facts;
    if (::lstat(reached_.empty() ? "/" : reached_.c_str(), &facts) != 0) return false;
    if (!S_ISLNK(facts.st_mode)) {
      if (rest_.empty() || S_ISDIR(facts.st_mode)) return true;
      errno = ENOTDIR;
      return false;
    }
    if (++links_ > kMostLinks) {
      errno = ELOOP;
      return false;
    }
    char target[PATH_MAX];
    const ssize_t length = ::readlink(reached_.c_str(), target, sizeof target);
    if (length < 0) return false;
    const std::string says(target, static_cast<std::size_t>(length));
    rest_ = says + (rest_.empty() ? "" : "/") + rest_;
    reached_.erase(says.front() == '/' ? 0 : reached_.rfind('/'));
    return true;
  }

  const Mount* mountReached() {
    struct statx facts;
    const std::string path = reached_.empty() ? "/" : reached_;
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_MNT_ID, &facts) != 0) {
      return nullptr;
    }
    const bool isTold = (facts.stx_mask & STATX_MNT_ID) != 0;
    const Mount* mount = isTold ? table_.withId(facts.stx_mnt_id) : nullptr;
    if (mount == nullptr) mount = nearestAbove(path);
    return mount == nullptr ? failed(ENODEV) : mount;
  }

  const Mount* nearestAbove(std::string path) const {
    for (; !path.empty(); path.erase(path.rfind('/'))) {
      if (const Mount* const mount = table_.at(path)) return mount;
    }
    return table_.at("/");
  }

  const MountTable& table_;
  std::string reached_;  // without links; empty for the root
  std::string rest_;
  int links_ = 0;
};

// The file system's own name stands behind the jump instruction at the device's beginning. Who may not read the device
// has the word of the device manager's database.
bool carriesExFAT(const std::string& device) {
  constexpr char kName[] = "EXFAT   ";
  char start[11];
  const Descriptor file = Descriptor::open(device.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (file && ::pread(file.get(), start, sizeof start, 0) == sizeof start) {
    return std::memcmp(start + 3, kName, sizeof kName - 1) == 0;
  }
  struct stat facts;
  if (::stat(device.c_str(), &facts) != 0 || !S_ISBLK(facts.st_mode)) return false;
  const std::string record =
      "/run/udev/data/b" + std::to_string(major(facts.st_rdev)) + ":" + std::to_string(minor(facts.st_rdev));
  const auto content = readSmallFile(AT_FDCWD, record.c_str(), kRecordLimit);
  return content && content->find("E:ID_FS_TYPE=exfat\n") != std::string::npos;
}

}  // namespace

namespace internal {

std::string formatName(const std::string& type, const std::string& source) {
  constexpr const char* kExFAT = "exfat";
  if (type == "fuse.exfat" || type == "fuseblk.exfat") return kExFAT;
  return type == "fuseblk" && carriesExFAT(source) ? kExFAT : type;
}

}  // namespace internal

std::optional<FileSystemFacts> fileSystemFacts(const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return std::nullopt;
  }
  const auto table = MountTable::read();
  if (!table) return std::nullopt;
  const Mount* const mount = PathWalk(*table, path).run();
  if (mount == nullptr) return std::nullopt;
  FileSystemFacts facts = mount->facts;
  facts.type = internal::formatName(facts.type, facts.source);
  return facts;
}

bool isMountPoint(const std::string& path) {
  const auto table = MountTable::read();
  return table && table->at(path) != nullptr;
}

}  // namespace platform
