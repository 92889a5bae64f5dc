// host_tool.h: the host's own mount and umount: where they are, and running one to its end.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace host_mount {

// The adapter's own exit codes, those that env(1) has. All others are the host's tool's.
enum ExitCode : int { kRefused = 125, kNotExecutable = 126, kNotFound = 127 };

class HostToolFailure : public std::runtime_error {
 public:
  HostToolFailure(ExitCode code, const std::string& text) : std::runtime_error(text), exitCode(code) {}
  ExitCode exitCode;
};

// The path of the host's tool of that name: what the variable names (not when this program runs with another user's
// rights), else the first of /usr/bin and /bin that holds it. Throws HostToolFailure.
std::string findHostTool(const std::string& name, const char* variable);

// Runs the tool with these arguments after its name, this process's streams and environment, and waits. The result is
// its exit code, 128 + n when signal n ended it. Throws HostToolFailure when it cannot be run.
//
// The host's tool starts a helper that does the work, and that helper would outlive a signal to the tool alone and
// mount after all. So both run in a process group of their own: SIGTERM, SIGINT, SIGHUP and SIGQUIT to this process go
// to the whole group, those that are left after two seconds get SIGKILL (the helper blocks all other signals while it
// waits for a server), and the wait is for all of them.
int runHostTool(const std::string& path, const std::vector<std::string>& arguments);

}  // namespace host_mount
