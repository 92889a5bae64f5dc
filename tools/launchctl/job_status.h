// job_status.h: what is known of a loaded job, in the form that `launchctl list -x` prints.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/launchctl/property_list.h"

namespace launchctl {

// The status of a job whose last end nobody saw.
inline constexpr int kExitUnknown = -1;

struct JobStatus {
  std::string label;
  std::string file;          // the description it was loaded from
  std::optional<pid_t> pid;  // while it runs
  bool hasEnded = false;     // since it was loaded, a failed start included
  int lastExitStatus = 0;    // as wait(2) gives it: exit code × 256, or the signal; 0 before the first end
  std::string program;
  std::vector<std::string> arguments;
  std::string problem;  // why the last start failed; empty when it did not
};

// Keys: Label, PID (only while it runs), LastExitStatus, HasEnded, Program, ProgramArguments, JobDescription (the
// file's path) and LaunchProblem (only when there is one).
Dictionary listOfStatus(const JobStatus& status);
JobStatus statusOfList(CFDictionaryRef list);

// The number in the table's column "Status": the exit code, or the signal as a negative number; "?" for kExitUnknown.
std::string exitColumn(int lastExitStatus);

}  // namespace launchctl
