// mervaned: the cluster's daemon, one for each user. docs/daemon.md is its contract.
#include <fcntl.h>
#include <fmt/format.h>
#include <plinth/exception.h>
#include <tovan/service_util.h>
#include <tovan/version.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include "tools/mervaned/configuration_update.h"
#include "tools/mervaned/daemon.h"
#include "tools/mervaned/daemon_lock.h"
#include "tools/mervaned/options.h"
#include "tools/support/log.h"
#include "tools/support/pid_registration.h"
#include "tools/support/process_log.h"

namespace mervaned {
namespace {

using tools::logLine;

// The daemon's interface: docs/daemon.md lists them.
enum ExitCode : int { kEnded = 0, kFailed = 1, kUsage = 2, kAlreadyRunning = 3 };

constexpr double kLongest = 86400;

CFStringRef ownName() { return CFSTR("mervaned"); }
CFStringRef ownVersion() { return CFSTR("2"); }

// "@(#)PROGRAM:TovanCore  PROJECT:TovanCore-303\n" without its mark and its newline.
std::string libraryVersion() {
  std::string version = TovanCoreVersionString;
  version.erase(0, version.find(')') + 1);
  version.erase(version.find('\n'));
  return version;
}

std::string versionLine() { return "mervaned, version 2 of the daemon\n" + libraryVersion(); }

void addOptions(CLI::App& app, Options& options) {
  const auto addSeconds = [&app](const char* name, double& value, const char* description) {
    app.add_option(name, value, description)
        ->check(CLI::Range(0.01, kLongest))
        ->type_name("SECONDS")
        ->capture_default_str();
  };
  addSeconds("--restart-delay", options.restartDelay, "before a service that ended by itself is started again");
  addSeconds("--restart-delay-limit", options.restartDelayLimit, "the delay doubles each time, up to this");
  addSeconds("--stop-limit", options.stopLimit, "a service that does not end is killed after this time");
  addSeconds("--cancel-limit", options.cancelLimit, "the same when jobs are to be cancelled");
  addSeconds("--client-check", options.clientCheck, "between two looks for clients that are gone");
  addSeconds("--storage-limit", options.storageLimit, "for taking exports and mounts down at the end");
}

bool hasTerminal() {
  const int terminal = ::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
  if (terminal >= 0) ::close(terminal);
  return terminal >= 0;
}

void setUpStreams() {
  if (hasTerminal()) return;
  try {
    tovan::CServiceUtil::setupStdStreams();
  } catch (const plinth::CException& exception) {
    logLine(std::string("the standard streams stay as they are: ") + exception.what());
  }
}

std::string optionsText(const Options& options) {
  return fmt::format(
      "restart delay {} s, at most {} s; stop limit {} s, cancel limit {} s; client check every {} s; storage limit {} "
      "s",
      options.restartDelay, options.restartDelayLimit, options.stopLimit, options.cancelLimit, options.clientCheck,
      options.storageLimit);
}

// How a daemon ended, and whether it left a thread behind that nobody may wait for.
struct Ended {
  Daemon::End how = Daemon::End::stop;
  bool hasLeftThread = false;
};

// As long as it runs under the lock. A failure is logged before the log ends.
Ended runLogged(const Options& options) {
  const tools::ProcessLog log("mervaned", 0);
  try {
    tools::logRecord(tools::kLogUsual, "mervaned, version 2 of the daemon, " + libraryVersion());
    tools::logRecord(tools::kLogUsual, "options: " + optionsText(options));
    updateConfiguration();
    Daemon daemon(options);
    // Whoever finds the registration may post requests: they are observed already.
    tools::PidRegistration registration(ownName(), ownName(), ownName(), ownVersion());
    const Daemon::End end = daemon.run();
    if (end == Daemon::End::restart) registration.keep();
    return {end, daemon.hasLeftStorage()};
  } catch (const std::exception& exception) {
    tools::logRecord(tools::kLogFailure, exception.what());
    throw;
  }
}

// Everything that a daemon holds is given back when this returns, but for its registration when it is to restart: its
// process goes on.
int runOnce(const Options& options, Ended& ended) {
  const DaemonLock lock;
  if (!lock.isHeld()) {
    const std::string owner = lock.owner();
    tools::withdrawRegistration(ownName());  // of a daemon that restarted, and found its place taken
    logLine("another mervaned of this user runs" + (owner.empty() ? "" : ", process " + owner));
    return kAlreadyRunning;
  }
  ended = runLogged(options);
  return kEnded;
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app("The cluster's daemon: runs the services of this user that launchd does not run", "mervaned");
  app.set_version_flag("--version", versionLine());
  app.footer("Exit codes: 0 ended when asked to, 1 failed, 2 wrong command line, 3 another daemon of this user runs.");
  addOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kEnded : kUsage;
  }
  // Where a new version may lie by the time of a restart.
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  setUpStreams();
  Ended ended;
  const int code = runOnce(options, ended);
  if (code != kEnded) return code;
  if (ended.how == Daemon::End::restart) {
    // A signal that is not here yet is for the daemon to come.
    if (!tools::TerminationSignals::haveArrived()) {
      ::execv(program.c_str(), argv);
      logLine("cannot restart " + program + ": " + std::strerror(errno));
      tools::withdrawRegistration(ownName());
      return kFailed;
    }
    tools::withdrawRegistration(ownName());
  }
  logLine("ended");
  if (ended.hasLeftThread) ::_exit(kEnded);
  return kEnded;
}

}  // namespace
}  // namespace mervaned

int main(int argc, char** argv) {
  try {
    return mervaned::run(argc, argv);
  } catch (const std::exception& exception) {
    tools::logLine(exception.what());
    return mervaned::kFailed;
  }
}
