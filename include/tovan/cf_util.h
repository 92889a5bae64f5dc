// cf_util.h: CFUtil, typed access to CoreFoundation dictionaries and arrays, the console line, the host's names and
// addresses, and writing data to a file.
//
// Nothing here throws. A null container or key reads as one that holds nothing and is not changed; values that a Get
// operation hands out belong to their container, as with CoreFoundation's own. Integers are stored as 32-bit signed
// numbers (kCFNumberIntType). The operations keep no state: any thread may call them, and a mutable container belongs
// to one thread at a time, as always.
#pragma once

#include <tovan/export.h>

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

#include <cstdint>

namespace tovan {

class TOVAN_EXPORT CFUtil {
 public:
  CFUtil() = delete;

  // Dictionaries.

  // An empty dictionary that holds CoreFoundation objects. The caller owns it.
  static CFMutableDictionaryRef CFDictMakeMutable();
  // A mutable copy, or null of null. The caller owns it.
  static CFMutableDictionaryRef CFDictMakeMutableCopy(CFDictionaryRef dict);

  // The getters give true only when the key is present with a value of the asked type. `value` is written in every
  // case: without such a value it becomes null, 0 or false.
  static bool CFDictGet(CFDictionaryRef dict, CFStringRef key, CFTypeRef& value);
  // `value` is whether the stored boolean is true.
  static bool CFDictGetBoolean(CFDictionaryRef dict, CFStringRef key, bool& value);
  // A number that is not a 32-bit integer is converted as CFNumberGetValue converts it.
  static bool CFDictGetInt(CFDictionaryRef dict, CFStringRef key, std::int32_t& value);
  static bool CFDictGetDouble(CFDictionaryRef dict, CFStringRef key, double& value);
  static bool CFDictGetString(CFDictionaryRef dict, CFStringRef key, CFStringRef& value);
  static bool CFDictGetURL(CFDictionaryRef dict, CFStringRef key, CFURLRef& value);

  // Adds the value if the key is absent. A null value removes the key.
  static void CFDictAdd(CFMutableDictionaryRef dict, CFStringRef key, CFTypeRef value);
  // Sets the value, replacing any other. A null value removes the key; this goes for the two object setters below too.
  static void CFDictSet(CFMutableDictionaryRef dict, CFStringRef key, CFTypeRef value);
  static void CFDictSetBoolean(CFMutableDictionaryRef dict, CFStringRef key, bool value);
  static void CFDictSetInt(CFMutableDictionaryRef dict, CFStringRef key, std::int32_t value);
  static void CFDictSetDouble(CFMutableDictionaryRef dict, CFStringRef key, double value);
  static void CFDictSetString(CFMutableDictionaryRef dict, CFStringRef key, CFStringRef value);
  static void CFDictSetURL(CFMutableDictionaryRef dict, CFStringRef key, CFURLRef value);

  // Arrays. A number equals an integer when it has exactly that value; elements of other kinds are passed over.

  // An empty array that holds CoreFoundation objects. The caller owns it.
  static CFMutableArrayRef CFArrayMakeMutable();
  // A mutable copy, or null of null. The caller owns it.
  static CFMutableArrayRef CFArrayMakeMutableCopy(CFArrayRef array);

  static bool CFArrayContainsInt(CFArrayRef array, std::int32_t value);
  // The index of the first equal number, or kCFNotFound.
  static CFIndex CFArrayFindInt(CFArrayRef array, std::int32_t value);
  // How many equal numbers there are.
  static CFIndex CFArrayGetCountOfIntVal(CFArrayRef array, std::int32_t value);
  // False, and 0, when the index is outside the array or its element is no number.
  static bool CFArrayGetIntAtIndex(CFArrayRef array, CFIndex index, std::int32_t& value);
  // Appends the number if it is absent; whether it did.
  static bool CFArrayAddInt(CFMutableArrayRef array, std::int32_t value);
  // Appends the number whatever the array holds.
  static void CFArrayAppendInt(CFMutableArrayRef array, std::int32_t value);
  // Removes the first equal number; whether there was one.
  static bool CFArrayRemoveInt(CFMutableArrayRef array, std::int32_t value);
  // An index outside the array removes nothing.
  static void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index);

  // The system.

  // One line on the system's console log. A null text is no line.
  static void LogToConsole(const char* text);

  // Every name, or address, of this host as strings. The caller owns the array; null when there is none.
  static CFArrayRef HostNames();
  static CFArrayRef HostAddresses();
  // The first of them. The caller owns the string; null when there is none.
  static CFStringRef HostName();
  static CFStringRef HostAddress();

  // Writes the bytes to the URL's path; false when the URL has no path or the write fails. Atomically: through a new
  // file in the same folder that takes the old one's place when it is complete and on the disk, so that a reader sees
  // the old content or the new, and a failure leaves the old. A replaced regular file hands its permissions on, and a
  // symbolic link is followed. Otherwise: in place, with room for the bytes reserved first where the file system can.
  static bool CFDataWriteToURL(CFDataRef data, CFURLRef url, bool atomically);
};

}  // namespace tovan
