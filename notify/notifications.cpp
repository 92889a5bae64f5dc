#include <tovan/notifications.h>

#include <tovan/cf_util.h>
#include <tovan/time_stamp.h>

#include <plinth/shared_cf_ref.h>

#include <unistd.h>

#include <cstdint>

using plinth::CSharedCFRef;
using tovan::CFUtil;
using namespace tovan::TovanNotification;

namespace {

CFNotificationCenterRef center() { return CFNotificationCenterGetDistributedCenter(); }

CFStringRef orEmpty(CFStringRef text) { return text == nullptr ? CFSTR("") : text; }

// The raw sender is the notification's object, null included, while the dictionary holds "" for it.
void report(CFStringRef name, CFStringRef type, CFStringRef from, CFStringRef message, CFTypeRef userInfo) {
  const CSharedCFRef<CFMutableDictionaryRef> status(CFUtil::CFDictMakeMutable());
  const CSharedCFRef<CFStringRef> time(
      CFStringCreateWithCString(kCFAllocatorDefault, tovan::CTimeStamp().getText(), kCFStringEncodingUTF8));
  CFUtil::CFDictSetString(status.get(), CFSTR("time"), time.get());
  CFUtil::CFDictSetString(status.get(), CFSTR("type"), type);
  CFUtil::CFDictSetString(status.get(), CFSTR("from"), orEmpty(from));
  CFUtil::CFDictSetInt(status.get(), CFSTR("pid"), static_cast<std::int32_t>(::getpid()));
  CFUtil::CFDictSetString(status.get(), CFSTR("message"), orEmpty(message));
  if (userInfo != nullptr) CFUtil::CFDictSet(status.get(), CFSTR("userInfo"), userInfo);
  sendNotification(name, from, status.get());
}

}  // namespace

void sendNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo) {
  CFNotificationCenterPostNotificationWithOptions(center(), name, object, userInfo, kCFNotificationDeliverImmediately);
}

void signalFrom(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo) {
  sendNotification(name, object, userInfo);
}

void signalPrefsPane(CFStringRef name, CFDictionaryRef userInfo) { signalFrom(name, kTovanDaemonID, userInfo); }

void signalDaemon(CFStringRef name, CFDictionaryRef userInfo) { signalFrom(name, kPrefPaneBundleID, userInfo); }

void pingDaemon() { signalDaemon(kTovanDaemonRunningNotification, nullptr); }

void sendStatusNotification(CFStringRef name, CFStringRef from, CFStringRef message, CFTypeRef userInfo) {
  report(name, CFSTR("status"), from, message, userInfo);
}

void sendWarningNotification(CFStringRef name, CFStringRef from, CFStringRef message, CFTypeRef userInfo) {
  report(name, CFSTR("warning"), from, message, userInfo);
}

void sendErrorNotification(CFStringRef name, CFStringRef from, CFStringRef message, CFTypeRef userInfo) {
  report(name, CFSTR("error"), from, message, userInfo);
}

void registerForNotification(void* observer, CFNotificationCallback callback, CFStringRef name, CFStringRef object) {
  CFNotificationCenterAddObserver(center(), observer, callback, name, object,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
}

void addObserver(void* observer, CFNotificationCallback callback, CFStringRef name, CFStringRef object) {
  registerForNotification(observer, callback, name, object);
}

void addPrefsPaneObserver(void* observer, CFNotificationCallback callback, CFStringRef name) {
  registerForNotification(observer, callback, name, kPrefPaneBundleID);
}

void addDaemonObserver(void* observer, CFNotificationCallback callback, CFStringRef name) {
  registerForNotification(observer, callback, name, kTovanDaemonID);
}

void removeObserver(void* observer, CFStringRef object) {
  CFNotificationCenterRemoveObserver(center(), observer, nullptr, object);
}

void removePrefsPaneObserver(void* observer) { removeObserver(observer, kPrefPaneBundleID); }

void removeDaemonObserver(void* observer) { removeObserver(observer, kTovanDaemonID); }

void unregisterForNotifications(void* observer) { CFNotificationCenterRemoveEveryObserver(center(), observer); }
