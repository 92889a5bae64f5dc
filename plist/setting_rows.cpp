#include "plist/setting_rows.h"

#include <plinth/exception.h>
#include <tovan/cf_util.h>

#include <CoreFoundation/CFNumber.h>

#include "plist/setting_values.h"

namespace tovan {
namespace {

using plinth::CSharedCFRef;

template <class Value>
void store(const SettingRule& rule, Value& member, std::int64_t number) {
  const bool converts = rule.convert != nullptr && rule.setting.type == SettingType::int32;
  member = static_cast<Value>(converts ? rule.convert(static_cast<std::int32_t>(number)) : number);
}

template <class Object>
void store(CSharedCFRef<Object>& member, CFTypeRef value) {
  member = CSharedCFRef<Object>::retaining(static_cast<Object>(value));
}

// False, with the member as it was, when the value is not one of the setting.
bool storeValue(const SettingRule& rule, const SettingSlot& slot, CFTypeRef value) {
  return std::visit(
      [&](const auto member) {
        if constexpr (isHolder<SlotValue<decltype(member)>>) {
          if (!isObjectOfSetting(rule.setting, value)) return false;
          store(*member, value);
        } else {
          std::int64_t number = 0;
          if (!numberOfSetting(rule.setting, value, number)) return false;
          store(rule, *member, number);
        }
        return true;
      },
      slot);
}

void storeUnset(const SettingSlot& slot) {
  std::visit([](const auto member) { *member = SlotValue<decltype(member)>(); }, slot);
}

bool isUnset(const SettingRule& rule, const SettingSlot& slot) {
  return std::visit(
      [&](const auto member) {
        if constexpr (isHolder<SlotValue<decltype(member)>>) {
          return rule.load == SettingLoad::fromUnsetEmpty ? isUnsetOrEmpty(member->get()) : member->isNull();
        } else {
          return *member == SlotValue<decltype(member)>();
        }
      },
      slot);
}

void storeDefault(const SettingRule& rule, const SettingSlot& slot) {
  const CSharedCFRef<CFTypeRef> value = copySettingDefault(rule.setting);
  if (value.isNull() || !storeValue(rule, slot, value.get())) storeUnset(slot);
}

CFDictionaryRef containerIn(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef found = CFDictionaryGetValue(dictionary, key);
  const bool is = found != nullptr && CFGetTypeID(found) == CFDictionaryGetTypeID();
  return is ? static_cast<CFDictionaryRef>(found) : nullptr;
}

bool isWritten(const SettingRule& rule, CFTypeRef value, const SettingSlot& slot, bool condition) {
  switch (rule.setting.written) {
    case SettingWritten::always:
      return true;
    case SettingWritten::whenSet:
      return value != nullptr;
    case SettingWritten::whenNotEmpty:
      return !isUnsetOrEmpty(value);
    case SettingWritten::whenNotDefault:
      return value != nullptr && !CFEqual(value, copySettingDefault(rule.setting).get());
    case SettingWritten::whenNotNegative:
      return *std::get<std::int64_t*>(slot) >= 0;
    case SettingWritten::withCondition:
      return condition;
  }
  return false;
}

// What a setting that is null is written as, where it is written all the same.
CSharedCFRef<CFTypeRef> emptyValue(const SettingRule& rule) {
  if (rule.setting.type == SettingType::dictionary) return CSharedCFRef<CFTypeRef>(CFUtil::CFDictMakeMutable());
  if (rule.setting.type == SettingType::array) return CSharedCFRef<CFTypeRef>(CFUtil::CFArrayMakeMutable());
  return CSharedCFRef<CFTypeRef>(CFSTR(""));
}

CSharedCFRef<CFTypeRef> writtenValue(const SettingRule& rule, const CSharedCFRef<CFTypeRef>& value) {
  if (value.isNull()) return emptyValue(rule);
  if (rule.setting.type != SettingType::dictionary) return value;
  return CSharedCFRef<CFTypeRef>(CFUtil::CFDictMakeMutableCopy(static_cast<CFDictionaryRef>(value.get())));
}

// "a string", "an array", "one of DN, MC, RV".
std::string wantedText(const SettingDescription& setting) {
  std::string type = settingTypeText(setting);
  if (setting.type == SettingType::enumeration) return type;
  return (setting.type == SettingType::array ? "an " : "a ") + type;
}

std::string textOf(const plinth::CStringRef& text) { return text->str(); }

// A value in a message: short ones in full, the others by what they are.
std::string givenText(CFTypeRef value) {
  const CFTypeID type = CFGetTypeID(value);
  if (type == CFStringGetTypeID()) return textOf(plinth::CString::sprintf("the string \"%@\"", value));
  if (type == CFBooleanGetTypeID()) return value == kCFBooleanTrue ? "the boolean true" : "the boolean false";
  if (type == CFNumberGetTypeID()) return textOf(plinth::CString::sprintf("the number %@", value));
  if (type == CFArrayGetTypeID()) return "an array";
  if (type == CFDictionaryGetTypeID()) return "a dictionary";
  return textOf(plinth::CString::sprintf("the value %@", value));
}

}  // namespace

void resetSetting(const SettingRule& rule, const SettingSlot& slot) {
  if (rule.load == SettingLoad::kept) return;
  if (rule.load == SettingLoad::fromDefault) {
    storeDefault(rule, slot);
  } else {
    storeUnset(slot);
  }
}

void readSetting(const SettingRule& rule, CFDictionaryRef dictionary, const SettingSlot& slot) {
  const SettingDescription& setting = rule.setting;
  const CFDictionaryRef place = setting.container == nullptr ? dictionary : containerIn(dictionary, setting.container);
  const CFTypeRef value = place == nullptr ? nullptr : CFDictionaryGetValue(place, setting.key);
  if (value == nullptr || (setting.written == SettingWritten::whenNotEmpty && isUnsetOrEmpty(value))) return;
  storeValue(rule, slot, value);
}

void settleSetting(const SettingRule& rule, const SettingSlot& slot) {
  const bool settles = rule.load == SettingLoad::fromUnset || rule.load == SettingLoad::fromUnsetEmpty;
  if (settles && isUnset(rule, slot)) storeDefault(rule, slot);
}

void writeSetting(const SettingRule& rule, const SettingSlot& slot, bool condition, CFMutableDictionaryRef dictionary) {
  const SettingDescription& setting = rule.setting;
  const CSharedCFRef<CFTypeRef> value = copySettingValue(rule, slot);
  const bool written = isWritten(rule, value.get(), slot, condition);
  if (setting.container == nullptr) {
    CFUtil::CFDictSet(dictionary, setting.key, written ? writtenValue(rule, value).get() : nullptr);
  } else if (written) {
    const CSharedCFRef<CFMutableDictionaryRef> container(
        CFUtil::CFDictMakeMutableCopy(containerIn(dictionary, setting.container)));
    CFUtil::CFDictSet(container.get(), setting.key, value.get());
    CFUtil::CFDictSet(dictionary, setting.container, container.get());
  }
}

CSharedCFRef<CFTypeRef> copySettingValue(const SettingRule& rule, const SettingSlot& slot) {
  return std::visit(
      [&](const auto member) {
        if constexpr (isHolder<SlotValue<decltype(member)>>) {
          return CSharedCFRef<CFTypeRef>(*member);
        } else {
          return makeSettingNumber(rule.setting, static_cast<std::int64_t>(*member));
        }
      },
      slot);
}

void assignSetting(const SettingRule& rule, const SettingSlot& slot, CFTypeRef value, const char* function) {
  if (value == nullptr) {
    storeDefault(rule, slot);
  } else if (!storeValue(rule, slot, value)) {
    throw plinth::CParamException("%s: the setting \"%@\" takes %s, not %s", function, rule.setting.key,
                                  wantedText(rule.setting).c_str(), givenText(value).c_str());
  }
}

void throwUnknownSetting(CFStringRef key, const char* function) {
  throw plinth::CParamException("%s: there is no setting \"%@\"", function, key);
}

}  // namespace tovan
