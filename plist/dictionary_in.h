// dictionary_in.h: a dictionary inside a dictionary.
#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

namespace tovan {

// The dictionary under a key, which belongs to the outer one; null when there is none, or something else.
inline CFDictionaryRef dictionaryIn(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef found = key == nullptr ? nullptr : CFDictionaryGetValue(dictionary, key);
  const bool is = found != nullptr && CFGetTypeID(found) == CFDictionaryGetTypeID();
  return is ? static_cast<CFDictionaryRef>(found) : nullptr;
}

}  // namespace tovan
