// `tovanctl doctor`.
#include <plinth/exception.h>

#include <algorithm>
#include <memory>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/doctor_checks.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/table.h"

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

void printAsJson(const Checks& checks, std::size_t problems) {
  Json list = Json::array();
  for (const Check& check : checks) {
    list.push_back(Json{{"check", check.name},
                        {"ok", check.ok},
                        {"detail", check.detail},
                        {"mend", check.mend.empty() ? Json(nullptr) : Json(check.mend)}});
  }
  printJson({{"checks", std::move(list)}, {"problems", problems}});
}

void printAsText(const Checks& checks) {
  const bool colour = wantsColour();
  for (const Check& check : checks) {
    print(styled(check.ok ? "ok      " : "problem ", check.ok ? Style::good : Style::bad, colour) + check.name + ": " +
          check.detail + "\n");
    if (!check.mend.empty()) print("        mend it: " + check.mend + "\n");
  }
}

void doctor(bool asJson, bool prune) {
  const std::size_t pruned = prune ? pruneRegistrations() : 0;
  if (prune)
    message(std::to_string(pruned) + (pruned == 1 ? " registration" : " registrations") +
            " of processes that are gone removed");
  const Checks checks = allChecks();
  const auto problems = static_cast<std::size_t>(
      std::count_if(checks.begin(), checks.end(), [](const Check& check) { return !check.ok; }));
  asJson ? printAsJson(checks, problems) : printAsText(checks);
  if (problems > 0) {
    throw CommandError(kFailed, std::to_string(problems) + (problems == 1 ? " problem" : " problems") + " found");
  }
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
