/* The interface is usable from C. */
#include <CoreFoundation/CFRunLoop.h>
#include <tovan/notifications.h>

int postAndObserveInC(void);

static void countOne(CFNotificationCenterRef center, void* observer, CFStringRef name, const void* object,
                     CFDictionaryRef userInfo) {
  (void)center;
  (void)name;
  (void)object;
  (void)userInfo;
  ++*(int*)observer;
}

/* How often the observer was called. */
int postAndObserveInC(void) {
  int count = 0;
  int turns;
  addObserver(&count, countOne, kTovanStatusNotification, CFSTR("c"));
  sendStatusNotification(kTovanStatusNotification, CFSTR("c"), CFSTR("message"), NULL);
  for (turns = 0; count == 0 && turns < 1000; ++turns) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, 1);
  unregisterForNotifications(&count);
  return count;
}
