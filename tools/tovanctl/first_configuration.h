// first_configuration.h: the configuration file begins with the shipped defaults.
#pragma once

namespace tovanctl {

// Creates the configuration file from the shipped defaults when there is none, so that what is then set or installed is
// not taken for an incomplete file when the daemon starts. What keeps it from that is a message on standard error.
void createMissingConfiguration();

}  // namespace tovanctl
