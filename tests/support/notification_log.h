// notification_log.h: what an observer was told, for tests of distributed notifications.
#pragma once

#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFRunLoop.h>
#include <plinth/shared_cf_ref.h>

#include <functional>
#include <string>
#include <vector>

namespace test {

// Turns the calling thread's run loop until the condition holds; false when it does not within the seconds.
bool runLoopUntil(const std::function<bool()>& condition, double seconds = 20);

// Runs the function in a forked child and answers its exit status; 128 + signal when a signal ended it. The child exits
// with what the function gives, at once (_exit).
int inChild(const std::function<int()>& body);

struct Notification {
  std::string name;
  plinth::CSharedCFRef<CFStringRef> object;  // null when there was none
  plinth::CSharedCFRef<CFDictionaryRef> userInfo;
  std::string objectText() const;  // "(null)" when there was none
};

// An observer that keeps what it gets, in order. The object itself is the observer pointer, removed with it.
class NotificationLog {
 public:
  NotificationLog() = default;
  ~NotificationLog();
  NotificationLog(const NotificationLog&) = delete;
  NotificationLog& operator=(const NotificationLog&) = delete;

  // A null name or object observes all.
  void observe(CFStringRef name, CFStringRef object);
  // Turns the run loop until there are that many.
  bool await(std::size_t count, double seconds = 20);
  // "NAME OBJECT", each on a line of its own.
  std::string text() const;
  // Called with each notification, after it was kept.
  std::function<void(const Notification&)> then;

  std::vector<Notification> all;

  static void callback(CFNotificationCenterRef center, void* observer, CFStringRef name, const void* object,
                       CFDictionaryRef userInfo);
};

// Posts with immediate delivery.
void post(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo = nullptr);

}  // namespace test
