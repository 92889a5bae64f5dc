#include "tools/tovanctl/followed_file.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"

namespace tovanctl {
namespace {

constexpr int kWait = 500;       // milliseconds; for what no notification tells, such as a link's target
constexpr int kLookAgain = 250;  // where there are no notifications
constexpr std::size_t kBeginning = 256;
constexpr std::size_t kPiece = std::size_t{64} << 10U;

}  // namespace

FolderWatch::FolderWatch(std::string folder)
    : folder_(folder.empty() ? "." : std::move(folder)), descriptor_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  watchAgain();
}

FolderWatch::~FolderWatch() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

// Again, since the folder may have been replaced; watching the same one twice is one watch.
void FolderWatch::watchAgain() {
  if (descriptor_ < 0) return;
  const int watch = ::inotify_add_watch(descriptor_, folder_.c_str(),
                                        IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR);
  if (watch_ >= 0 && watch_ != watch) ::inotify_rm_watch(descriptor_, watch_);
  watch_ = watch;
}

void FolderWatch::wait() {
  if (wasInterrupted()) return;
  if (watch_ < 0) {
    waitUnlessInterrupted(kLookAgain / 1000.0);
  } else {
    pollfd notifications{descriptor_, POLLIN, 0};
    if (::poll(&notifications, 1, kWait) > 0) {
      alignas(inotify_event) std::array<char, 4096> events{};
      while (::read(descriptor_, events.data(), events.size()) > 0) {
      }
      return;
    }
  }
  watchAgain();
}

FollowedFile::FollowedFile(LogSource source, TakeBytes takeBytes, TakeEvent takeEvent)
    : source_(std::move(source)), takeBytes_(std::move(takeBytes)), takeEvent_(std::move(takeEvent)) {}

void FollowedFile::look() {
  if (!file_ && !open()) return;
  for (Place place = placeOfFile(); place != Place::same; place = placeOfFile()) {
    readOn();  // what the former one still got
    if (place == Place::missing) {
      // Its writer may still have it open: it is read until there is another.
      if (!std::exchange(isMissing_, true)) takeEvent_(Event::missing);
      return;
    }
    file_ = LogFile();
    restart();
    const bool wasMissing = isMissing_;
    if (!open()) return;
    if (!wasMissing) takeEvent_(Event::replaced);
  }
  if (std::exchange(isMissing_, false)) takeEvent_(Event::found);
  if (isRewritten()) {
    restart();
    takeEvent_(Event::truncated);
  }
  readOn();
  keepBeginning();
}

bool FollowedFile::open() {
  file_ = openLog(source_);
  if (!file_) {
    if (!std::exchange(isMissing_, true)) takeEvent_(Event::missing);
    return false;
  }
  if (std::exchange(isMissing_, false)) takeEvent_(Event::found);
  return true;
}

FollowedFile::Place FollowedFile::placeOfFile() const {
  struct stat ours {
  }, theirs{};
  if (::stat(source_.path.c_str(), &theirs) != 0) return Place::missing;
  if (::fstat(file_.descriptor(), &ours) != 0) return Place::replaced;
  return ours.st_ino == theirs.st_ino && ours.st_dev == theirs.st_dev ? Place::same : Place::replaced;
}

bool FollowedFile::isRewritten() const {
  struct stat facts {};
  if (::fstat(file_.descriptor(), &facts) == 0 && static_cast<std::uint64_t>(facts.st_size) < offset_) return true;
  std::array<char, kBeginning> now{};
  const ssize_t count = ::pread(file_.descriptor(), now.data(), beginning_.size(), 0);
  return count != static_cast<ssize_t>(beginning_.size()) ||
         std::memcmp(now.data(), beginning_.data(), beginning_.size()) != 0;
}

void FollowedFile::restart() {
  offset_ = 0;
  beginning_.clear();
}

void FollowedFile::readOn() {
  std::vector<char> piece(kPiece);
  while (!wasInterrupted()) {
    const ssize_t count = ::pread(file_.descriptor(), piece.data(), piece.size(), static_cast<off_t>(offset_));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw CommandError(kFailed, "cannot read " + source_.path + ": " + std::strerror(errno));
    if (count == 0) return;
    offset_ += static_cast<std::uint64_t>(count);
    takeBytes_({piece.data(), static_cast<std::size_t>(count)});
  }
}

void FollowedFile::keepBeginning() {
  const std::size_t wanted = offset_ < kBeginning ? static_cast<std::size_t>(offset_) : kBeginning;
  if (beginning_.size() == wanted) return;
  std::array<char, kBeginning> now{};
  const ssize_t count = ::pread(file_.descriptor(), now.data(), wanted, 0);
  if (count > 0) beginning_.assign(now.data(), static_cast<std::size_t>(count));
}

}  // namespace tovanctl
