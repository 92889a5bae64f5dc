#include "tools/tovanctl/config_files.h"

#include <tovan/service_cache_file.h>
#include <tovan/tovan_config_file.h>
#include <tovan/tovan_config_updater.h>

#include <sstream>

namespace tovanctl {

ConfigFiles readConfigFiles() {
  using tovan::TovanConfigUpdater;
  std::ostringstream nothing;  // looking reports nothing
  const TovanConfigUpdater updater(nothing);
  const auto root = [&updater](TovanConfigUpdater::FileIndex index) {
    return rootOfFile(updater.filePath(index)->getStringRef());
  };
  return {root(TovanConfigUpdater::kUserFile), root(TovanConfigUpdater::kPreviousDefaultsFile),
          root(TovanConfigUpdater::kMasterFile)};
}

bool areEqual(const Value& a, const Value& b) { return a && b && CFEqual(a.get(), b.get()); }

const tovan::SettingDescription* describedAt(const SettingPath& path) {
  if (path.size() == 2 && path[0] == kDaemonSection) {
    return tovan::findSetting(tovan::CTovanConfigFile::settings(), string(path[1]).get());
  }
  if (path.size() != 3 || path[0] != kServicesSection) return nullptr;
  const tovan::SettingDescription* const found =
      tovan::findSetting(tovan::CServiceCacheEntry::settings(), string(path[2]).get());
  return found == nullptr || found->container != nullptr ? nullptr : found;
}

Value builtInDefaultAt(const SettingPath& path) {
  const tovan::SettingDescription* const setting = describedAt(path);
  return setting == nullptr ? nullptr : tovan::copySettingDefault(*setting);
}

}  // namespace tovanctl
