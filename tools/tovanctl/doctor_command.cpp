// `tovanctl doctor`.
#include <plinth/exception.h>

#include <memory>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/doctor_checks.h"
#include "tools/tovanctl/output.h"

namespace tovanctl {
namespace {

constexpr struct {
  const char* name;
  void (*run)(Checks&);
} kChecks[] = {
    {"cluster framework", checkFrameworks},
    {"launchctl", checkLaunchctl},
    {"lingering", checkLingering},
    {"bus", checkBus},
    {"files", checkFiles},
    {"services", checkServices},
    {"daemon", checkDaemon},
    {"registrations", checkRegistrations},
};

// A check that cannot be made is a finding, and keeps none of the others from being made.
Checks allChecks() {
  Checks checks;
  for (const auto& [name, run] : kChecks) {
    try {
      run(checks);
    } catch (const plinth::CException& error) {
      checks.push_back({name, false, error.what(), ""});
    }
  }
  return checks;
}

void doctor(bool asJson, bool prune) {
  const std::size_t pruned = prune ? pruneRegistrations() : 0;
  if (prune)
    message(std::to_string(pruned) + (pruned == 1 ? " registration" : " registrations") +
            " of processes that are gone removed");
  reportChecks(allChecks(), asJson);
}

struct Arguments {
  bool json = false;
  bool prune = false;
};

}  // namespace

void addDoctorCommand(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const command = app.add_subcommand("doctor", "What is missing on this host, and the command that mends it");
  command->add_flag("--json", arguments->json, "One JSON document");
  command->add_flag("--prune", arguments->prune, "Remove the registrations of processes that are gone first");
  command->callback([arguments] { doctor(arguments->json, arguments->prune); });
}

}  // namespace tovanctl
