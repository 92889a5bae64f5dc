// launch.h: starting a job's process, in two steps, so that its id can be written down before it runs: a host that is
// killed in between leaves a child that ends by itself.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/job_description.h"

namespace launchctl {

struct Launched {
  pid_t pid = 0;        // of a session and process group of its own
  Descriptor gate;      // closing it without openGate() ends the child
  Descriptor failures;  // read failureOf() after the child's end
};

// Failure when no process is to be had.
Launched launch(const JobDescription& job, const std::string& program,
                const std::map<std::string, std::string>& environment);
// Lets the program run, and waits until it does or has failed to, a tenth of a second at most.
void openGate(Launched& launched) noexcept;
// Whether it has failed to: the child is about to end, or has ended.
bool hasFailed(const Launched& launched) noexcept;
// What kept the program from running, such as "cannot execute /x: No such file or directory"; empty when it ran.
std::string failureOf(int descriptor);

// The exit status of a child whose program could not be run.
inline constexpr int kLaunchFailed = 127;

}  // namespace launchctl
