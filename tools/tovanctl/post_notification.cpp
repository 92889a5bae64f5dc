#include "tools/tovanctl/post_notification.h"

#include <CoreFoundation/CFRunLoop.h>
#include <tovan/notifications.h>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/process.h"

namespace tovanctl {
namespace {

constexpr double kEchoTimeout = 5;  // seconds for the bus to hand back what it was given
constexpr double kSlice = 0.1;      // seconds between two looks at the time

void noteEcho(CFNotificationCenterRef, void* observer, CFStringRef, const void*, CFDictionaryRef) {
  *static_cast<bool*>(observer) = true;
}

}  // namespace

void postNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo) {
  bool echoed = false;
  registerForNotification(&echoed, noteEcho, name, object);
  sendNotification(name, object, userInfo);
  const Deadline deadline = deadlineIn(kEchoTimeout);
  while (!echoed && !isOver(deadline)) CFRunLoopRunInMode(kCFRunLoopDefaultMode, kSlice, TRUE);
  unregisterForNotifications(&echoed);
  if (!echoed) {
    throw CommandError(kFailed, "the bus did not take the notification; `tovanctl doctor` looks at the bus");
  }
}

}  // namespace tovanctl
