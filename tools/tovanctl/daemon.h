// daemon.h: the cluster's daemon, as far as tovanctl looks at it and ends it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/tovanctl/process.h"

namespace tovanctl {

inline constexpr const char* kDaemonName = "mervaned";

struct DaemonState {
  bool running = false;               // a daemon of this library's version
  std::optional<Process> process;     // while it runs
  std::string version;                // what it registered
  bool otherVersion = false;          // another mervaned of this user runs
  std::optional<pid_t> otherProcess;  // its process id, as far as it can be told
  std::string otherHome;              // its home folder, where it is another one than ours: it is in nobody's way
};

DaemonState lookAtDaemon();
// Whether a mervaned of this home runs that is not this library's.
bool isInTheWay(const DaemonState& daemon);
std::string otherDaemonText(const DaemonState& daemon);

// The process ids that the PID file holds under a name; none when the file cannot be read.
std::vector<pid_t> registeredProcesses(const std::string& name);

// Ends every registered daemon of this library's version with SIGTERM, after making sure that the process is one, and
// waits until it has ended. The processes that were ended. CommandError(kFailed) when one may not be ended or is still
// there at the deadline.
std::vector<pid_t> endDaemon(Deadline deadline);

}  // namespace tovanctl
