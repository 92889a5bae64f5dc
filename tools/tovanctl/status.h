// status.h: what runs on this host, as `tovanctl status` and the verbs that wait for services look at it.
#pragma once

#include <tovan/service_cache_file.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/tovanctl/bus.h"
#include "tools/tovanctl/daemon.h"
#include "tools/tovanctl/jobs.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {

struct InstanceState {
  unsigned int number = 0;
  bool dynamic = false;            // beyond the configured ones
  std::optional<Process> process;  // while it runs
  std::optional<Job> job;          // of an instance that launchd starts
  JobState jobState;
};

struct ServiceState {
  std::string name;
  std::string displayName;
  bool launchd = false;
  bool enabled = false;
  std::vector<InstanceState> instances;
};

struct HostState {
  DaemonState daemon;
  BusState bus;
  std::vector<ServiceState> services;
  std::vector<InstanceState> strays;  // jobs of services that are not installed any more
};

// Instances beyond the configured ones are listed while they are loaded, triggered or running.
ServiceState lookAtService(const tovan::CServiceCacheEntry& entry);
HostState lookAtHost();
// The same where the registry cannot be read: every job that was written for a service is a stray one.
HostState lookAtHostWithoutRegistry();

// Whether every configured instance of an enabled service runs, and none of one that is disabled.
bool isAsWanted(const ServiceState& service);
// The processes of all instances.
std::vector<pid_t> processesOf(const ServiceState& service);

// "running", "loaded", "not loaded"; "stopped" for one of the daemon's.
std::string stateText(const InstanceState& instance);
// "exit 3", "signal 9", "-" before the first end.
std::string lastExitText(const InstanceState& instance);
// "12 s", "3 min 04 s", "2 h 05 min", "4 d 03 h".
std::string upTimeText(double seconds);

Json statusAsJson(const HostState& host);
// For people; `colour` for terminals.
std::string statusAsText(const HostState& host, bool colour);

}  // namespace tovanctl
