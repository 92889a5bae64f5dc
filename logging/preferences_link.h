// preferences_link.h: CTovanLogger::PreferencesLink, a logger's place among those that observe the preferences.
#pragma once

#include <tovan/logger.h>

#include <atomic>
#include <cstdint>

namespace tovan {

// A notification arrives on the thread that asked for it, while another may be destroying the logger. So it is passed
// on only to a logger that has an open link, and the link, which goes before anything else of the logger does, waits
// for what is being passed on.
class CTovanLogger::PreferencesLink {
 public:
  // Closed. Belongs to the logger.
  explicit PreferencesLink(CTovanLogger& logger) noexcept : logger_(logger) {}
  PreferencesLink(const PreferencesLink&) = delete;
  PreferencesLink& operator=(const PreferencesLink&) = delete;
  // Closes it, and waits for calls that other threads are in.
  ~PreferencesLink();

  bool isOpen() const noexcept { return isOpen_; }
  // Adds and removes the observer. The caller holds the logger's mutex, or nobody else has the logger any more.
  void open();
  void close();

 private:
  static void notified(CFNotificationCenterRef center, void* observer, CFStringRef name, const void* object,
                       CFDictionaryRef userInfo);
  // The open link of a logger, which the caller then is in a call of; null when it has none.
  static PreferencesLink* enter(const void* observer);

  static PreferencesLink* first_;

  CTovanLogger& logger_;
  bool isOpen_ = false;
  std::atomic<std::uint32_t> calls_ = 0;
  PreferencesLink* next_ = nullptr;  // guarded by the list's mutex
};

}  // namespace tovan
