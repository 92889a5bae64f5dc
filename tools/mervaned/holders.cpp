#include "tools/mervaned/holders.h"

#include <CoreFoundation/CoreFoundation.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <tovan/cf_util.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tools/support/text.h"

namespace mervaned {
namespace {

constexpr std::size_t kMostHandles = 256;

bool hasEnded(int descriptor) {
  pollfd ended{descriptor, POLLIN, 0};
  return ::poll(&ended, 1, 0) > 0;
}

bool exists(std::int32_t pid) { return ::kill(pid, 0) == 0 || errno == EPERM; }

void addHolders(std::vector<Holder>& holders, const std::string& client, CFArrayRef pids) {
  const std::size_t first = holders.size();
  for (CFIndex i = 0; i < CFArrayGetCount(pids); ++i) {
    std::int32_t pid = 0;
    if (!tovan::CFUtil::CFArrayGetIntAtIndex(pids, i, pid)) continue;
    const auto known = std::find_if(holders.begin() + static_cast<std::ptrdiff_t>(first), holders.end(),
                                    [pid](const Holder& holder) { return holder.pid == pid; });
    if (known == holders.end()) {
      holders.push_back({client, pid, 1});
    } else {
      ++known->count;
    }
  }
}

}  // namespace

std::vector<Holder> holdersInTable(CFDictionaryRef clients) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(clients));
  std::vector<const void*> names(count), pids(count);
  CFDictionaryGetKeysAndValues(clients, names.data(), pids.data());
  std::vector<Holder> holders;
  for (std::size_t i = 0; i < count; ++i) {
    addHolders(holders, tools::textOf(static_cast<CFStringRef>(names[i])), static_cast<CFArrayRef>(pids[i]));
  }
  return holders;
}

HolderWatch::~HolderWatch() {
  for (const auto& [pid, handle] : handles_) {
    if (handle.descriptor >= 0) ::close(handle.descriptor);
  }
}

HolderWatch::Handle HolderWatch::handleOf(std::int32_t pid, bool mayTakeDescriptor) {
  Handle handle;
  if (mayTakeDescriptor) handle.descriptor = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U));
  handle.wasGone = handle.descriptor < 0 && !exists(pid);
  return handle;
}

// A number that is known and whose process has ended was given to another process since.
void HolderWatch::note(std::int32_t pid) {
  if (pid <= 0) return;
  const auto [known, isNew] = handles_.try_emplace(pid);
  Handle& handle = known->second;
  if (!isNew && handle.descriptor >= 0 && !hasEnded(handle.descriptor)) return;
  if (handle.descriptor >= 0) ::close(handle.descriptor);
  handle = handleOf(pid, handles_.size() <= kMostHandles);
}

bool HolderWatch::isGone(std::int32_t pid) {
  if (pid <= 0) return false;
  const auto known = handles_.find(pid);
  if (known == handles_.end()) return !exists(pid);
  const Handle& handle = known->second;
  return handle.descriptor >= 0 ? hasEnded(handle.descriptor) : handle.wasGone || !exists(pid);
}

std::vector<std::int32_t> HolderWatch::newlyGone(const std::set<std::int32_t>& holders) {
  for (auto at = handles_.begin(); at != handles_.end();) {
    if (holders.count(at->first) != 0) {
      ++at;
      continue;
    }
    if (at->second.descriptor >= 0) ::close(at->second.descriptor);
    at = handles_.erase(at);
  }
  std::vector<std::int32_t> gone;
  for (auto& [pid, handle] : handles_) {
    if (handle.isTold || !isGone(pid)) continue;
    handle.isTold = true;
    gone.push_back(pid);
  }
  return gone;
}

}  // namespace mervaned
