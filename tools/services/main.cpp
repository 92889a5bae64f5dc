// The process of a sample service: registers itself, says that it is there, answers requests for its status, logs what
// it does, and ends when it is asked to. docs/daemon.md describes what a service owes the cluster.
#include <CoreFoundation/CFRunLoop.h>
#include <plinth/exception.h>
#include <tovan/service_util.h>
#include <unistd.h>

#include <exception>
#include <optional>
#include <string>

#include "tools/services/announcer.h"
#include "tools/services/identity.h"
#include "tools/services/options.h"
#include "tools/support/log.h"
#include "tools/support/pid_registration.h"
#include "tools/support/process_log.h"
#include "tools/support/termination_signals.h"
#include "tools/support/text.h"

namespace service {
namespace {

using tools::logLine;

enum ExitCode : int { kEnded = 0, kFailed = 1, kUsage = 2 };

void setUpStreams() {
  try {
    tovan::CServiceUtil::setupStdStreams();
  } catch (const plinth::CException& exception) {
    logLine(std::string("the standard streams stay as they are: ") + exception.what());
  }
}

// Registered and answering, until it is asked to end. Who starts it has the log to end after all else.
void serve(const Identity& identity, const Options& options) {
  bool isAskedToEnd = false;
  const tools::TerminationSignals signals([&isAskedToEnd] {
    tools::logRecord(tools::kLogUsual, "asked to end");
    isAskedToEnd = true;
    CFRunLoopStop(CFRunLoopGetCurrent());
  });
  const tools::LogScope scope("service", tools::textOf(identity.kind.get()));
  Announcer announcer(identity, options);
  // Whoever finds the registration may ask for the status: requests are observed already.
  const tools::PidRegistration registration(identity.kind.get(), identity.kind.get(), identity.name.get(),
                                            identity.version.get());
  announcer.announceStart();
  tools::logRecord(tools::kLogUsual, "instance " + std::to_string(options.instance) + " started");
  while (!isAskedToEnd) CFRunLoopRun();
  tools::logRecord(tools::kLogUsual, "instance " + std::to_string(options.instance) + " ends");
}

int runLogged(const Identity& identity, const Options& options) {
  std::optional<tools::ProcessLog> log;
  if (options.logs) log.emplace(logName(identity), static_cast<unsigned int>(options.instance));
  tools::logRecord(tools::kLogUsual, tools::textOf(identity.name.get()) + " " + tools::textOf(identity.version.get()));
  tools::logRecord(tools::kLogUsual, "options: " + optionsText(options));
  try {
    serve(identity, options);
    return kEnded;
  } catch (const std::exception& exception) {
    tools::report(tools::kLogFailure, exception.what());
    return kFailed;
  }
}

int run(int argc, char** argv) {
  Options options;
  try {
    options = parseOptions(argc, argv);
  } catch (const UsageError& error) {
    logLine(error.what());
    return kUsage;
  }
  setUpStreams();
  const Identity identity = ownIdentity();
  if (!identity.kind) {
    logLine("this program lies in no bundle that declares a service kind");
    return kFailed;
  }
  // Who starts a service watches its process, so detaching leaves the session and keeps the process.
  if (options.detached) ::setsid();
  return runLogged(identity, options);
}

}  // namespace
}  // namespace service

int main(int argc, char** argv) {
  try {
    return service::run(argc, argv);
  } catch (const std::exception& exception) {
    tools::logLine(exception.what());
    return service::kFailed;
  }
}
