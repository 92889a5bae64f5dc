#include "tools/tovanctl/services_running.h"

#include <tovan/daemon_control.h>
#include <tovan/service_control.h>

#include <algorithm>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/services.h"

namespace tovanctl {
namespace {

constexpr double kPause = 0.05;  // between two looks

std::string processList(const std::vector<pid_t>& pids) {
  std::string list = pids.size() == 1 ? "process" : "processes";
  for (const pid_t pid : pids) list += " " + std::to_string(pid);
  return list;
}

std::string counted(std::size_t number, const std::string& what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

// What keeps an instance from running, as far as it is known.
std::string missingText(const ServiceState& service) {
  std::string out;
  for (const InstanceState& instance : service.instances) {
    if (instance.process || instance.dynamic) continue;
    out += "; instance " + std::to_string(instance.number) + " is " + stateText(instance);
    if (lastExitText(instance) != "-") out += ", last end: " + lastExitText(instance);
    if (!instance.jobState.problem.empty()) out += ", " + instance.jobState.problem;
  }
  return out;
}

std::string stateLine(const ServiceState& service) {
  const std::vector<pid_t> pids = processesOf(service);
  std::string line = service.name + ": " + (service.enabled ? "" : "disabled, ");
  if (service.enabled && service.instances.empty()) {
    return line + "not running; it has no instances: `tovanctl service set " + service.name + " Instances NUMBER`";
  }
  if (pids.empty()) return line + "not running" + (service.enabled ? missingText(service) : "");
  const auto configured = static_cast<std::size_t>(std::count_if(
      service.instances.begin(), service.instances.end(), [](const InstanceState& one) { return !one.dynamic; }));
  line += counted(pids.size(), "instance") + " running, " + processList(pids);
  if (service.enabled && pids.size() < configured) line += missingText(service);
  return line;
}

}  // namespace

std::vector<tovan::CServiceCacheEntry> servicesOfNames(const std::vector<std::string>& names) {
  const tovan::CServiceCacheFile cache;
  std::vector<tovan::CServiceCacheEntry> entries;
  entries.reserve(names.size());
  for (const std::string& name : names) entries.push_back(serviceOfName(cache, name));
  return entries;
}

void synchronise(const std::vector<std::string>& names) {
  for (const tovan::CServiceCacheEntry& entry : servicesOfNames(names)) {
    if (entry.enabled && startedByLaunchd(entry)) writeMissingDescriptions(entry);
  }
  syncServices(arrayOfStrings(names).get());
}

std::vector<ServiceState> awaitServices(const std::vector<std::string>& names, Deadline deadline,
                                        const std::function<bool(const ServiceState&)>& condition) {
  for (;;) {
    std::vector<ServiceState> services;
    for (const tovan::CServiceCacheEntry& entry : servicesOfNames(names)) services.push_back(lookAtService(entry));
    if (isOver(deadline) || wasInterrupted() || std::all_of(services.begin(), services.end(), condition))
      return services;
    waitUnlessInterrupted(kPause);
  }
}

void reportServices(const std::vector<ServiceState>& services,
                    const std::function<bool(const ServiceState&)>& condition) {
  std::size_t unwanted = 0;
  for (const ServiceState& service : services) {
    print(stateLine(service) + "\n");
    if (!condition(service)) ++unwanted;
  }
  if (unwanted > 0) {
    throw CommandError(kFailed, counted(unwanted, "service") + (unwanted == 1 ? " is" : " are") +
                                    " not as wanted in time; `tovanctl status` shows more");
  }
}

void requireDaemonFor(const std::vector<std::string>& names) {
  if (isDaemonRunning()) return;
  for (const tovan::CServiceCacheEntry& entry : servicesOfNames(names)) {
    if (!entry.enabled || startedByLaunchd(entry)) continue;
    throw CommandError(kFailed, "\"" + text(entry.name()) +
                                    "\" is started by the daemon, which is not running; `tovanctl up` starts it");
  }
}

}  // namespace tovanctl
