#include "tools/tovanctl/status.h"

#include <plinth/plinth.h>
#include <tovan/framework_location.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "tools/tovanctl/services.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;
using tovan::CServiceCacheEntry;

unsigned int configuredInstances(const CServiceCacheEntry& entry) {
  return static_cast<unsigned int>(std::max(0, CServiceCacheEntry::ConvertToRealInstanceCount(entry.instances)));
}

InstanceState instanceOfJob(const Job& job) {
  InstanceState instance;
  instance.number = job.instance;
  instance.job = job;
  instance.jobState = stateOfJob(job);
  if (instance.jobState.pid) instance.process = processOfId(*instance.jobState.pid);
  return instance;
}

std::vector<InstanceState> launchAgentInstances(const CServiceCacheEntry& entry) {
  std::vector<InstanceState> instances;
  for (const Job& job : jobsOfService(entry)) {
    InstanceState instance = instanceOfJob(job);
    instance.dynamic = job.instance >= configuredInstances(entry);
    if (instance.dynamic && !instance.jobState.loaded && !instance.jobState.trigger) continue;
    instances.push_back(std::move(instance));
  }
  return instances;
}

// The value that follows "-idx" on a service's command line.
std::optional<unsigned int> instanceNumber(const Process& process) {
  const auto option = std::find(process.arguments.begin(), process.arguments.end(), "-idx");
  if (option == process.arguments.end() || option + 1 == process.arguments.end()) return {};
  const std::string& digits = *(option + 1);
  unsigned int number = 0;
  const auto [end, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (failed != std::errc() || end != digits.data() + digits.size()) return {};
  return number;
}

// A service registers under its kind, which is its name unless it was installed under another one.
std::set<pid_t> registeredUnderNameOrKind(const CServiceCacheEntry& entry) {
  const std::string name = text(entry.name());
  const std::vector<pid_t> pids = registeredProcesses(name);
  std::set<pid_t> found(pids.begin(), pids.end());
  if (entry.bundlePath() == nullptr) return found;
  const CSharedCFRef<CFURLRef> url(
      CFURLCreateWithFileSystemPath(nullptr, entry.bundlePath(), kCFURLPOSIXPathStyle, TRUE));
  const CSharedCFRef<CFBundleRef> bundle(url ? CFBundleCreate(nullptr, url.get()) : nullptr);
  const std::string kind = bundle ? text(getServiceKindFromBundle(bundle.get())) : "";
  if (kind.empty() || kind == name) return found;
  const std::vector<pid_t> more = registeredProcesses(kind);
  found.insert(more.begin(), more.end());
  return found;
}

std::vector<InstanceState> daemonInstances(const CServiceCacheEntry& entry) {
  std::vector<InstanceState> instances(configuredInstances(entry));
  for (unsigned int number = 0; number < instances.size(); ++number) instances[number].number = number;
  const std::string path = text(entry.path());
  const std::string program = path.substr(path.rfind('/') + 1);
  for (const pid_t pid : registeredUnderNameOrKind(entry)) {
    std::optional<Process> process = processOfId(pid);
    if (!process || !runsFile(*process, program)) continue;
    const std::optional<unsigned int> number = instanceNumber(*process);
    if (number && *number < instances.size() && !instances[*number].process) {
      instances[*number].process = std::move(process);
      continue;
    }
    InstanceState further;
    further.number = number.value_or(static_cast<unsigned int>(instances.size()));
    further.dynamic = true;
    further.process = std::move(process);
    instances.push_back(std::move(further));
  }
  return instances;
}

std::vector<InstanceState> lookAtStrays(const std::vector<Job>& known) {
  std::vector<InstanceState> strays;
  for (const Job& job : strayJobs(known)) {
    InstanceState stray = instanceOfJob(job);
    if (stray.jobState.loaded || stray.jobState.trigger) strays.push_back(std::move(stray));
  }
  return strays;
}

}  // namespace

ServiceState lookAtService(const CServiceCacheEntry& entry) {
  ServiceState service;
  service.name = text(entry.name());
  service.displayName = text(entry.displayName());
  service.launchd = startedByLaunchd(entry);
  service.enabled = entry.enabled;
  service.instances = service.launchd ? launchAgentInstances(entry) : daemonInstances(entry);
  return service;
}

HostState lookAtHost() {
  const tovan::CServiceCacheFile cache;
  HostState host;
  std::vector<Job> known;
  for (const std::string& name : serviceNames(cache)) {
    const CServiceCacheEntry entry = serviceOfName(cache, name);
    host.services.push_back(lookAtService(entry));
    if (!startedByLaunchd(entry)) continue;
    for (Job& job : jobsOfService(entry)) known.push_back(std::move(job));
  }
  host.daemon = lookAtDaemon();
  host.bus = lookAtBus();
  host.strays = lookAtStrays(known);
  return host;
}

HostState lookAtHostWithoutRegistry() {
  HostState host;
  host.daemon = lookAtDaemon();
  host.bus = lookAtBus();
  host.strays = lookAtStrays({});
  return host;
}

bool isAsWanted(const ServiceState& service) {
  return std::all_of(service.instances.begin(), service.instances.end(), [&service](const InstanceState& instance) {
    return instance.dynamic || instance.process.has_value() == service.enabled;
  });
}

std::vector<pid_t> processesOf(const ServiceState& service) {
  std::vector<pid_t> pids;
  for (const InstanceState& instance : service.instances) {
    if (instance.process) pids.push_back(instance.process->pid);
  }
  return pids;
}

}  // namespace tovanctl
