#include "tools/mervaned/configuration_update.h"

#include <tovan/tovan_config_updater.h>

#include <exception>
#include <sstream>
#include <string>

#include "tools/support/process_log.h"

namespace mervaned {

void updateConfiguration() {
  std::stringstream lines;
  bool isDone = false;
  try {
    const tools::LogScope scope("update-configuration", "", tools::kLogDetail);
    isDone = tovan::TovanConfigUpdater(lines).run();
  } catch (const std::exception& failure) {
    lines << "cannot update the configuration: " << failure.what() << "\n";
  }
  for (std::string line; std::getline(lines, line);) {
    tools::report(isDone ? tools::kLogUsual : tools::kLogFailure, line);
  }
}

}  // namespace mervaned
