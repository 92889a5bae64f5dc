// `tovanctl config why`: where one value of the configuration comes from.
#include <tovan/service_cache_file.h>
#include <tovan/tovan_config_file.h>

#include <memory>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/config_files.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/settings.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

using tovan::CServiceCacheEntry;
using tovan::CServiceCacheFile;
using tovan::CTovanConfigFile;

// What programs read there.
Value effectiveAt(const SettingPath& path, CFTypeRef stored) {
  const tovan::SettingDescription* const setting = describedAt(path);
  if (setting == nullptr) return Value::retaining(stored);
  if (path[0] == kDaemonSection) return CTovanConfigFile().copySetting(setting->key);
  CServiceCacheEntry entry;
  if (!CServiceCacheFile().get(string(path[1]).get(), entry)) return nullptr;
  return entry.copySetting(setting->key);
}

struct Origin {
  SettingPath path;
  Value value;
  Value stored;  // in the user's file
  Value shippedDefault;
  Value earlierDefault;
  Value builtInDefault;
  std::string source;  // "default", "shipped", "user"
};

std::string sourceOf(const Origin& origin) {
  if (!origin.stored) return "default";
  if (areEqual(origin.stored, origin.earlierDefault) || areEqual(origin.stored, origin.shippedDefault)) {
    // Unless it reads as the library's own: a value of another type does, and zero or the empty string of some
    // settings.
    const bool isRead = areEqual(origin.value, origin.stored) || !areEqual(origin.value, origin.builtInDefault);
    return isRead ? "shipped" : "default";
  }
  const bool isRead = areEqual(origin.stored, origin.value) && origin.shippedDefault;
  return areEqual(origin.value, origin.builtInDefault) && !isRead ? "default" : "user";
}

SettingPath pathOfKey(const std::string& key) {
  if (key.find('/') != std::string::npos) return parsePath(key);
  return {kDaemonSection, text(settingOfKey(CTovanConfigFile::settings(), key).key)};
}

Origin originOf(const std::string& key) {
  const ConfigFiles files = readConfigFiles();
  Origin origin;
  origin.path = pathOfKey(key);
  origin.stored = Value::retaining(valueAt(files.user.get(), origin.path));
  origin.earlierDefault = Value::retaining(valueAt(files.previousDefaults.get(), origin.path));
  origin.shippedDefault = Value::retaining(valueAt(files.shippedDefaults.get(), origin.path));
  const bool isDaemonSetting = origin.path[0] == kDaemonSection && describedAt(origin.path) != nullptr;
  const bool isInService = describedAt(origin.path) != nullptr && !isDaemonSetting &&
                           valueAt(files.user.get(), {origin.path[0], origin.path[1]}) != nullptr;
  if (!origin.stored && !origin.shippedDefault && !isDaemonSetting && !isInService) {
    throw CommandError(kUnknownName, "neither the configuration file nor the shipped defaults have a value at \"" +
                                         pathText(origin.path) + "\"");
  }
  origin.value = effectiveAt(origin.path, origin.stored.get());
  origin.builtInDefault = builtInDefaultAt(origin.path);
  origin.source = sourceOf(origin);
  return origin;
}

std::string sourceText(const Origin& origin) {
  if (origin.source == "user") return "you: it differs from the defaults";
  if (origin.source == "default") return "the library's own default";
  return areEqual(origin.stored, origin.shippedDefault)
             ? "the shipped defaults"
             : "the earlier shipped defaults; `tovanctl config upgrade` brings the new ones";
}

void why(const std::string& key, bool asJson) {
  const Origin origin = originOf(key);
  if (asJson) {
    return printJson({{"path", origin.path},
                      {"value", json(origin.value.get())},
                      {"source", origin.source},
                      {"stored", json(origin.stored.get())},
                      {"shippedDefault", json(origin.shippedDefault.get())},
                      {"earlierDefault", json(origin.earlierDefault.get())},
                      {"builtInDefault", json(origin.builtInDefault.get())}});
  }
  print(onOneLine(pathText(origin.path) + ": " + cell(origin.value.get())) + "\n");
  print("  comes from: " + sourceText(origin) + "\n");
  if (origin.stored && !areEqual(origin.stored, origin.value)) {
    print(onOneLine("  the configuration file says: " + cell(origin.stored.get())) + "\n");
  }
  print(onOneLine("  shipped default: " + cell(origin.shippedDefault.get())) + "\n");
  if (describedAt(origin.path) != nullptr) {
    print("  the library's own default: " + tovan::settingDefaultText(*describedAt(origin.path)) + "\n");
  }
}

struct Arguments {
  std::string key;
  bool json = false;
};

}  // namespace

void addConfigWhyCommand(CLI::App& config) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const command =
      config.add_subcommand("why", "One setting's value, where it comes from, and its shipped default");
  command->add_option("KEY", arguments->key, "A setting's key, or the keys from the file's root on, with / between")
      ->required();
  command->add_flag("--json", arguments->json, "One JSON document");
  command->callback([arguments] { why(arguments->key, arguments->json); });
}

}  // namespace tovanctl
