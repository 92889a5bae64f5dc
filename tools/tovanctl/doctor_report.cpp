// What the doctors found, printed.
#include <algorithm>

#include "tools/tovanctl/doctor_checks.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

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

}  // namespace

void reportChecks(const Checks& checks, bool asJson) {
  const auto problems = static_cast<std::size_t>(
      std::count_if(checks.begin(), checks.end(), [](const Check& check) { return !check.ok; }));
  asJson ? printAsJson(checks, problems) : printAsText(checks);
  if (problems > 0) {
    throw CommandError(kFailed, std::to_string(problems) + (problems == 1 ? " problem" : " problems") + " found");
  }
}

}  // namespace tovanctl
