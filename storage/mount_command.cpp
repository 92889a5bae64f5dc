#include "storage/mount_command.h"

#include <tovan/args_builder.h>
#include <tovan/shared_storage_utils.h>
#include <tovan/task.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "platform/system/tool_lookup.h"

namespace tovan {
namespace {

constexpr double kKeptForReply = 5;    // of the request's time
constexpr double kGrace = 3;           // the Linux tools give their helpers two
constexpr double kKilledWithin = 0.5;  // what is killed needs a moment to be gone

constinit std::optional<MountTimeLimits> limitsForTesting;

class MountTask : public CTask {
 public:
  using CTask::CTask;

  // To everything in the group. It has this task's number, which nobody else gets while one process is in the group;
  // the callers have seen one a moment ago.
  void signalGroup(int signal) const noexcept { ::kill(-processID(), signal); }
  bool isGone() const noexcept { return !isRunning() && ::kill(-processID(), 0) != 0 && errno == ESRCH; }

 protected:
  // Both sides make the group, so that it is there whichever comes first.
  int on_exec() override {
    if (const int error = CTask::on_exec(); error != 0) return error;
    ::setpgid(0, 0);
    const int empty = ::open("/dev/null", O_RDONLY);
    if (empty < 0 || ::dup2(empty, STDIN_FILENO) < 0) return errno;
    if (empty > STDERR_FILENO) ::close(empty);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);  // fails only when there is no standard error
    return 0;
  }
  int post_fork() override {
    ::setpgid(processID(), processID());
    return CTask::post_fork();
  }
};

bool comesTrueWithin(double seconds, const std::function<bool()>& condition) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  while (!condition()) {
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

void endWhole(std::unique_ptr<MountTask> task, double grace) {
  const auto isGone = [&task] { return task->isGone(); };
  task->terminate();
  task->signalGroup(SIGTERM);
  if (comesTrueWithin(grace, isGone)) return;
  task->signalGroup(SIGKILL);
  comesTrueWithin(kKilledWithin, isGone);
  // A process that waits in the kernel for a dead server may not even be killed. It must not hold this one up: the task
  // is left to the thread that watches it.
  if (task->isRunning()) static_cast<void>(task.release());
}

std::unique_ptr<MountTask> taskOf(const char* tool, const std::vector<std::string>& arguments) {
  const std::string path = platform::toolPath(tool);
  CArgsBuilder list(0);
  for (const std::string& argument : arguments) list.addArg(argument.c_str());
  CArgsBuilder environment(0);
  for (const std::string& entry : platform::toolEnvironment(tool, path)) environment.addArg(entry.c_str());
  return std::make_unique<MountTask>(path.c_str(), list.getArgs(), environment.getArgs(), nullptr);
}

}  // namespace

MountTimeLimits standardMountTimeLimits() { return {CSharedStorageUtils::requestTimeout() - kKeptForReply, kGrace}; }

void setMountTimeLimitsForTesting(const MountTimeLimits& limits) { limitsForTesting = limits; }

MountCommandEnd runMountCommand(const char* tool, const std::vector<std::string>& arguments) {
  const MountTimeLimits limits = limitsForTesting.value_or(standardMountTimeLimits());
  std::unique_ptr<MountTask> task = taskOf(tool, arguments);
  if (task->launch() != 0) return {.hasTimedOut = false, .status = errno};
  if (task->waitForTaskWithTimeout(limits.run)) return {.hasTimedOut = false, .status = task->waitForTask()};
  endWhole(std::move(task), limits.grace);
  return {.hasTimedOut = true, .status = 0};
}

}  // namespace tovan
