// doctor_checks.h: what `tovanctl doctor` looks at on this host.
#pragma once

#include <string>
#include <vector>

namespace tovanctl {

struct Check {
  std::string name;
  bool ok = true;
  std::string detail;
  std::string mend;  // the command that mends it; empty when it is well or nothing simple does
};

using Checks = std::vector<Check>;

// Each adds what it looked at, well or not.
void checkFrameworks(Checks& checks);
void checkLaunchctl(Checks& checks);
void checkLingering(Checks& checks);
// Starts the bus on demand where there is no other.
void checkBus(Checks& checks);
// The configuration folder, its files, and the folder of launch agents: theirs to use by this user and by nobody else.
void checkFiles(Checks& checks);
void checkServices(Checks& checks);
void checkDaemon(Checks& checks);
void checkRegistrations(Checks& checks);

// Prints them, for people or as one JSON document. CommandError(kFailed) when there is a problem among them.
void reportChecks(const Checks& checks, bool asJson);

// Takes the registrations out of the PID file whose processes are gone; how many there were.
std::size_t pruneRegistrations();

// A path as one word of a shell command.
std::string shellWord(const std::string& path);
// Whether the path is a file that this user may run.
bool isProgram(const std::string& path);
// The program of that name in the folders that PATH names; empty when there is none.
std::string programInPath(const std::string& name);
// The cluster's framework; empty when the library lies in none.
std::string clusterFramework();

}  // namespace tovanctl
