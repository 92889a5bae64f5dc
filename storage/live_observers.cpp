#include "storage/live_observers.h"

#include <mutex>
#include <unordered_map>

namespace tovan {
namespace {

using Observers = std::unordered_map<const void*, const plinth::CSharedObject*>;

constinit std::mutex mutex;
// Made on first use, and never destroyed: threads may outlive the program's end.
constinit Observers* observers = nullptr;

}  // namespace

void addLiveObserver(const void* observer, const plinth::CSharedObject& object) {
  const std::lock_guard lock(mutex);
  if (observers == nullptr) observers = new Observers;
  observers->insert_or_assign(observer, &object);
}

void removeLiveObserver(const void* observer) noexcept {
  const std::lock_guard lock(mutex);
  if (observers != nullptr) observers->erase(observer);
}

bool retainLiveObserver(const void* observer) noexcept {
  const std::lock_guard lock(mutex);
  if (observers == nullptr) return false;
  const auto found = observers->find(observer);
  return found != observers->end() && found->second->RetainIfHeld();
}

}  // namespace tovan
