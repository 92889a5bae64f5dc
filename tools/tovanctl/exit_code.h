// exit_code.h: what tovanctl's exit status says. The numbers are part of its interface; docs/tovanctl.md lists them.
#pragma once

#include <stdexcept>
#include <string>

namespace tovanctl {

enum ExitCode : int {
  kSuccess = 0,
  kFailed = 1,  // the library reported a failure, something did not come up or end in time, or doctor found something
  kUsage = 2,   // the command line is wrong, or a value has the wrong type
  kUnknownName = 3,  // no such service, setting or instance, and nothing of that name is published or mounted
  kBadBundle = 4,    // the bundle cannot be installed as a service
  kTimedOut = 5,     // notify watch saw fewer notifications than it was to wait for, or the storage did not answer
  kNoDaemon = 6,     // the daemon does not run, or ended before it answered
};

// Ends a command with a message on standard error.
class CommandError : public std::runtime_error {
 public:
  CommandError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  ExitCode code() const noexcept { return code_; }

 private:
  ExitCode code_;
};

}  // namespace tovanctl
