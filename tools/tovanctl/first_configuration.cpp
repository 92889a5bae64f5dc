#include "tools/tovanctl/first_configuration.h"

#include <plinth/exception.h>
#include <tovan/tovan_config_updater.h>

#include <sstream>
#include <string>

#include "tools/tovanctl/output.h"

namespace tovanctl {

void createMissingConfiguration() {
  std::ostringstream nothing;  // it reports only what run() does
  tovan::TovanConfigUpdater updater(nothing);
  if (!updater.needCopyLumisphereConfigFile()) return;
  try {
    updater.createLumisphereConfigFile();
  } catch (const plinth::CException& failure) {
    message(std::string("the configuration begins without the shipped defaults: ") + failure.what());
  }
}

}  // namespace tovanctl
