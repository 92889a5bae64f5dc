// settings_merge.h: the three-way merge of settings, which the updater does and foretells.
#pragma once

#include <tovan/tovan_config_updater.h>

#include <CoreFoundation/CFDictionary.h>

#include <vector>

namespace tovan {

// Merges by the rules of TovanConfigUpdater::mergeSettingsDict; whether anything changed. With `steps`, also appends
// what became of every value.
bool mergeSettings(CFMutableDictionaryRef target, CFDictionaryRef previous, CFDictionaryRef shipped,
                   std::vector<SettingMerge>* steps = nullptr);

}  // namespace tovan
