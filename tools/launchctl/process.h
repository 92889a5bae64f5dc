// process.h: facts about processes, and programs that are run to their end.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace launchctl {

// When a process was started, in clock ticks since the host's start: with its id it names one process for ever. Nothing
// when there is none or it has ended and only waits for its parent.
std::optional<std::uint64_t> startTimeOfProcess(pid_t pid);
// Whether processes of this user are left in the session and process group of a leader that was started then and has
// ended. No other process gets its id while they are there.
bool leavesProcesses(pid_t leader, std::uint64_t startTime);
// What tells one run of the host from another.
std::string bootIdentifier();
// The folder of the running program, in which its companions lie.
std::string programFolder();

// An argument or environment vector of C strings over texts that outlive it.
std::vector<char*> cStrings(const std::vector<std::string>& texts);
std::vector<std::string> environmentLines(const std::map<std::string, std::string>& variables);

struct CommandOutput {
  int status = -1;  // exit code; 128 + signal
  std::string out;
  std::string err;
};
// Runs a program with exactly these arguments (the name first) and this environment, its input empty, and collects what
// it prints. Failure when it cannot be started or is not done after the seconds: it is killed then.
CommandOutput runCommand(const std::string& program, const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment, double seconds);

}  // namespace launchctl
