// config_plan.h: what an upgrade of the configuration file would do, setting by setting.
#pragma once

#include <tovan/tovan_config_updater.h>

#include <string>
#include <vector>

#include "tools/tovanctl/setting_tree.h"

namespace tovanctl {

struct PlannedSetting {
  SettingPath path;
  plinth::CSharedCFRef<CFTypeRef> yours;
  plinth::CSharedCFRef<CFTypeRef> earlierDefault;
  plinth::CSharedCFRef<CFTypeRef> newDefault;
  std::string outcome;  // "same", "kept", "updated", "retyped", "added" or "removed"
  std::string effect;   // for people
  bool isChange = true;
};

struct Plan {
  tovan::TovanConfigUpdater::Step step = tovan::TovanConfigUpdater::Step::nothing;
  std::string file;
  std::string masterFile;
  std::string yourVersion;  // empty when there is none
  std::string newVersion;
  std::string problem;       // of a file that is to be replaced
  std::string reasonNoCopy;  // why no copy of such a file is kept; empty when one is
  std::vector<PlannedSetting> settings;
};

// In the order of the settings' paths. A dictionary that is added as a whole is shown value by value.
// CommandError(kFailed) when there are no shipped defaults; throws when a file cannot be read.
Plan planOf(const tovan::TovanConfigUpdater& updater);

Json jsonOf(const Plan& plan);

}  // namespace tovanctl
