#include "tools/tovanctl/daemon.h"

#include <plinth/plinth.h>
#include <plinth/process_utilities.h>
#include <tovan/daemon_control.h>
#include <tovan/service_pid_file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

constexpr const char* kVersion = "2";
constexpr int kLooks = 5;
constexpr double kPauseBetweenLooks = 0.02;  // seconds

std::string registeredVersion(pid_t pid) {
  tovan::CServicePIDFile file(string(kDaemonName).get());
  plinth::CSharedCFRef<CFStringRef> kind;
  plinth::CSharedCFRef<CFStringRef> name;
  plinth::CSharedCFRef<CFStringRef> version;
  if (!file.processAttributes(pid, kind, name, version)) return {};
  return text(version.get());
}

// The process of a registration when it is a daemon of this version.
std::optional<Process> daemonOfId(pid_t pid) {
  std::optional<Process> process = processOfId(pid);
  if (!process || process->name != kDaemonName || registeredVersion(pid) != kVersion) return {};
  return process;
}

// The process that counts as another daemon. One that has no environment is about to end or to become another program:
// it is looked at once more.
void findOther(DaemonState& state) {
  for (int look = 0; look < kLooks; ++look) {
    state.otherVersion = IsOtherVersionOfDaemonRunning();
    if (!state.otherVersion) return;
    pid_t pid = 0;
    state.otherProcess.reset();
    if (plinth::ProcessUtilities::FindProcessWithName(plinth::CSTR(kDaemonName), pid, ::geteuid())) {
      state.otherProcess = pid;
      const std::string home = environmentOfProcess(pid, "HOME");
      if (home != environmentOfProcess(::getpid(), "HOME")) state.otherHome = home;
      if (!home.empty()) return;
    }
    waitUnlessInterrupted(kPauseBetweenLooks);
  }
}

}  // namespace

std::vector<pid_t> registeredProcesses(const std::string& name) {
  try {
    const tovan::CServicePIDFile file(string(name).get());
    std::vector<std::int32_t> pids;
    file.get(pids);
    return {pids.begin(), pids.end()};
  } catch (const plinth::CException&) {
    return {};
  }
}

DaemonState lookAtDaemon() {
  DaemonState state;
  state.running = isDaemonRunning();
  if (state.running) {
    for (const pid_t pid : registeredProcesses(kDaemonName)) {
      state.process = daemonOfId(pid);
      if (state.process) break;
    }
    if (state.process) state.version = registeredVersion(state.process->pid);
  }
  findOther(state);
  return state;
}

bool isInTheWay(const DaemonState& daemon) { return daemon.otherVersion && daemon.otherHome.empty(); }

std::string otherDaemonText(const DaemonState& daemon) {
  return "a mervaned that is not registered as one of version 2 runs" +
         (daemon.otherProcess ? ", process " + std::to_string(*daemon.otherProcess) : "");
}

std::vector<pid_t> endDaemon(Deadline deadline) {
  std::vector<ProcessHold> asked;
  for (const pid_t pid : registeredProcesses(kDaemonName)) {
    ProcessHold hold(pid);
    // Looked at while it is held: the id cannot pass on to another process in between.
    if (!hold || !daemonOfId(pid)) continue;
    if (!hold.askToEnd()) {
      throw CommandError(kFailed,
                         "the daemon, process " + std::to_string(pid) + ", cannot be ended: " + std::strerror(errno));
    }
    asked.push_back(std::move(hold));
  }
  std::vector<pid_t> ended;
  for (const ProcessHold& hold : asked) {
    if (!hold.awaitEnd(deadline)) {
      throw CommandError(kFailed, "the daemon, process " + std::to_string(hold.pid()) +
                                      ", was asked to end and is still there; `kill -KILL " +
                                      std::to_string(hold.pid()) + "` ends it for certain");
    }
    ended.push_back(hold.pid());
  }
  return ended;
}

}  // namespace tovanctl
