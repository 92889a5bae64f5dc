// jobs.h: the launch-agent jobs of this user's services, as launchctl sees them.
#pragma once

#include <sys/types.h>
#include <tovan/service_cache_file.h>

#include <optional>
#include <string>
#include <vector>

namespace tovanctl {

bool startedByLaunchd(const tovan::CServiceCacheEntry& entry);

// One instance of a service that launchd starts.
struct Job {
  unsigned int instance = 0;
  std::string label;
  std::string path;     // of the description, which need not be there
  std::string trigger;  // of the trigger file
};

// What launchctl says about it.
struct JobState {
  bool loaded = false;
  std::optional<pid_t> pid;           // while it runs
  std::optional<int> lastExitStatus;  // as wait(2) gives it; nothing before the first end
  std::string problem;                // why the last start failed; empty when it did not
  bool trigger = false;               // whether the trigger file is there
};

// The job of an instance. Throws what CLaunchCtlPList throws for a name without an identifier.
Job jobOfInstance(const tovan::CServiceCacheEntry& entry, unsigned int instance);
// The jobs of a service: the configured instances, then those beyond them whose descriptions are there (dynamic ones,
// or what a larger instance count left behind).
std::vector<Job> jobsOfService(const tovan::CServiceCacheEntry& entry);
// The jobs in this user's folder of launch agents that were written for a service and belong to none that is installed.
// `known` are the jobs of those that are.
std::vector<Job> strayJobs(const std::vector<Job>& known);

// Writes the descriptions of configured instances that have none, as installing the service does: the number of
// instances may have grown since. How many there were.
std::size_t writeMissingDescriptions(const tovan::CServiceCacheEntry& entry);
// CommandError(kFailed) when the file is there and cannot be removed.
void removeDescription(const Job& job);

JobState stateOfJob(const Job& job);
// What launchctl prints about a label, its complaint included. Throws when the tool cannot be run.
std::string launchctlListing(const std::string& label);

// Loads a job after making its trigger file; removes the trigger file and, when it is loaded, unloads it, which waits
// for the end of its process. Both throw CommandError(kFailed) with launchctl's complaint. The second tells whether
// there was anything to do.
void bringUp(const Job& job);
bool takeDown(const Job& job);

// ~/Library/LaunchAgents.
std::string launchAgentsFolder();

}  // namespace tovanctl
