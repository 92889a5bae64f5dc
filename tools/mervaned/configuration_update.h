// configuration_update.h: the configuration file is brought in step with the shipped defaults when the daemon starts.
#pragma once

namespace mervaned {

// Runs the configuration updater and reports its lines, as failures when it failed. Nothing it meets keeps the daemon
// from starting.
void updateConfiguration();

}  // namespace mervaned
