#include <plinth/plinth.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_installation.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/file_change.h"
#include "tools/tovanctl/install_command.h"
#include "tools/tovanctl/jobs.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/settings.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

using tovan::CServiceCacheEntry;
using tovan::CServiceCacheFile;

Json summary(const CServiceCacheEntry& entry) {
  Json object = Json::object();
  object["name"] = text(entry.name());
  object["displayName"] = json(entry.displayName());
  object["enabled"] = entry.enabled;
  object["running"] = isServiceRunning(entry.name());
  object["instances"] = entry.instances;
  object["startedBy"] = startedByLaunchd(entry) ? "launchd" : "daemon";
  object["version"] = entry.version;
  object["path"] = json(entry.path());
  return object;
}

void list(bool asJson, bool namesOnly) {
  const CServiceCacheFile cache;
  const std::vector<std::string> names = serviceNames(cache);
  if (namesOnly && !asJson) {
    for (const std::string& name : names) print(name + "\n");
    return;
  }
  Json services = Json::array();
  for (const std::string& name : names) services.push_back(summary(serviceOfName(cache, name)));
  if (asJson) return printJson({{"services", services}});
  if (services.empty()) return message("no service is installed; `tovanctl service install` installs Lumisphere's two");
  Table table({"SERVICE", "ENABLED", "RUNNING", "INSTANCES", "STARTED BY", "VERSION", "EXECUTABLE"});
  for (const Json& service : services) {
    table.add({service["name"].get<std::string>(), service["enabled"] ? "yes" : "no", service["running"] ? "yes" : "no",
               service["instances"].dump(), service["startedBy"].get<std::string>(), service["version"].dump(),
               service["path"].is_string() ? service["path"].get<std::string>() : "-"});
  }
  print(table.render(wantsColour()));
}

void show(const std::string& name, bool asJson) {
  const CServiceCacheFile cache;
  const CServiceCacheEntry entry = serviceOfName(cache, name);
  const CopySetting copy = [&entry](CFStringRef key) { return entry.copySetting(key); };
  if (asJson) {
    Json document = summary(entry);
    document["settings"] = settingsAsJson(CServiceCacheEntry::settings(), copy);
    return printJson(document);
  }
  print(name + (entry.enabled ? " (enabled)\n\n" : " (disabled)\n\n") +
        settingsAsTable(CServiceCacheEntry::settings(), copy));
}

void get(const std::string& name, const std::string& key, bool asJson) {
  const CServiceCacheFile cache;
  const CServiceCacheEntry entry = serviceOfName(cache, name);
  const auto value = entry.copySetting(settingOfKey(CServiceCacheEntry::settings(), key).key);
  if (asJson) return printJson({{"service", name}, {"key", key}, {"value", json(value.get())}});
  print(cell(value.get()) + "\n");
}

// Sets it under the file's lock, so that nothing gets lost which others change meanwhile. The entry as it is now.
CServiceCacheEntry change(const std::string& name, CFStringRef key, CFTypeRef value) {
  CServiceCacheFile cache;
  serviceOfName(cache, name);  // locking would make the file
  beginChange(cache);
  CServiceCacheEntry entry = serviceOfName(cache, name);
  entry.setSetting(key, value);
  cache.put(entry);
  cache.flush();
  return entry;
}

// The jobs beyond the number of instances would be dynamic ones from now on, which no sync ends.
void endJobsBeyond(const std::string& name, const CServiceCacheEntry& entry) {
  for (const Job& job : jobsOfService(entry)) {
    if (job.instance < static_cast<unsigned int>(std::max(0, entry.instances))) continue;
    if (takeDown(job))
      print(name + ", instance " + std::to_string(job.instance) + ": job " + job.label + " unloaded\n");
    removeDescription(job);
  }
}

void set(const std::string& name, const std::string& key, const std::string& value) {
  const tovan::SettingDescription& setting = settingOfKey(CServiceCacheEntry::settings(), key);
  const auto parsed = parseValue(setting, value);
  const std::int32_t before = serviceOfName(CServiceCacheFile(), name).instances;
  const CServiceCacheEntry entry = change(name, setting.key, parsed.get());
  print(name + ": " + key + " is now " + cell(entry.copySetting(setting.key).get()) + "\n");
  if (!startedByLaunchd(entry)) return;
  if (entry.instances < before) endJobsBeyond(name, entry);
  if (entry.instances > before) writeMissingDescriptions(entry);
}

void callForService(const std::string& name, bool (*function)(CFStringRef), const std::string& done) {
  {
    const CServiceCacheFile cache;
    serviceOfName(cache, name);
  }
  if (!function(string(name).get())) throw CommandError(kFailed, "\"" + name + "\" is not installed any more");
  print(name + ": " + done + "\n");
}

