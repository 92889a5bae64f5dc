// post_notification.h: posting so that a failure shows.
#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

namespace tovanctl {

// Posts a notification and waits until it has come back, which shows that the bus has handed it out; the object and the
// user info may be null. CommandError(kFailed) when it does not come back within five seconds.
void postNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo);

}  // namespace tovanctl
