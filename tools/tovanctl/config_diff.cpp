// `tovanctl config diff`: what differs from the shipped defaults.
#include <map>
#include <memory>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/config_files.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

struct Difference {
  Value yours;
  Value shipped;
  const char* what = "";
};
using Differences = std::map<SettingPath, Difference>;

bool isDictionary(CFTypeRef value) { return value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID(); }

// A value of one file that the other does not have. What is a dictionary in both differs only in what is in it.
bool isMissing(CFDictionaryRef root, const SettingPath& path, const Value& value) {
  const CFTypeRef other = valueAt(root, path);
  return other == nullptr || isDictionary(other) != isDictionary(value.get());
}

SettingLeaves leavesOfRoot(CFDictionaryRef root) {
  return CFDictionaryGetCount(root) == 0 ? SettingLeaves() : leavesOf(root);
}

Differences differences(const ConfigFiles& files) {
  const SettingLeaves mine = leavesOfRoot(files.user.get());
  const SettingLeaves defaults = leavesOfRoot(files.shippedDefaults.get());
  Differences found;
  for (const auto& [path, value] : mine) {
    const auto other = defaults.find(path);
    if (other != defaults.end() && !areEqual(value, other->second)) found[path] = {value, other->second, "changed"};
    if (other != defaults.end() || areEqual(value, builtInDefaultAt(path))) continue;
    if (isMissing(files.shippedDefaults.get(), path, value)) found[path] = {value, nullptr, "added"};
  }
  for (const auto& [path, value] : defaults) {
    // Most settings are written only when they differ from the library's own default.
    if (mine.contains(path) || areEqual(value, builtInDefaultAt(path))) continue;
    if (isMissing(files.user.get(), path, value)) found[path] = {nullptr, value, "missing"};
  }
  return found;
}

void diff(bool asJson) {
  const ConfigFiles files = readConfigFiles();
  if (CFDictionaryGetCount(files.shippedDefaults.get()) == 0)
    throw CommandError(kFailed, "there are no shipped defaults");
  const bool isThere = CFDictionaryGetCount(files.user.get()) > 0;
  if (!isThere) message("there is no configuration yet; the daemon or `tovanctl config upgrade` creates it");
  const Differences found = isThere ? differences(files) : Differences();
  if (asJson) {
    Json documents = Json::array();
    for (const auto& [path, one] : found) {
      documents.push_back(
          {{"path", path}, {"yours", json(one.yours.get())}, {"shipped", json(one.shipped.get())}, {"what", one.what}});
    }
    return printJson({{"differences", documents}});
  }
  if (!isThere) return;
  if (found.empty()) return message("nothing differs from the shipped defaults");
  Table table({"SETTING", "YOURS", "SHIPPED DEFAULT"});
  for (const auto& [path, one] : found) table.add({pathText(path), cell(one.yours.get()), cell(one.shipped.get())});
  print(table.render(wantsColour()));
}

}  // namespace

void addConfigDiffCommand(CLI::App& config) {
  const auto asJson = std::make_shared<bool>(false);
  CLI::App* const command = config.add_subcommand("diff", "What differs from the shipped defaults");
  command->add_flag("--json", *asJson, "One JSON document");
  command->callback([asJson] { diff(*asJson); });
}

}  // namespace tovanctl
