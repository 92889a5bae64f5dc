// configuration.h: the shared configuration file of the scratch home, and cache entries made from XML.
#pragma once

#include "tests/launch/lists.h"
#include "tests/support/scratch_home.h"

#include <tovan/service_cache_file.h>
#include <tovan/service_config_file.h>

#include <filesystem>
#include <string>

namespace test {

inline std::string configurationFolder() { return scratchHome() + "/Library/Application Support/Lumisphere"; }

inline std::string configurationPath() { return configurationFolder() + "/LumisphereConfig.plist"; }

// Empties the home's Library and puts a configuration file of these root entries there.
inline void writeConfiguration(const std::string& entries) {
  std::filesystem::remove_all(scratchHome() + "/Library");
  makeFolders(configurationFolder());
  writeFile(configurationPath(), document("<dict>" + entries + "</dict>"));
}

inline tovan::CServiceCacheEntry cacheEntry(const std::string& kind, const std::string& entries) {
  return tovan::CServiceCacheEntry(plinth::CSTR(kind)->getStringRef(), asDictionary(dict(entries)).get());
}

inline tovan::CServiceConfigEntry configEntry(const std::string& name, const std::string& entries) {
  return tovan::CServiceConfigEntry(plinth::CSTR(name)->getStringRef(), asDictionary(dict(entries)).get());
}

}  // namespace test
