// children.h: the mount and unmount commands that run.
#pragma once

#include <string>
#include <vector>

namespace mervaned {

// Sends SIGTERM to the children of this process that run programs of these names. Which ones these are is looked at
// while each is held, so no other process ever gets the signal.
void endChildrenNamed(const std::vector<std::string>& programs);

}  // namespace mervaned
