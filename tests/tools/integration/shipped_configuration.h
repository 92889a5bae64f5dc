// shipped_configuration.h: a configuration file that the daemon takes for valid.
#pragma once

#include <tovan/tovan_config_updater.h>

#include <sstream>

namespace test {

// Creates the configuration from the shipped defaults when there is none: the daemon would replace one that lacks their
// services.
inline void createShippedConfiguration() {
  std::ostringstream reported;
  tovan::TovanConfigUpdater(reported).createLumisphereConfigFile();
}

}  // namespace test
