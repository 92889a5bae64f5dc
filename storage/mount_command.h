// mount_command.h: running the platform's mount and umount within a limit of time.
#pragma once

#include <string>
#include <vector>

namespace tovan {

struct MountCommandEnd {
  bool hasTimedOut = false;
  int status = 0;  // as CTask::waitForTask gives it; an errno value when the command could not be started
};

// Runs the tool of that native path ("/sbin/mount") with the arguments behind its name and waits for its end. The
// command and what it starts are a process group of their own, with an empty standard input; what they print goes to
// standard error. When the time is over the whole group is ended, first with SIGTERM, which a tool with helpers outside
// the group passes on to them, then with SIGKILL, and the command is collected.
MountCommandEnd runMountCommand(const char* tool, const std::vector<std::string>& arguments);

// In seconds.
struct MountTimeLimits {
  double run;    // until SIGTERM
  double grace;  // from there until SIGKILL
};
// The request time-out less 5 seconds, and 3: so a failure is told within the request's time.
MountTimeLimits standardMountTimeLimits();
// For tests; not while another thread runs a command.
void setMountTimeLimitsForTesting(const MountTimeLimits& limits);

}  // namespace tovan
