// service_list.h: the list of services that the daemon is told about.
#pragma once

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

namespace tovan {

// Calls the action with each string of an array, in order; elements of other types are skipped.
template <class Action>
void forEachString(CFArrayRef array, Action&& action) {
  const CFIndex count = CFArrayGetCount(array);
  for (CFIndex i = 0; i < count; ++i) {
    const CFTypeRef element = CFArrayGetValueAtIndex(array, i);
    const bool isString = element != nullptr && CFGetTypeID(element) == CFStringGetTypeID();
    if (isString) action(static_cast<CFStringRef>(element));
  }
}

// Tells the daemon that the preferences have changed: with "serviceList", a dictionary of service name and what is to
// become of it, or, when that is empty or null, without user info.
void signalServiceList(CFDictionaryRef services);

}  // namespace tovan
