// The process of a sample service: registers itself, says that it is there, answers requests for its status, and ends
// when it is asked to. docs/daemon.md describes what a service owes the cluster.
#include <CoreFoundation/CFRunLoop.h>
#include <plinth/exception.h>
#include <tovan/service_util.h>
#include <unistd.h>

#include <exception>
#include <string>

#include "tools/services/announcer.h"
#include "tools/services/identity.h"
#include "tools/services/options.h"
#include "tools/support/log.h"
#include "tools/support/pid_registration.h"
#include "tools/support/termination_signals.h"

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
  bool isAskedToEnd = false;
  const tools::TerminationSignals signals([&isAskedToEnd] {
    isAskedToEnd = true;
    CFRunLoopStop(CFRunLoopGetCurrent());
  });
  Announcer announcer(identity, options);
  // Whoever finds the registration may ask for the status: requests are observed already.
  const tools::PidRegistration registration(identity.kind.get(), identity.kind.get(), identity.name.get(),
                                            identity.version.get());
  announcer.announceStart();
  const std::string title = "instance " + std::to_string(options.instance);
  if (options.logs) logLine(title + " started");
  while (!isAskedToEnd) CFRunLoopRun();
  if (options.logs) logLine(title + " ends");
  return kEnded;
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
