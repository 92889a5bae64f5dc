// tovanctl: reads and changes what the library keeps, from a shell. docs/tovanctl.md describes it.
#include <plinth/exception.h>
#include <tovan/version.h>

#include <cstdio>
#include <exception>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"

namespace tovanctl {
namespace {

// "@(#)PROGRAM:TovanCore  PROJECT:TovanCore-303\n" without its mark and its newline.
std::string versionLine() {
  std::string version = TovanCoreVersionString;
  version.erase(0, version.find(')') + 1);
  version.erase(version.find('\n'));
  return version;
}

}  // namespace

void addTimeout(CLI::App& command, double& seconds, const std::string& help) {
  command.add_option("--timeout", seconds, help)->check(CLI::Range(0.0, 86400.0))->capture_default_str();
}

namespace {

int run(int argc, char** argv) {
  CLI::App app("Runs the services of this user's cluster, and reads and changes what the TovanCore library keeps",
               "tovanctl");
  app.require_subcommand(1);
  app.set_version_flag("--version", versionLine());
  app.footer(
      "Exit codes: 0 done, 1 the library reported a failure, 2 wrong command line or value,\n"
      "3 no such service, setting or instance, 4 the bundle cannot be installed, 5 time is over, 6 no daemon.");
  addLifecycleCommands(app);
  addServiceCommands(app);
  addConfigCommands(app);
  addScheduleCommands(app);
  addJobCommands(app);
  addLogCommands(app);
  addNotifyCommands(app);
  addScoreCommand(app);
  addDigestCommand(app);
  addStorageCommands(app);
  addDoctorCommand(app);
  try {
    app.parse(argc, argv);
    finishOutput();
    return kSuccess;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kSuccess : kUsage;
  } catch (const CommandError& error) {
    std::fflush(stdout);  // what was done so far comes before what went wrong
    message(error.what());
    return error.code();
  } catch (const plinth::CException& error) {
    std::fflush(stdout);
    message(error.what());
    return kFailed;
  }
}

}  // namespace
}  // namespace tovanctl

int main(int argc, char** argv) {
  try {
    return tovanctl::run(argc, argv);
  } catch (const std::exception& error) {
    tovanctl::message(error.what());
    return tovanctl::kFailed;
  }
}
