#include "tools/launchctl/back_end.h"

#include <cstdlib>

#include "tools/launchctl/embedded/embedded_back_end.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/systemd/systemctl.h"
#include "tools/launchctl/systemd/systemd_back_end.h"

namespace launchctl {

std::unique_ptr<BackEnd> chooseBackEnd() {
  const char* const variable = std::getenv("TOVAN_LAUNCHD");
  const std::string asked = variable == nullptr ? "" : variable;
  if (asked == "systemd") return std::make_unique<SystemdBackEnd>();
  if (asked == "embedded") return std::make_unique<EmbeddedBackEnd>();
  if (!asked.empty()) throw Failure("TOVAN_LAUNCHD is \"" + asked + "\"; it may be \"systemd\" or \"embedded\"");
  // Jobs that run already stay where they are: a manager that comes up later would not know of them.
  const bool systemd = !EmbeddedBackEnd::inUse() && managerAnswers() && managerReads(unitFolder());
  if (systemd) return std::make_unique<SystemdBackEnd>();
  return std::make_unique<EmbeddedBackEnd>();
}

}  // namespace launchctl
