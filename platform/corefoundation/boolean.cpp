#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFString.h>

#include "platform/corefoundation/base.h"

struct CFBooleanStorage {
  CFObjectHead head;
};

namespace cf {
namespace {

extern const CFBooleanStorage trueObject;

// There are two objects and no way to make another, so that identity is equality; the hashes are those of no address,
// to be the same in every run.
CFHashCode hashOfBoolean(const void* boolean) { return boolean == &trueObject ? 1231 : 1237; }

CFStringRef copyBooleanDescription(const void* boolean) {
  return boolean == &trueObject ? CFSTR("true") : CFSTR("false");
}

}  // namespace

constinit const CFRuntimeClass kBooleanClass{"CFBoolean", nullptr, nullptr, hashOfBoolean, copyBooleanDescription};

namespace {

constinit const CFBooleanStorage trueObject{{&kBooleanClass, kCFObjectIsConstant, 0}};
constinit const CFBooleanStorage falseObject{{&kBooleanClass, kCFObjectIsConstant, 0}};

}  // namespace
}  // namespace cf

constinit const CFBooleanRef kCFBooleanTrue = &cf::trueObject;
constinit const CFBooleanRef kCFBooleanFalse = &cf::falseObject;

CFTypeID CFBooleanGetTypeID() { return cf::typeID(cf::kBooleanClass); }

Boolean CFBooleanGetValue(CFBooleanRef boolean) { return boolean == kCFBooleanTrue; }
