// config_files.h: the configuration file, its defaults, and what the library says about what lies in them.
#pragma once

#include <tovan/setting_table.h>

#include "tools/tovanctl/setting_tree.h"

namespace tovanctl {

using Value = plinth::CSharedCFRef<CFTypeRef>;

// The keys of the sections that the library describes.
inline constexpr const char* kDaemonSection = "mervaneconfig";
inline constexpr const char* kServicesSection = "mervaneservices";

// The roots of the three files as they are now; empty dictionaries of those that are missing. Throws when one cannot be
// read.
struct ConfigFiles {
  plinth::CSharedCFRef<CFDictionaryRef> user;
  plinth::CSharedCFRef<CFDictionaryRef> previousDefaults;
  plinth::CSharedCFRef<CFDictionaryRef> shippedDefaults;
};
ConfigFiles readConfigFiles();

// Both there, and equal.
bool areEqual(const Value& a, const Value& b);

// The library's description of what lies at a path; null where it has none.
const tovan::SettingDescription* describedAt(const SettingPath& path);
// Its default; empty where there is none.
Value builtInDefaultAt(const SettingPath& path);

}  // namespace tovanctl
