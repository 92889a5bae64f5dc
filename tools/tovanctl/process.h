// process.h: what the host knows of a process, and holding on to one until it has ended.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tovanctl {

using Deadline = std::chrono::steady_clock::time_point;

// A deadline so many seconds from now.
Deadline deadlineIn(double seconds);
bool isOver(Deadline deadline);

// A living process of this user, as it was at one moment.
struct Process {
  pid_t pid = 0;
  std::string name;                    // the file name of its program
  std::vector<std::string> arguments;  // the program first
  double upTime = 0;                   // seconds since it was started
};

// Nothing when no process has that id, when it has ended and only waits to be collected, and when it is another user's.
// Ids that are not positive name no process.
std::optional<Process> processOfId(pid_t pid);

// Whether one of the words that the process was started with is a file of that name: its program, or the script that
// its program runs.
bool runsFile(const Process& process, const std::string& fileName);

// A variable of the environment that one of this user's processes was started with; empty when it has none.
std::string environmentOfProcess(pid_t pid, const std::string& name);

// A hold on one process: what is sent never reaches another one that got the same id later. Move-only.
class ProcessHold {
 public:
  // Empty when there is no such process.
  explicit ProcessHold(pid_t pid);
  ProcessHold(ProcessHold&& other) noexcept;
  ProcessHold& operator=(ProcessHold&&) = delete;
  ProcessHold(const ProcessHold&) = delete;
  ProcessHold& operator=(const ProcessHold&) = delete;
  ~ProcessHold();

  explicit operator bool() const { return descriptor_ >= 0; }
  pid_t pid() const { return pid_; }
  // Asks it to end (SIGTERM); false, with errno, when that is not allowed. One that has ended already counts as asked.
  bool askToEnd() const;
  // Waits until it has ended; false when the deadline comes first.
  bool awaitEnd(Deadline deadline) const;

 private:
  pid_t pid_;
  int descriptor_;
};

}  // namespace tovanctl
