#include "plist/setting_values.h"

#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPropertyList.h>

namespace tovan {
namespace {

using plinth::CSharedCFRef;

bool isKind(CFTypeRef value, CFTypeID kind) { return value != nullptr && CFGetTypeID(value) == kind; }

}  // namespace

CSharedCFRef<CFTypeRef> makeSettingNumber(const SettingDescription& setting, std::int64_t number) {
  switch (setting.type) {
    case SettingType::boolean:
      return CSharedCFRef<CFTypeRef>::retaining(number != 0 ? kCFBooleanTrue : kCFBooleanFalse);
    case SettingType::int32: {
      const std::int32_t narrow = static_cast<std::int32_t>(number);
      return CSharedCFRef<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &narrow));
    }
    case SettingType::enumeration:
      for (const SettingCode& code : setting.codes) {
        if (code.code == number) return CSharedCFRef<CFTypeRef>::retaining(code.name);
      }
      return nullptr;
    default:
      return CSharedCFRef<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &number));
  }
}

std::int64_t settingDefaultNumber(const SettingDescription& setting) {
  return setting.defaultConstant != nullptr ? *setting.defaultConstant : setting.defaultNumber;
}

bool numberOfSetting(const SettingDescription& setting, CFTypeRef value, std::int64_t& number) {
  if (setting.type == SettingType::boolean) {
    if (!isKind(value, CFBooleanGetTypeID())) return false;
    number = CFBooleanGetValue(static_cast<CFBooleanRef>(value)) ? 1 : 0;
    return true;
  }
  if (setting.type == SettingType::enumeration) {
    for (const SettingCode& code : setting.codes) {
      if (!CFEqual(code.name, value)) continue;
      number = code.code;
      return true;
    }
    return false;
  }
  if (!isKind(value, CFNumberGetTypeID())) return false;
  std::int64_t wide = 0;
  std::int32_t narrow = 0;
  if (!CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &wide)) return false;
  if (setting.type == SettingType::int32 &&
      !CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &narrow)) {
    return false;
  }
  number = wide;
  return true;
}

bool isObjectOfSetting(const SettingDescription& setting, CFTypeRef value) {
  switch (setting.type) {
    case SettingType::string:
      return isKind(value, CFStringGetTypeID());
    case SettingType::array:
      return isKind(value, CFArrayGetTypeID());
    case SettingType::dictionary:
      return isKind(value, CFDictionaryGetTypeID());
    default:
      return value != nullptr;
  }
}

bool isUnsetOrEmpty(CFTypeRef value) {
  return value == nullptr ||
         (isKind(value, CFStringGetTypeID()) && CFStringGetLength(static_cast<CFStringRef>(value)) == 0);
}

}  // namespace tovan
