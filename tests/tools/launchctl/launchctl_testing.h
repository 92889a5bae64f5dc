// launchctl_testing.h: running launchctl on jobs of a test's own, and waiting for what they do.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tools/launchctl/job_status.h"
#include "tools/launchctl/property_list.h"

namespace test {

// The program of the build, with the arguments.
CommandResult launchctl(const std::vector<std::string>& arguments);

// Whether the condition came true within the seconds; looks every few milliseconds.
bool await(const std::function<bool()>& condition, double seconds = 10);

// What `list -x` says; nothing for an unknown job.
std::optional<launchctl::JobStatus> statusOf(const std::string& label);
// The process of a running job; 0 else.
pid_t pidOf(const std::string& label);
// Waits for it; 0 when it does not come up.
pid_t awaitRunning(const std::string& label, pid_t other = 0);
bool awaitDown(const std::string& label);
bool isAlive(pid_t pid);
// A number of seconds for sleep(1), long enough for any test, by which this test's processes are told from all others.
const std::string& nap();
// Processes whose command line holds the text.
std::vector<pid_t> processesWith(const std::string& text);

// A job description in the making, written into a folder of its own.
class JobFile {
 public:
  explicit JobFile(std::string label);
  JobFile& arguments(const std::vector<std::string>& words);
  // A script for /bin/sh: the tests' jobs are shell scripts, which launchctl knows nothing of.
  JobFile& script(const std::string& text) { return arguments({"/bin/sh", "-c", text, label_}); }
  JobFile& set(const std::string& key, const std::string& xmlValue);
  JobFile& trigger(const std::string& path, bool exists = true);
  JobFile& throttle(double seconds) { return set("ThrottleInterval", "<real>" + std::to_string(seconds) + "</real>"); }
  JobFile& exitTimeOut(double seconds) { return set("ExitTimeOut", "<real>" + std::to_string(seconds) + "</real>"); }
  // Writes it; the path.
  std::string write();

  const std::string& label() const { return label_; }
  const std::string& path() const { return path_; }
  // The folder of the description, for files of the job's.
  const std::string& folder() const { return folder_; }
  std::string in(const std::string& name) const { return folder_ + "/" + name; }

 private:
  std::string label_;
  std::string folder_;
  std::string path_;
  std::map<std::string, std::string> values_;
};

std::string escaped(const std::string& text);
// The lines of a file; none when it is missing.
std::vector<std::string> linesOf(const std::string& path);

}  // namespace test
