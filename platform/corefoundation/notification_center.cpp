// The public functions of CFNotificationCenter.h.
#include <CoreFoundation/CFNotificationCenter.h>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/console.h"
#include "platform/corefoundation/notification_center_registry.h"
#include "platform/corefoundation/notification_center_thread.h"
#include "platform/corefoundation/string.h"

struct CFNotificationCenterStorage {
  CFObjectHead head;
};

namespace cf {
namespace {

constinit const CFRuntimeClass kNotificationCenterClass{"CFNotificationCenter", nullptr, nullptr, nullptr, nullptr};
constinit CFNotificationCenterStorage distributedCenter{{&kNotificationCenterClass, kCFObjectIsConstant, 0}};

// A notification's object, which must be a string; false, with a line for people, when it is something else.
bool asString(const void* object, CFStringRef& string) {
  string = static_cast<CFStringRef>(object);
  if (object == nullptr || isString(object)) return true;
  consoleLine("distributed notifications: an object that is not a string was refused");
  return false;
}

}  // namespace
}  // namespace cf

CFTypeID CFNotificationCenterGetTypeID() { return cf::typeID(cf::kNotificationCenterClass); }

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter() { return &cf::distributedCenter; }

void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                     CFNotificationCallback callBack, CFStringRef name, const void* object,
                                     CFNotificationSuspensionBehavior) {
  CFStringRef sender = nullptr;
  if (center == nullptr || callBack == nullptr || !cf::asString(object, sender)) return;
  auto observation = std::make_shared<cf::Observation>();
  observation->observer = observer;
  observation->callback = callBack;
  if (name != nullptr) observation->name.reset(CFStringCreateCopy(kCFAllocatorDefault, name));
  if (sender != nullptr) observation->object.reset(CFStringCreateCopy(kCFAllocatorDefault, sender));
  cf::ThreadCenter::current().observe(std::move(observation));
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void* observer, CFStringRef name,
                                        const void* object) {
  CFStringRef sender = nullptr;
  if (center == nullptr || !cf::asString(object, sender)) return;
  cf::ThreadCenter* const own = cf::ThreadCenter::existing();
  cf::removeObservations(observer, name, sender);
  if (own != nullptr) own->tidy();
}

void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef center, const void* observer) {
  CFNotificationCenterRemoveObserver(center, observer, nullptr, nullptr);
}

void CFNotificationCenterPostNotification(CFNotificationCenterRef center, CFStringRef name, const void* object,
                                          CFDictionaryRef userInfo, Boolean) {
  CFNotificationCenterPostNotificationWithOptions(center, name, object, userInfo, kCFNotificationDeliverImmediately);
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center, CFStringRef name,
                                                     const void* object, CFDictionaryRef userInfo, CFOptionFlags) {
  CFStringRef sender = nullptr;
  if (center == nullptr || !cf::asString(object, sender)) return;
  if (name == nullptr) return cf::consoleLine("distributed notification not posted: it has no name");
  cf::ThreadCenter::current().post(name, sender, userInfo);
}
