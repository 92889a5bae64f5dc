#include "tools/tovanctl/settings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/suggestions.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

using Value = plinth::CSharedCFRef<CFTypeRef>;

[[noreturn]] void refuse(const tovan::SettingDescription& setting, const std::string& given) {
  throw CommandError(kUsage,
                     text(setting.key) + " takes " + tovan::settingTypeText(setting) + ", not \"" + given + "\"");
}

Value parseBoolean(const tovan::SettingDescription& setting, const std::string& given) {
  static constexpr std::array<std::string_view, 4> kTrue = {"true", "yes", "on", "1"};
  static constexpr std::array<std::string_view, 4> kFalse = {"false", "no", "off", "0"};
  if (std::find(kTrue.begin(), kTrue.end(), given) != kTrue.end()) return Value::retaining(kCFBooleanTrue);
  if (std::find(kFalse.begin(), kFalse.end(), given) != kFalse.end()) return Value::retaining(kCFBooleanFalse);
  refuse(setting, given);
}

Value parseInteger(const tovan::SettingDescription& setting, const std::string& given) {
  std::int64_t number = 0;
  const char* const end = given.data() + given.size();
  const auto [stopped, error] = std::from_chars(given.data(), end, number);
  if (error != std::errc() || stopped != end) refuse(setting, given);
  if (setting.type == tovan::SettingType::int32 &&
      (number < std::numeric_limits<std::int32_t>::min() || number > std::numeric_limits<std::int32_t>::max())) {
    refuse(setting, given);
  }
  return Value(CFNumberCreate(nullptr, kCFNumberSInt64Type, &number));
}

Value parseEnumeration(const tovan::SettingDescription& setting, const std::string& given) {
  for (const tovan::SettingCode& code : setting.codes) {
    if (text(code.name) == given) return Value::retaining(code.name);
  }
  refuse(setting, given);
}

}  // namespace

const tovan::SettingDescription& settingOfKey(tovan::SettingList settings, const std::string& key) {
  const tovan::SettingDescription* const found = tovan::findSetting(settings, string(key).get());
  if (found != nullptr) return *found;
  std::vector<std::string> keys;
  for (const tovan::SettingDescription& setting : settings) keys.push_back(text(setting.key));
  throw CommandError(kUnknownName, unknownName("setting", key, keys));
}

Value parseValue(const tovan::SettingDescription& setting, const std::string& given) {
  switch (setting.type) {
    case tovan::SettingType::boolean:
      return parseBoolean(setting, given);
    case tovan::SettingType::int32:
    case tovan::SettingType::int64:
      return parseInteger(setting, given);
    case tovan::SettingType::string:
      return string(given);
    case tovan::SettingType::enumeration:
      return parseEnumeration(setting, given);
    case tovan::SettingType::array:
    case tovan::SettingType::dictionary:
    case tovan::SettingType::any:
      break;
  }
  throw CommandError(kUsage, text(setting.key) + " holds " + tovan::settingTypeText(setting) +
                                 ", which cannot be given on a command line");
}

Json settingsAsJson(tovan::SettingList settings, const CopySetting& copy) {
  Json object = Json::object();
  for (const tovan::SettingDescription& setting : settings) {
    object[text(setting.key)] = json(copy(setting.key).get());
  }
  return object;
}

std::string settingsAsTable(tovan::SettingList settings, const CopySetting& copy) {
  Table table({"KEY", "VALUE", "TYPE", "DEFAULT", "WHAT IT IS"});
  for (const tovan::SettingDescription& setting : settings) {
    table.add({text(setting.key), cell(copy(setting.key).get()), tovan::settingTypeText(setting),
               tovan::settingDefaultText(setting), setting.description});
  }
  return table.render(wantsColour());
}

}  // namespace tovanctl
