#include "tools/tovanctl/config_plan.h"

#include <plinth/exception.h>
#include <tovan/property_list_basic_file.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tools/tovanctl/exit_code.h"

namespace tovanctl {
namespace {

using tovan::MergeOutcome;
using tovan::TovanConfigUpdater;
using Step = TovanConfigUpdater::Step;

const char* wordOf(Step step) {
  static constexpr const char* kWords[] = {"nothing", "create", "replace", "merge"};
  return kWords[static_cast<int>(step)];
}

struct OutcomeWords {
  const char* word;
  const char* effect;
};

OutcomeWords wordsOf(MergeOutcome outcome) {
  switch (outcome) {
    case MergeOutcome::same:
      return {"same", "is the new default already"};
    case MergeOutcome::kept:
      return {"kept", "yours stays"};
    case MergeOutcome::updated:
      return {"updated", "takes the new default"};
    case MergeOutcome::retyped:
      return {"retyped", "takes the new default, which is of another type"};
    case MergeOutcome::added:
      break;
  }
  return {"added", "is added"};
}

SettingPath pathOf(const tovan::SettingMerge& merge) {
  SettingPath path;
  for (const auto& key : merge.path) path.push_back(text(key.get()));
  return path;
}

std::vector<PlannedSetting> plannedMerge(const TovanConfigUpdater& updater) {
  std::vector<PlannedSetting> settings;
  for (const tovan::SettingMerge& merge : updater.planMerge()) {
    const bool isChange = merge.outcome != MergeOutcome::same && merge.outcome != MergeOutcome::kept;
    const auto [word, effect] = wordsOf(merge.outcome);
    if (merge.outcome != MergeOutcome::added) {
      settings.push_back({pathOf(merge), merge.yours, merge.earlierDefault, merge.newDefault, word, effect, isChange});
      continue;
    }
    // A whole dictionary is shown value by value.
    for (const auto& [path, value] : leavesOf(merge.newDefault.get(), pathOf(merge))) {
      settings.push_back({path, nullptr, nullptr, value, word, effect, isChange});
    }
  }
  return settings;
}

// Of a file that is created, or replaced: what cannot be read of it is not shown.
std::vector<PlannedSetting> plannedCopy(CFDictionaryRef yours, CFDictionaryRef shipped) {
  std::vector<PlannedSetting> settings;
  const SettingLeaves mine = yours == nullptr ? SettingLeaves() : leavesOf(yours);
  const SettingLeaves defaults = leavesOf(shipped);
  for (const auto& [path, value] : defaults) {
    const auto found = mine.find(path);
    const bool isThere = found != mine.end();
    const bool isSame = isThere && CFEqual(found->second.get(), value.get());
    const auto [word, effect] =
        isSame ? wordsOf(MergeOutcome::same) : wordsOf(isThere ? MergeOutcome::updated : MergeOutcome::added);
    settings.push_back({path, isThere ? found->second : nullptr, nullptr, value, word, effect, !isSame});
  }
  for (const auto& [path, value] : mine) {
    if (path.empty() || defaults.contains(path)) continue;
    settings.push_back({path, value, nullptr, nullptr, "removed", "is removed; the copy keeps it", true});
  }
  return settings;
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Of a file that is to be replaced: nothing is lost with these.
std::string reasonForNoCopy(const Plan& plan) {
  std::error_code failure;
  const std::uintmax_t size = std::filesystem::file_size(plan.file, failure);
  if (failure) return "";
  if (size == 0) return "it is empty";
  const std::string content = contentOf(plan.file);
  return !content.empty() && content == contentOf(plan.masterFile) ? "it equals them" : "";
}

// Of a file that is to be replaced: why, and what can be read of it.
void lookAtInvalid(const TovanConfigUpdater& updater, Plan& plan, plinth::CSharedCFRef<CFDictionaryRef>& yours) {
  plan.reasonNoCopy = reasonForNoCopy(plan);
  try {
    plan.problem = updater.contentsProblem().value_or("");
    yours = rootOfFile(updater.filePath(TovanConfigUpdater::kUserFile)->getStringRef());
  } catch (const plinth::CException& failure) {
    plan.problem = failure.what();
  }
}

}  // namespace

Plan planOf(const TovanConfigUpdater& updater) {
  const auto path = [&updater](TovanConfigUpdater::FileIndex index) { return updater.filePath(index)->getStringRef(); };
  const CFStringRef user = path(TovanConfigUpdater::kUserFile);
  const CFStringRef master = path(TovanConfigUpdater::kMasterFile);
  Plan plan;
  plan.file = text(user);
  plan.masterFile = text(master);
  if (!updater.isFilePresent(updater.filePath(TovanConfigUpdater::kMasterFile))) {
    throw CommandError(kFailed, "there are no shipped defaults: the file \"" + plan.masterFile + "\" is missing");
  }
  const tovan::CPropertyListBasicFile shipped(master);
  plan.newVersion = text(shipped.fileVersion());
  plan.step = updater.nextStep();
  plinth::CSharedCFRef<CFDictionaryRef> yours;
  if (plan.step == Step::replace) lookAtInvalid(updater, plan, yours);
  if (plan.step == Step::create || plan.step == Step::replace) {
    plan.settings = plannedCopy(yours.get(), shipped.toPropertyList().get());
  } else {
    plan.yourVersion = text(tovan::CPropertyListBasicFile(user).fileVersion());
  }
  if (plan.step == Step::merge) plan.settings = plannedMerge(updater);
  std::sort(plan.settings.begin(), plan.settings.end(),
            [](const PlannedSetting& a, const PlannedSetting& b) { return a.path < b.path; });
  return plan;
}

Json jsonOf(const Plan& plan) {
  Json settings = Json::array();
  for (const PlannedSetting& setting : plan.settings) {
    settings.push_back({{"path", setting.path},
                        {"yours", json(setting.yours.get())},
                        {"earlierDefault", json(setting.earlierDefault.get())},
                        {"newDefault", json(setting.newDefault.get())},
                        {"outcome", setting.outcome}});
  }
  return {{"step", wordOf(plan.step)},
          {"file", plan.file},
          {"masterFile", plan.masterFile},
          {"yourVersion", plan.yourVersion.empty() ? Json(nullptr) : Json(plan.yourVersion)},
          {"newVersion", plan.newVersion},
          {"problem", plan.problem.empty() ? Json(nullptr) : Json(plan.problem)},
          {"settings", settings}};
}

}  // namespace tovanctl
