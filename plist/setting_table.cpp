#include <tovan/setting_table.h>

#include <plinth/string.h>

#include "plist/setting_values.h"

namespace tovan {
namespace {

using plinth::CSharedCFRef;

std::string text(CFStringRef string) { return plinth::CSTR(string)->str(); }

std::string namesOf(std::span<const SettingCode> codes) {
  std::string names;
  for (const SettingCode& code : codes) names += (names.empty() ? "" : ", ") + text(code.name);
  return names;
}

bool isNumeric(const SettingDescription& setting) {
  return setting.type == SettingType::boolean || setting.type == SettingType::int32 ||
         setting.type == SettingType::int64 || setting.type == SettingType::enumeration;
}

}  // namespace

const SettingDescription* findSetting(SettingList settings, CFStringRef key) noexcept {
  for (const SettingDescription& setting : settings) {
    if (CFEqual(setting.key, key)) return &setting;
  }
  return nullptr;
}

std::string settingTypeText(const SettingDescription& setting) {
  switch (setting.type) {
    case SettingType::boolean:
      return "boolean";
    case SettingType::int32:
      return "32-bit integer";
    case SettingType::int64:
      return "64-bit integer";
    case SettingType::string:
      return "string";
    case SettingType::enumeration:
      return "one of " + namesOf(setting.codes);
    case SettingType::array:
      return "array";
    case SettingType::dictionary:
      return "dictionary";
    case SettingType::any:
      break;
  }
  return "any value";
}

std::string settingDefaultText(const SettingDescription& setting) {
  if (setting.computedDefault != nullptr) return setting.computedDefault;
  if (setting.type == SettingType::boolean) return settingDefaultNumber(setting) != 0 ? "true" : "false";
  const CSharedCFRef<CFTypeRef> value = copySettingDefault(setting);
  if (value.isNull()) return "none";
  if (setting.type == SettingType::string) {
    return isUnsetOrEmpty(value.get()) ? "the empty string" : text(setting.defaultText);
  }
  if (setting.type == SettingType::enumeration) return text(static_cast<CFStringRef>(value.get()));
  return std::to_string(settingDefaultNumber(setting));
}

std::string settingWrittenText(const SettingDescription& setting) {
  switch (setting.written) {
    case SettingWritten::always:
      return "always";
    case SettingWritten::whenSet:
      return "when set";
    case SettingWritten::whenNotEmpty:
      return "when not empty";
    case SettingWritten::whenNotDefault:
      return "when it differs from the default";
    case SettingWritten::whenNotNegative:
      return "when 0 or more";
    case SettingWritten::withCondition:
      break;
  }
  return "when " + text(setting.condition) + " is true";
}

CSharedCFRef<CFTypeRef> copySettingDefault(const SettingDescription& setting) {
  if (setting.copyComputedDefault != nullptr) return CSharedCFRef<CFTypeRef>(setting.copyComputedDefault());
  if (isNumeric(setting)) return makeSettingNumber(setting, settingDefaultNumber(setting));
  return CSharedCFRef<CFTypeRef>::retaining(setting.defaultText);
}

}  // namespace tovan
