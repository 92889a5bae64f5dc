#include "logging/preferences_link.h"

#include <tovan/notifications.h>

#include <mutex>

namespace tovan {
namespace {

constinit std::mutex listMutex;
// The call that this thread is in; a logger may go in its own call.
constinit thread_local const void* currentCall = nullptr;

}  // namespace

constinit CTovanLogger::PreferencesLink* CTovanLogger::PreferencesLink::first_ = nullptr;

CTovanLogger::PreferencesLink::~PreferencesLink() {
  close();
  const std::uint32_t own = currentCall == this ? 1 : 0;
  if (own != 0) currentCall = nullptr;
  for (std::uint32_t calls = calls_; calls > own; calls = calls_) calls_.wait(calls);
  const std::lock_guard lock(listMutex);  // whoever ended the last call is through with this object
}

void CTovanLogger::PreferencesLink::open() {
  if (isOpen_) return;
  isOpen_ = true;
  {
    const std::lock_guard lock(listMutex);
    next_ = first_;
    first_ = this;
  }
  addObserver(&logger_, notified, TovanNotification::kTovanPrefsChangedNotification,
              TovanNotification::kPrefExternalID);
}

void CTovanLogger::PreferencesLink::close() {
  if (!isOpen_) return;
  isOpen_ = false;
  removeObserver(&logger_, TovanNotification::kPrefExternalID);
  const std::lock_guard lock(listMutex);
  PreferencesLink** place = &first_;
  while (*place != this) place = &(*place)->next_;
  *place = next_;
}

CTovanLogger::PreferencesLink* CTovanLogger::PreferencesLink::enter(const void* observer) {
  const std::lock_guard lock(listMutex);
  PreferencesLink* link = first_;
  while (link != nullptr && &link->logger_ != observer) link = link->next_;
  if (link != nullptr) ++link->calls_;
  return link;
}

void CTovanLogger::PreferencesLink::notified(CFNotificationCenterRef center, void* observer, CFStringRef name,
                                             const void* object, CFDictionaryRef userInfo) {
  PreferencesLink* const link = enter(observer);
  if (link == nullptr) return;
  const void* const outer = currentCall;
  currentCall = link;
  tovanPrefsChanged(center, observer, name, object, userInfo);
  const bool isGone = currentCall == nullptr;
  currentCall = outer;
  if (isGone) return;
  // The link goes only after this lock is free again.
  const std::lock_guard lock(listMutex);
  --link->calls_;
  link->calls_.notify_all();
}

}  // namespace tovan
