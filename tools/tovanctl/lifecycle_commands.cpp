// `tovanctl up`, `down` and `status`.
#include <plinth/exception.h>
#include <sys/ioctl.h>
#include <tovan/daemon_control.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/daemon_console.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/log_source.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/services_running.h"
#include "tools/tovanctl/status.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

constexpr double kUpTimeout = 20;    // seconds; a job that ended a moment ago is held back for ten
constexpr double kDownTimeout = 40;  // seconds; a job has thirty to end before it is forced
constexpr double kWatchPeriod = 1;

std::string processText(const DaemonState& daemon) {
  return daemon.process ? ", process " + std::to_string(daemon.process->pid) : "";
}

void startDaemonAndSay() {
  const DaemonState before = lookAtDaemon();
  if (before.running) return print("daemon: runs already" + processText(before) + "\n");
  if (isInTheWay(before)) message(otherDaemonText(before) + "; it is left alone");
  std::string console;
  try {
    const DaemonConsole redirected;
    console = redirected.path();
    startDaemon();
  } catch (const plinth::CException& error) {
    throw CommandError(kFailed, error.what() + (console.empty() ? "" : "; its messages are in " + console));
  }
  print("daemon: started" + processText(lookAtDaemon()) + ", log in " + logOfService(kDaemonName, 0).path + "\n");
}

void up(double timeout) {
  catchInterrupts();
  startDaemonAndSay();
  const std::vector<std::string> names = serviceNames(tovan::CServiceCacheFile());
  if (names.empty()) return message("no service is installed; `tovanctl service install` installs Lumisphere's two");
  synchronise(names);
  const std::vector<ServiceState> services = awaitServices(names, deadlineIn(timeout), isAsWanted);
  reportServices(services, isAsWanted);
  const bool idle =
      std::none_of(services.begin(), services.end(), [](const ServiceState& service) { return service.enabled; });
  if (idle) message("no service is enabled; `tovanctl service start NAME` enables one and starts it");
}

// What was going on before `down`, held so that its end can be seen.
struct Running {
  std::string what;
  ProcessHold process;
};

class TakingDown {
 public:
  explicit TakingDown(double timeout) : deadline_(deadlineIn(timeout)) {}

  void run() {
    look();
    for (const ServiceState& service : host_.services) {
      for (const InstanceState& instance : service.instances) {
        holdOrEnd(service.name + ", instance " + std::to_string(instance.number), instance);
      }
    }
    for (const InstanceState& stray : host_.strays) holdOrEnd(stray.job->label + " (not installed)", stray);
    endTheDaemon();
    for (const Running& left : running_) endLeftOver(left);
    if (isInTheWay(host_.daemon)) message(otherDaemonText(host_.daemon) + "; it is left alone");
    if (failed_) throw CommandError(kFailed, "not everything could be ended; `tovanctl status` shows what is left");
  }

 private:
  void fail(const std::string& why) {
    message(why);
    failed_ = true;
  }

  // A damaged registry keeps nothing running.
  void look() {
    try {
      host_ = lookAtHost();
    } catch (const plinth::CException& error) {
      fail(error.what());
      host_ = lookAtHostWithoutRegistry();
    }
  }

  // A job is ended here and now; a service of the daemon's ends with it.
  void holdOrEnd(const std::string& what, const InstanceState& instance) {
    if (instance.process) {
      ProcessHold hold(instance.process->pid);
      if (hold) running_.push_back({what, std::move(hold)});
    }
    if (!instance.job) return;
    try {
      if (takeDown(*instance.job)) print(what + ": job " + instance.job->label + " unloaded\n");
    } catch (const CommandError& error) {
      fail(error.what());
    }
  }

  void endTheDaemon() {
    try {
      const std::vector<pid_t> ended = endDaemon(deadline_);
      if (ended.empty()) print("daemon: was not running\n");
      for (const pid_t pid : ended) print("daemon: process " + std::to_string(pid) + " ended\n");
    } catch (const CommandError& error) {
      fail(error.what());
    }
  }

  // By now all should have ended; what a daemon that was killed left behind has not.
  void endLeftOver(const Running& left) {
    const std::string process = ", process " + std::to_string(left.process.pid());
    if (left.process.awaitEnd(deadlineIn(0))) return print(left.what + process + ": ended\n");
    if (!left.process.askToEnd()) return fail(left.what + process + " cannot be ended: " + std::strerror(errno));
    if (left.process.awaitEnd(deadline_)) return print(left.what + process + ": ended\n");
    fail(left.what + process + " was asked to end and is still there; `kill -KILL " +
         std::to_string(left.process.pid()) + "` ends it for certain");
  }

  Deadline deadline_;
  HostState host_;
  std::vector<Running> running_;
  bool failed_ = false;
};

void printStatus(bool asJson) {
  const HostState host = lookAtHost();
  if (asJson) return printJson(statusAsJson(host));
  print(statusAsText(host, wantsColour()));
}

// On a terminal each picture takes the place of the one before, line by line, so that nothing flickers. What does not
// fit is left out: a screen that scrolled would show pieces of both.
void draw(const std::string& picture) {
  winsize size{};
  const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0;
  std::size_t room = known ? size.ws_row - 1U : std::string::npos;
  std::string out = "\x1b[H\x1b[?7l";
  for (const char byte : picture) {
    if (byte == '\n' && --room == 0) break;
    out += byte == '\n' ? "\x1b[K\n" : std::string(1, byte);
  }
  print(out + "\x1b[K\x1b[J\x1b[?7h");
}

void watchStatus(bool asJson) {
  catchInterrupts();
  const bool onTerminal = !asJson && ::isatty(STDOUT_FILENO) != 0;
  if (onTerminal) print("\x1b[2J");
  for (bool first = true; !wasInterrupted(); first = false) {
    const HostState host = lookAtHost();
    if (asJson) {
      printJsonLine(statusAsJson(host));
    } else if (onTerminal) {
      draw("Every second; Ctrl-C ends.\n\n" + statusAsText(host, wantsColour()));
    } else {
      print((first ? "" : "\n") + statusAsText(host, false));
    }
    finishOutput();
    waitUnlessInterrupted(kWatchPeriod);
  }
  if (onTerminal) print("\n");
}

struct Arguments {
  double upTimeout = kUpTimeout;
  double downTimeout = kDownTimeout;
  bool json = false;
  bool watch = false;
};

}  // namespace

void addLifecycleCommands(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const upCommand = app.add_subcommand("up", "Start the daemon and every service that is enabled");
  addTimeout(*upCommand, arguments->upTimeout, "Seconds to wait for the services");
  upCommand->callback([arguments] { up(arguments->upTimeout); });

  CLI::App* const downCommand = app.add_subcommand("down", "End every service and the daemon; nothing is disabled");
  addTimeout(*downCommand, arguments->downTimeout, "Seconds to wait for the ends");
  downCommand->callback([arguments] { TakingDown(arguments->downTimeout).run(); });

  CLI::App* const statusCommand =
      app.add_subcommand("status", "The daemon, the bus, and every instance of every service");
  statusCommand->add_flag("--json", arguments->json, "One JSON document; with --watch one a line");
  statusCommand->add_flag("--watch", arguments->watch, "Again every second, until Ctrl-C");
  statusCommand->callback(
      [arguments] { arguments->watch ? watchStatus(arguments->json) : printStatus(arguments->json); });
}

}  // namespace tovanctl
