// The containers' side of CFUtil.
#include <tovan/cf_util.h>

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFNumber.h>

namespace tovan {

using plinth::CSharedCFRef;

namespace {

bool isKind(CFTypeRef object, CFTypeID kind) { return object != nullptr && CFGetTypeID(object) == kind; }

CSharedCFRef<CFNumberRef> makeInt(std::int32_t value) {
  return CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value);
}

// The key's value when it is of that kind, else null.
CFTypeRef valueOfKind(CFDictionaryRef dict, CFStringRef key, CFTypeID kind) {
  CFTypeRef value = nullptr;
  CFUtil::CFDictGet(dict, key, value);
  return isKind(value, kind) ? value : nullptr;
}

// The number as the given type, 0 for null; whether it is one.
template <class T>
bool readNumber(CFTypeRef number, CFNumberType type, T& value) {
  value = 0;
  if (!isKind(number, CFNumberGetTypeID())) return false;
  // False only says that the conversion was not exact.
  static_cast<void>(CFNumberGetValue(static_cast<CFNumberRef>(number), type, &value));
  return true;
}

bool isInside(CFArrayRef array, CFIndex index) {
  return array != nullptr && index >= 0 && index < CFArrayGetCount(array);
}

}  // namespace

CFMutableDictionaryRef CFUtil::CFDictMakeMutable() {
  return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                   &kCFTypeDictionaryValueCallBacks);
}

CFMutableDictionaryRef CFUtil::CFDictMakeMutableCopy(CFDictionaryRef dict) {
  return dict == nullptr ? nullptr : CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, dict);
}

bool CFUtil::CFDictGet(CFDictionaryRef dict, CFStringRef key, CFTypeRef& value) {
  value = nullptr;
  return dict != nullptr && key != nullptr && CFDictionaryGetValueIfPresent(dict, key, &value);
}

bool CFUtil::CFDictGetBoolean(CFDictionaryRef dict, CFStringRef key, bool& value) {
  const CFTypeRef boolean = valueOfKind(dict, key, CFBooleanGetTypeID());
  value = boolean != nullptr && CFEqual(boolean, kCFBooleanTrue);
  return boolean != nullptr;
}

bool CFUtil::CFDictGetInt(CFDictionaryRef dict, CFStringRef key, std::int32_t& value) {
  return readNumber(valueOfKind(dict, key, CFNumberGetTypeID()), kCFNumberIntType, value);
}

bool CFUtil::CFDictGetDouble(CFDictionaryRef dict, CFStringRef key, double& value) {
  return readNumber(valueOfKind(dict, key, CFNumberGetTypeID()), kCFNumberDoubleType, value);
}

bool CFUtil::CFDictGetString(CFDictionaryRef dict, CFStringRef key, CFStringRef& value) {
  value = static_cast<CFStringRef>(valueOfKind(dict, key, CFStringGetTypeID()));
  return value != nullptr;
}

bool CFUtil::CFDictGetURL(CFDictionaryRef dict, CFStringRef key, CFURLRef& value) {
  value = static_cast<CFURLRef>(valueOfKind(dict, key, CFURLGetTypeID()));
  return value != nullptr;
}

void CFUtil::CFDictAdd(CFMutableDictionaryRef dict, CFStringRef key, CFTypeRef value) {
  if (dict == nullptr || key == nullptr) return;
  if (value == nullptr) {
    CFDictionaryRemoveValue(dict, key);
  } else {
    CFDictionaryAddValue(dict, key, value);
  }
}

void CFUtil::CFDictSet(CFMutableDictionaryRef dict, CFStringRef key, CFTypeRef value) {
  if (dict == nullptr || key == nullptr) return;
  if (value == nullptr) {
    CFDictionaryRemoveValue(dict, key);
  } else {
    CFDictionarySetValue(dict, key, value);
  }
}

void CFUtil::CFDictSetBoolean(CFMutableDictionaryRef dict, CFStringRef key, bool value) {
  CFDictSet(dict, key, value ? kCFBooleanTrue : kCFBooleanFalse);
}

void CFUtil::CFDictSetInt(CFMutableDictionaryRef dict, CFStringRef key, std::int32_t value) {
  CFDictSet(dict, key, makeInt(value).get());
}

void CFUtil::CFDictSetDouble(CFMutableDictionaryRef dict, CFStringRef key, double value) {
  const CSharedCFRef<CFNumberRef> number = CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &value);
  CFDictSet(dict, key, number.get());
}

void CFUtil::CFDictSetString(CFMutableDictionaryRef dict, CFStringRef key, CFStringRef value) {
  CFDictSet(dict, key, value);
}

void CFUtil::CFDictSetURL(CFMutableDictionaryRef dict, CFStringRef key, CFURLRef value) { CFDictSet(dict, key, value); }

CFMutableArrayRef CFUtil::CFArrayMakeMutable() {
  return CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
}

CFMutableArrayRef CFUtil::CFArrayMakeMutableCopy(CFArrayRef array) {
  return array == nullptr ? nullptr : CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, array);
}

bool CFUtil::CFArrayContainsInt(CFArrayRef array, std::int32_t value) {
  return CFArrayFindInt(array, value) != kCFNotFound;
}

CFIndex CFUtil::CFArrayFindInt(CFArrayRef array, std::int32_t value) {
  if (array == nullptr) return kCFNotFound;
  return CFArrayGetFirstIndexOfValue(array, CFRangeMake(0, CFArrayGetCount(array)), makeInt(value).get());
}

CFIndex CFUtil::CFArrayGetCountOfIntVal(CFArrayRef array, std::int32_t value) {
  if (array == nullptr) return 0;
  return CFArrayGetCountOfValue(array, CFRangeMake(0, CFArrayGetCount(array)), makeInt(value).get());
}

bool CFUtil::CFArrayGetIntAtIndex(CFArrayRef array, CFIndex index, std::int32_t& value) {
  return readNumber(isInside(array, index) ? CFArrayGetValueAtIndex(array, index) : nullptr, kCFNumberIntType, value);
}

bool CFUtil::CFArrayAddInt(CFMutableArrayRef array, std::int32_t value) {
  if (array == nullptr || CFArrayContainsInt(array, value)) return false;
  CFArrayAppendInt(array, value);
  return true;
}

void CFUtil::CFArrayAppendInt(CFMutableArrayRef array, std::int32_t value) {
  if (array != nullptr) CFArrayAppendValue(array, makeInt(value).get());
}

bool CFUtil::CFArrayRemoveInt(CFMutableArrayRef array, std::int32_t value) {
  const CFIndex index = CFArrayFindInt(array, value);
  if (index == kCFNotFound) return false;
  CFArrayRemoveValueAtIndex(array, index);
  return true;
}

void CFUtil::CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index) {
  if (isInside(array, index)) ::CFArrayRemoveValueAtIndex(array, index);
}

}  // namespace tovan
