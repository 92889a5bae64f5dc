// `tovanctl service start|stop|restart|sync` and `service instances add|remove`.
#include <fmt/format.h>
#include <tovan/dynamic_instances.h>
#include <tovan/service_control.h>
#include <tovan/service_installation.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/services_running.h"
#include "tools/tovanctl/status.h"

namespace tovanctl {
namespace {

using tovan::CServiceCacheEntry;
using Names = std::vector<std::string>;

constexpr double kTimeout =
    40;  // seconds; a job has thirty to end, and one that ended a moment ago is held back for ten

bool nothingRuns(const ServiceState& service) { return processesOf(service).empty(); }

void setEnabled(const Names& names, bool enabled) {
  servicesOfNames(names);  // all of them are known, or nothing is changed
  for (const std::string& name : names) {
    const auto set = enabled ? enableService : disableService;
    if (!set(string(name).get())) throw CommandError(kFailed, "\"" + name + "\" is not installed any more");
  }
}

void start(const Names& names, double timeout) {
  setEnabled(names, true);
  synchronise(names);
  requireDaemonFor(names);
  reportServices(awaitServices(names, deadlineIn(timeout), isAsWanted), isAsWanted);
}

// Instances beyond the configured ones are not synchronised; who stops a service means them too.
void stop(const Names& names, double timeout) {
  setEnabled(names, false);
  synchronise(names);
  for (const CServiceCacheEntry& entry : servicesOfNames(names)) {
    if (!startedByLaunchd(entry)) continue;
    for (const InstanceState& instance : lookAtService(entry).instances) takeDown(*instance.job);
  }
  reportServices(awaitServices(names, deadlineIn(timeout), nothingRuns), nothingRuns);
}

// The daemon restarts its own services. A job is loaded anew: that way nothing holds its next start back.
void restartJobs(const CServiceCacheEntry& entry) {
  writeMissingDescriptions(entry);
  for (const InstanceState& instance : lookAtService(entry).instances) {
    takeDown(*instance.job);
    bringUp(*instance.job);
  }
}

void restart(const Names& names, double timeout) {
  std::vector<pid_t> before;
  Names ofDaemon;
  for (const CServiceCacheEntry& entry : servicesOfNames(names)) {
    const std::string name = text(entry.name());
    if (!entry.enabled) {
      throw CommandError(
          kFailed, fmt::format("\"{0}\" is disabled; `tovanctl service start {0}` enables it and starts it", name));
    }
    for (const pid_t pid : processesOf(lookAtService(entry))) before.push_back(pid);
    if (!startedByLaunchd(entry)) ofDaemon.push_back(name);
  }
  requireDaemonFor(names);
  if (!ofDaemon.empty()) restartServices(arrayOfStrings(ofDaemon).get());
  for (const CServiceCacheEntry& entry : servicesOfNames(names)) {
    if (startedByLaunchd(entry)) restartJobs(entry);
  }
  const auto isNew = [&before](const ServiceState& service) {
    const std::vector<pid_t> now = processesOf(service);
    const bool changed = std::none_of(now.begin(), now.end(), [&before](pid_t pid) {
      return std::find(before.begin(), before.end(), pid) != before.end();
    });
    return changed && isAsWanted(service);
  };
  reportServices(awaitServices(names, deadlineIn(timeout), isNew), isNew);
}

void sync(const Names& given, double timeout) {
  const Names names = given.empty() ? serviceNames(tovan::CServiceCacheFile()) : given;
  servicesOfNames(names);
  if (names.empty()) return message("no service is installed; `tovanctl service install` installs Lumisphere's two");
  synchronise(names);
  requireDaemonFor(names);
  reportServices(awaitServices(names, deadlineIn(timeout), isAsWanted), isAsWanted);
}

// The entry of a service that can have dynamic instances.
CServiceCacheEntry launchAgentOfName(const std::string& name) {
  const CServiceCacheEntry entry = servicesOfNames({name}).front();
  if (!startedByLaunchd(entry)) {
    throw CommandError(kFailed, "\"" + name +
                                    "\" is started by the daemon and has no dynamic instances; `tovanctl service set " +
                                    name + " Instances NUMBER` changes how many it has");
  }
  return entry;
}

// How many there are: one more than the highest dynamic index that is loaded or triggered.
unsigned int dynamicInstances(const CServiceCacheEntry& entry) {
  const auto configured = static_cast<unsigned int>(std::max(0, entry.instances));
  unsigned int count = 0;
  for (const InstanceState& instance : lookAtService(entry).instances) {
    if (instance.dynamic) count = std::max(count, instance.number - configured + 1);
  }
  return count;
}

bool allJobsRun(const ServiceState& service) {
  return std::all_of(service.instances.begin(), service.instances.end(),
                     [](const InstanceState& instance) { return !instance.dynamic || instance.process.has_value(); });
}

void addInstances(const std::string& name, unsigned int count, double timeout) {
  const unsigned int there = dynamicInstances(launchAgentOfName(name));
  const auto service = string(name);
  // Not as a block: that begins with those that are there, and would describe them anew.
  for (unsigned int index = there; index < there + count; ++index) {
    const plinth::CSharedCFRef<CFStringRef> identifier(installDynamicServiceInstance(service.get(), index));
    syncDynamicServiceInstance(service.get(), index, true);
  }
  reportServices(awaitServices({name}, deadlineIn(timeout), allJobsRun), allJobsRun);
}

void removeInstances(const std::string& name, unsigned int count, double timeout) {
  const unsigned int there = dynamicInstances(launchAgentOfName(name));
  if (count > there) {
    throw CommandError(kUnknownName, "\"" + name + "\" has " + std::to_string(there) + " dynamic instance" +
                                         (there == 1 ? "" : "s") + "; " + std::to_string(count) + " cannot be removed");
  }
  const auto service = string(name);
  for (unsigned int index = there; index > there - count; --index) {
    syncDynamicServiceInstance(service.get(), index - 1, false);
  }
  reportServices(awaitServices({name}, deadlineIn(timeout), allJobsRun), allJobsRun);
}

struct Arguments {
  Names names;
  std::string name;
  unsigned int count = 0;
  double timeout = kTimeout;
};
using SharedArguments = std::shared_ptr<Arguments>;

void addNamesVerb(CLI::App& service, const SharedArguments& arguments, const std::string& verb, const std::string& help,
                  void (*run)(const Names&, double), bool required) {
  CLI::App* const command = service.add_subcommand(verb, help);
  command
      ->add_option("NAME", arguments->names,
                   required ? "The services' names" : "The services' names; all when none is given")
      ->required(required);
  addTimeout(*command, arguments->timeout, "Seconds to wait for it");
  command->callback([arguments, run] { run(arguments->names, arguments->timeout); });
}

void addInstancesVerb(CLI::App& instances, const SharedArguments& arguments, const std::string& verb,
                      const std::string& help, void (*run)(const std::string&, unsigned int, double)) {
  CLI::App* const command = instances.add_subcommand(verb, help);
  command->add_option("NAME", arguments->name, "The service's name")->required();
  command->add_option("COUNT", arguments->count, "How many")->required()->check(CLI::Range(1U, 1000U));
  addTimeout(*command, arguments->timeout, "Seconds to wait for it");
  command->callback([arguments, run] { run(arguments->name, arguments->count, arguments->timeout); });
}

}  // namespace

void addServiceRunCommands(CLI::App& service) {
  const auto arguments = std::make_shared<Arguments>();
  addNamesVerb(service, arguments, "start", "Enable services and start them", start, true);
  addNamesVerb(service, arguments, "stop", "Disable services and end them, dynamic instances too", stop, true);
  addNamesVerb(service, arguments, "restart", "End services and start them again", restart, true);
  addNamesVerb(service, arguments, "sync", "Start what is enabled, end what is disabled", sync, false);

  CLI::App& instances =
      *service.add_subcommand("instances", "Dynamic instances of a launch-agent service, beyond the configured ones");
  instances.require_subcommand(1);
  addInstancesVerb(instances, arguments, "add", "Start that many more instances than there are", addInstances);
  addInstancesVerb(instances, arguments, "remove", "End the last ones that were added", removeInstances);
}

}  // namespace tovanctl