bool hasLoadedJobs(const CServiceCacheEntry& entry) {
  if (!startedByLaunchd(entry)) return false;
  try {
    const std::vector<Job> jobs = jobsOfService(entry);
    return std::any_of(jobs.begin(), jobs.end(), [](const Job& job) { return stateOfJob(job).loaded; });
  } catch (const plinth::CException&) {
    return false;  // of a launch hint or a name without jobs, or without launchctl
  }
}

// What runs goes on. The daemon ends its own at the next sync; of the jobs nobody knows any more whose they were.
void remove(const std::string& name) {
  const CServiceCacheEntry entry = serviceOfName(CServiceCacheFile(), name);
  if (isRequiredService(name)) {
    throw CommandError(kUsage, "\"" + name +
                                   "\" cannot be removed: the daemon takes a configuration without it for damaged; "
                                   "`tovanctl service disable` keeps it from running");
  }
  callForService(name, removeService, "removed");
  if (hasLoadedJobs(entry)) message("its jobs are still loaded; `tovanctl down` ends them, with everything else");
}

struct Arguments {
  std::vector<std::string> bundles;
  std::string installName;
  std::string name;
  std::string key;
  std::string value;
  bool json = false;
  bool namesOnly = false;
};

void addChangingVerb(CLI::App& service, const std::shared_ptr<Arguments>& arguments, const std::string& verb,
                     const std::string& help, bool (*function)(CFStringRef), const std::string& done) {
  CLI::App* const command = service.add_subcommand(verb, help);
  command->add_option("NAME", arguments->name, "The service's name")->required();
  command->callback([arguments, function, done] { callForService(arguments->name, function, done); });
}

CLI::App* addNamedVerb(CLI::App& service, const std::shared_ptr<Arguments>& arguments, const std::string& verb,
                       const std::string& help) {
  CLI::App* const command = service.add_subcommand(verb, help);
  command->add_option("NAME", arguments->name, "The service's name")->required();
  return command;
}

void addReadingVerbs(CLI::App& service, const std::shared_ptr<Arguments>& arguments) {
  CLI::App* const listCommand = service.add_subcommand("list", "The installed services, a row each");
  listCommand->add_flag("--json", arguments->json, "One JSON document");
  listCommand->add_flag("--names", arguments->namesOnly, "The names alone, one a line");
  listCommand->callback([arguments] { list(arguments->json, arguments->namesOnly); });

  CLI::App* const showCommand = addNamedVerb(service, arguments, "show", "Every setting of one service");
  showCommand->add_flag("--json", arguments->json, "One JSON document");
  showCommand->callback([arguments] { show(arguments->name, arguments->json); });

  CLI::App* const getCommand = addNamedVerb(service, arguments, "get", "One setting of one service");
  getCommand->add_option("KEY", arguments->key, "The setting's key")->required();
  getCommand->add_flag("--json", arguments->json, "One JSON document");
  getCommand->callback([arguments] { get(arguments->name, arguments->key, arguments->json); });
}

}  // namespace

void addServiceCommands(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App& service = *app.add_subcommand("service", "Install, enable, start, stop, restart and look at services");
  service.require_subcommand(1);

  CLI::App* const install = service.add_subcommand("install", "Install service bundles");
  install->add_option("BUNDLE", arguments->bundles, "Bundles to install; Lumisphere's two when none is given");
  install->add_option("--name", arguments->installName, "Install under this name instead of the bundle's kind");
  install->callback([arguments] { installBundles(arguments->bundles, arguments->installName); });

  addReadingVerbs(service, arguments);

  CLI::App* const setCommand = addNamedVerb(service, arguments, "set", "Change one setting of one service");
  setCommand->add_option("KEY", arguments->key, "The setting's key")->required();
  setCommand->add_option("VALUE", arguments->value, "The new value, of the setting's type")->required();
  setCommand->callback([arguments] { set(arguments->name, arguments->key, arguments->value); });

  CLI::App* const removeCommand = addNamedVerb(service, arguments, "remove", "Take a service out of the registry");
  removeCommand->callback([arguments] { remove(arguments->name); });
  addChangingVerb(service, arguments, "enable", "Let a service run, from the next sync on", enableService, "enabled");
  addChangingVerb(service, arguments, "disable", "Keep a service from running, from the next sync on", disableService,
                  "disabled");
  addChangingVerb(service, arguments, "reset", "Put a service back to disabled", resetServiceEntry, "reset (disabled)");

  addServiceRunCommands(service);
}

}  // namespace tovanctl
