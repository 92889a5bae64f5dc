#include "tools/launchctl/path_watch.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include "tools/launchctl/failure.h"

namespace launchctl {
namespace {

constexpr std::uint32_t kEvents =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
constexpr std::uint32_t kFolderGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT | IN_Q_OVERFLOW;

bool isThere(const std::string& path) {
  struct stat facts {};
  return ::lstat(path.c_str(), &facts) == 0;
}

}  // namespace

PathWatch::PathWatch(Tells tells) : tells_(tells), inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!inotify_) throw systemFailure("cannot watch paths");
}

void PathWatch::setPaths(const std::set<std::string>& paths) {
  paths_.clear();
  for (const std::string& path : paths) paths_[path] = false;
  rebuild();
  for (auto& [path, there] : paths_) there = isThere(path);
}

bool PathWatch::exists(const std::string& path) const {
  const auto found = paths_.find(path);
  return found != paths_.end() && found->second;
}

void PathWatch::addFolder(const std::string& folder, const std::string& component) {
  folders_[folder].insert(component);
  const std::uint32_t events = tells_ == Tells::contents ? kEvents | IN_CLOSE_WRITE | IN_ATTRIB : kEvents;
  const int watch = ::inotify_add_watch(inotify_.get(), folder.c_str(), events);
  if (watch >= 0) {
    watches_[watch].insert(folder);
  } else if (errno != ENOENT && errno != ENOTDIR) {
    polls_ = true;  // no permission, or no more watches to be had; a missing folder shows in the one above it
  }
}

// Watches every folder above every path, from the root down, so that none that appears meanwhile is missed.
void PathWatch::rebuild() {
  const std::map<int, std::set<std::string>> former = std::move(watches_);
  watches_.clear();
  folders_.clear();
  polls_ = false;
  for (const auto& entry : paths_) {
    const std::string& path = entry.first;
    for (std::size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
      const std::size_t end = path.find('/', slash + 1);
      const std::string component = path.substr(slash + 1, end == std::string::npos ? end : end - slash - 1);
      if (!component.empty()) addFolder(slash == 0 ? "/" : path.substr(0, slash), component);
    }
  }
  for (const auto& entry : former) {
    if (watches_.count(entry.first) == 0) ::inotify_rm_watch(inotify_.get(), entry.first);
  }
}

void PathWatch::look(const Changed& changed) {
  for (auto& [path, there] : paths_) {
    const bool now = isThere(path);
    if (now != there || (now && tells_ == Tells::contents)) {
      there = now;
      changed(path, now);
    }
  }
}

bool PathWatch::handle(const Changed& changed) {
  alignas(inotify_event) char buffer[8192];
  bool layoutChanged = false;
  bool mattered = polls_;
  for (;;) {
    const ssize_t count = ::read(inotify_.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    for (ssize_t at = 0; at < count;) {
      const auto* const event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof *event + event->len);
      if ((event->mask & kFolderGone) != 0) {
        // The end of a watch that was given up here is no news.
        layoutChanged = layoutChanged || (event->mask & IN_Q_OVERFLOW) != 0 || watches_.count(event->wd) != 0;
        continue;
      }
      const auto watched = watches_.find(event->wd);
      if (watched == watches_.end() || event->len == 0) continue;
      const std::string name = event->name;
      for (const std::string& folder : watched->second) {
        if (folders_[folder].count(name) == 0) continue;
        mattered = true;
        std::string whole = folder == "/" ? "" : folder;
        const auto path = paths_.find(whole.append("/").append(name));
        const bool now = (event->mask & (IN_CREATE | IN_MOVED_TO)) != 0;
        if (path == paths_.end()) {
          layoutChanged = true;
        } else if (tells_ == Tells::contents) {
          continue;  // looked at below: such an event says nothing of what is there now
        } else if (path->second != now) {
          path->second = now;
          changed(path->first, now);
        }
      }
    }
  }
  if (layoutChanged) rebuild();
  if (layoutChanged || mattered) look(changed);
  return layoutChanged;
}

}  // namespace launchctl
