#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFString.h>

#include <cstring>
#include <string>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/string.h"

struct CFErrorStorage {
  CFObjectHead head;
  CFObjectHead* nextToDestroy;
  CFErrorDomain domain;
  CFIndex code;
  CFDictionaryRef userInfo;
};

constinit const CFErrorDomain kCFErrorDomainPOSIX = CFSTR("NSPOSIXErrorDomain");
constinit const CFErrorDomain kCFErrorDomainOSStatus = CFSTR("NSOSStatusErrorDomain");
constinit const CFErrorDomain kCFErrorDomainCocoa = CFSTR("NSCocoaErrorDomain");

constinit const CFStringRef kCFErrorLocalizedDescriptionKey = CFSTR("NSLocalizedDescription");
constinit const CFStringRef kCFErrorLocalizedFailureReasonKey = CFSTR("NSLocalizedFailureReason");
constinit const CFStringRef kCFErrorDescriptionKey = CFSTR("NSDescription");
constinit const CFStringRef kCFErrorFilePathKey = CFSTR("NSFilePath");
constinit const CFStringRef kCFErrorURLKey = CFSTR("NSURL");
constinit const CFStringRef kCFErrorUnderlyingErrorKey = CFSTR("NSUnderlyingError");

namespace cf {
namespace {

void finalizeError(void* object) noexcept {
  const CFErrorRef error = static_cast<CFErrorRef>(object);
  release(error->domain);
  release(error->userInfo);
  std::free(object);
}

bool errorsAreEqual(const void* left, const void* right, PendingComparisons& inside) {
  const CFErrorRef one = static_cast<CFErrorRef>(left);
  const CFErrorRef other = static_cast<CFErrorRef>(right);
  return one->code == other->code && stringsAreEqual(one->domain, other->domain) &&
         inside.add(one->userInfo, other->userInfo);
}

CFHashCode hashOfError(const void* object) {
  const CFErrorRef error = static_cast<CFErrorRef>(object);
  return mixBits(stringHash(error->domain) ^ static_cast<CFHashCode>(error->code));
}

CFStringRef copyErrorDescription(const void* object) { return CFErrorCopyDescription(static_cast<CFErrorRef>(object)); }

}  // namespace

constinit const CFRuntimeClass kErrorClass{"CFError", finalizeError, nullptr, hashOfError, copyErrorDescription,
                                           true,      errorsAreEqual};

namespace {

// The text under a key of the user information; null when there is none or it is not a string.
CFStringRef textOf(CFErrorRef error, CFStringRef key) {
  const void* const value = CFDictionaryGetValue(error->userInfo, key);
  return isString(value) ? static_cast<CFStringRef>(value) : nullptr;
}

CFErrorRef createError(CFErrorDomain domain, CFIndex code, Owned<CFDictionaryRef> userInfo) {
  Owned<CFStringRef> ownDomain(CFStringCreateCopy(kCFAllocatorDefault, domain));
  const CFErrorRef error = create<CFErrorStorage>(kErrorClass, 0, nullptr, ownDomain.get(), code, userInfo.get());
  ownDomain.take();
  userInfo.take();
  return error;
}

Owned<CFDictionaryRef> userInfoOf(const void** keys, const void** values, CFIndex count) {
  return Owned<CFDictionaryRef>(CFDictionaryCreate(kCFAllocatorDefault, keys, values, count,
                                                   &kCFCopyStringDictionaryKeyCallBacks,
                                                   &kCFTypeDictionaryValueCallBacks));
}

}  // namespace
}  // namespace cf

CFTypeID CFErrorGetTypeID() { return cf::typeID(cf::kErrorClass); }

CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFErrorDomain domain, CFIndex code, CFDictionaryRef userInfo) {
  if (domain == nullptr) return nullptr;
  if (userInfo == nullptr) return cf::createError(domain, code, cf::userInfoOf(nullptr, nullptr, 0));
  return cf::createError(domain, code, cf::Owned<CFDictionaryRef>(CFDictionaryCreateCopy(allocator, userInfo)));
}

CFErrorRef CFErrorCreateWithUserInfoKeysAndValues(CFAllocatorRef, CFErrorDomain domain, CFIndex code,
                                                  const void* const* userInfoKeys, const void* const* userInfoValues,
                                                  CFIndex count) {
  if (domain == nullptr) return nullptr;
  cf::Owned<CFDictionaryRef> userInfo =
      cf::userInfoOf(const_cast<const void**>(userInfoKeys), const_cast<const void**>(userInfoValues), count);
  return userInfo ? cf::createError(domain, code, std::move(userInfo)) : nullptr;
}

CFErrorDomain CFErrorGetDomain(CFErrorRef error) { return error == nullptr ? nullptr : error->domain; }

CFIndex CFErrorGetCode(CFErrorRef error) { return error == nullptr ? 0 : error->code; }

CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error) {
  return error == nullptr ? nullptr : static_cast<CFDictionaryRef>(CFRetain(error->userInfo));
}

CFStringRef CFErrorCopyDescription(CFErrorRef error) {
  if (error == nullptr) return nullptr;
  if (const CFStringRef description = cf::textOf(error, kCFErrorLocalizedDescriptionKey)) {
    return CFStringCreateCopy(kCFAllocatorDefault, description);
  }
  std::string text = "The operation couldn't be completed.";
  const cf::Owned<CFStringRef> reason(CFErrorCopyFailureReason(error));
  if (reason) {
    (text += ' ') += cf::utf8View(reason.get());
    return cf::createText(text);
  }
  ((text += " (") += cf::utf8View(error->domain)) += " error " + std::to_string(error->code);
  if (const CFStringRef description = cf::textOf(error, kCFErrorDescriptionKey)) {
    (text += " - ") += cf::utf8View(description);
  }
  return cf::createText(text + ".)");
}

CFStringRef CFErrorCopyFailureReason(CFErrorRef error) {
  if (error == nullptr) return nullptr;
  if (const CFStringRef reason = cf::textOf(error, kCFErrorLocalizedFailureReasonKey)) {
    return CFStringCreateCopy(kCFAllocatorDefault, reason);
  }
  if (!cf::stringsAreEqual(error->domain, kCFErrorDomainPOSIX)) return nullptr;
  // The C library's constant text for the number, which needs no buffer and no locale.
  const char* const reason =
      error->code > 0 && error->code <= INT32_MAX ? ::strerrordesc_np(static_cast<int>(error->code)) : nullptr;
  return reason == nullptr ? nullptr : cf::createText(reason);
}
