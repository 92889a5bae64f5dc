// settings.h: settings as the library's tables describe them, to and from the command line.
#pragma once

#include <tovan/setting_table.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/tovanctl/values.h"

namespace tovanctl {

// The row of a key. CommandError(kUnknownName), with the nearest key, when the table has none.
const tovan::SettingDescription& settingOfKey(tovan::SettingList settings, const std::string& key);

// The value that a text stands for. CommandError(kUsage) naming the key, the text and the type wanted.
plinth::CSharedCFRef<CFTypeRef> parseValue(const tovan::SettingDescription& setting, const std::string& text);

// The current value of a key.
using CopySetting = std::function<plinth::CSharedCFRef<CFTypeRef>(CFStringRef key)>;

// All settings with their values: as one JSON object, and as a table of key, value, type and default.
Json settingsAsJson(tovan::SettingList settings, const CopySetting& copy);
std::string settingsAsTable(tovan::SettingList settings, const CopySetting& copy);

}  // namespace tovanctl
