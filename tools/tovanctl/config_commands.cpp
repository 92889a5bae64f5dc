#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <tovan/tovan_config_file.h>

#include <memory>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/file_change.h"
#include "tools/tovanctl/first_configuration.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/settings.h"

namespace tovanctl {
namespace {

using tovan::CTovanConfigFile;

std::string configPath() {
  const plinth::CSharedCFRef<CFStringRef> stored = string(tovan::TovanCorePrivate::kTovanConfigFilePath);
  const plinth::CSharedCFRef<CFStringRef> expanded(TovanExpandTildeInPath(stored.get()));
  return text(expanded.get());
}

void show(bool asJson) {
  const CTovanConfigFile config;
  const CopySetting copy = [&config](CFStringRef key) { return config.copySetting(key); };
  if (asJson) return printJson({{"settings", settingsAsJson(CTovanConfigFile::settings(), copy)}});
  print(settingsAsTable(CTovanConfigFile::settings(), copy));
}

void get(const std::string& key, bool asJson) {
  const tovan::SettingDescription& setting = settingOfKey(CTovanConfigFile::settings(), key);
  const CTovanConfigFile config;
  const auto value = config.copySetting(setting.key);
  if (asJson) return printJson({{"key", key}, {"value", json(value.get())}});
  print(cell(value.get()) + "\n");
}

void set(const std::string& key, const std::string& value) {
  const tovan::SettingDescription& setting = settingOfKey(CTovanConfigFile::settings(), key);
  const auto parsed = parseValue(setting, value);
  createMissingConfiguration();
  CTovanConfigFile config;
  beginChange(config);
  config.setSetting(setting.key, parsed.get());
  config.flush();
  print(key + " is now " + cell(config.copySetting(setting.key).get()) + "\n");
}

void path(bool asJson) {
  if (asJson) return printJson({{"path", configPath()}});
  print(configPath() + "\n");
}

struct Arguments {
  std::string key;
  std::string value;
  bool json = false;
};

}  // namespace

void addConfigCommands(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App& config = *app.add_subcommand("config", "Look at and change the daemon's settings on this host");
  config.require_subcommand(1);

  CLI::App* const showCommand = config.add_subcommand("show", "All settings in effect, with their defaults");
  showCommand->add_flag("--json", arguments->json, "One JSON document");
  showCommand->callback([arguments] { show(arguments->json); });

  CLI::App* const getCommand = config.add_subcommand("get", "One setting");
  getCommand->add_option("KEY", arguments->key, "The setting's key")->required();
  getCommand->add_flag("--json", arguments->json, "One JSON document");
  getCommand->callback([arguments] { get(arguments->key, arguments->json); });

  CLI::App* const setCommand = config.add_subcommand("set", "Change one setting");
  setCommand->add_option("KEY", arguments->key, "The setting's key")->required();
  setCommand->add_option("VALUE", arguments->value, "The new value, of the setting's type")->required();
  setCommand->callback([arguments] { set(arguments->key, arguments->value); });

  CLI::App* const pathCommand = config.add_subcommand("path", "Where the configuration file lies");
  pathCommand->add_flag("--json", arguments->json, "One JSON document");
  pathCommand->callback([arguments] { path(arguments->json); });

  addConfigWhyCommand(config);
  addConfigDiffCommand(config);
  addConfigUpgradeCommand(config);
}

}  // namespace tovanctl
