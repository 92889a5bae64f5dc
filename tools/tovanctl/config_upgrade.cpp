// `tovanctl config upgrade`: what the daemon does to the configuration file at its start, shown before it is done.
#include <tovan/tovan_config_updater.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/config_plan.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

using tovan::TovanConfigUpdater;
using Step = TovanConfigUpdater::Step;

std::string introductionOf(const Plan& plan) {
  switch (plan.step) {
    case Step::nothing:
      return plan.file + " is up to date: its version is " + plan.yourVersion + ", that of the shipped defaults " +
             plan.newVersion + "\n";
    case Step::create:
      return "There is no " + plan.file + ": it is created from the shipped defaults, version " + plan.newVersion +
             "\n";
    case Step::replace:
      return plan.file + " is replaced by the shipped defaults, version " + plan.newVersion +
             (plan.reasonNoCopy.empty() ? ", and a copy of it kept beside it" : "") + ", since " + plan.problem +
             (plan.reasonNoCopy.empty() ? "" : "; no copy is kept, since " + plan.reasonNoCopy) + "\n";
    case Step::merge:
      break;
  }
  return "The shipped defaults, version " + plan.newVersion + ", are merged into " + plan.file + ", version " +
         plan.yourVersion + "\n";
}

void show(const Plan& plan) {
  print(introductionOf(plan));
  if (plan.step == Step::nothing) return;
  Table table({"SETTING", "YOURS", "EARLIER DEFAULT", "NEW DEFAULT", "WHAT HAPPENS"});
  std::size_t same = 0;
  for (const PlannedSetting& setting : plan.settings) {
    if (setting.outcome == "same") {
      ++same;
      continue;
    }
    table.add({pathText(setting.path), cell(setting.yours.get()), cell(setting.earlierDefault.get()),
               cell(setting.newDefault.get()), setting.effect},
              setting.isChange ? Style::good : Style::plain);
  }
  print("\n" + table.render(wantsColour()) + "\n");
  print("Settings that have the new default already: " + std::to_string(same) + "\n");
}

std::vector<std::string> linesOf(std::stringstream& stream) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

void upgrade(bool isOnlyPlanned, bool asJson) {
  std::ostringstream looked;  // what there is to say stands in the plan
  const Plan plan = planOf(TovanConfigUpdater(looked));
  if (!asJson) show(plan);
  const bool isRun = !isOnlyPlanned && plan.step != Step::nothing;
  std::stringstream reported;
  const bool isDone = isRun && TovanConfigUpdater(reported).run();
  const std::vector<std::string> lines = linesOf(reported);
  if (asJson) {
    Json document = jsonOf(plan);
    document["done"] = isDone;
    document["report"] = lines;
    printJson(document);
  } else if (isDone) {
    print("\n");
    for (const std::string& line : lines) print(line + "\n");
    print("Done.\n");
  }
  if (!isRun || isDone) return;
  if (!asJson) {  // what was done until it failed, such as a copy that was kept
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) message(lines[i]);
  }
  throw CommandError(kFailed, lines.empty() ? "the upgrade failed" : lines.back());
}

struct Arguments {
  bool plan = false;
  bool json = false;
};

}  // namespace

void addConfigUpgradeCommand(CLI::App& config) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const command =
      config.add_subcommand("upgrade", "Bring the configuration file in step with the shipped defaults");
  command->add_flag("--plan", arguments->plan, "Show what would happen to each setting, and change nothing");
  command->add_flag("--json", arguments->json, "One JSON document");
  command->callback([arguments] { upgrade(arguments->plan, arguments->json); });
}

}  // namespace tovanctl
