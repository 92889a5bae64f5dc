// install_command.h: `tovanctl service install`.
#pragma once

#include <string>
#include <vector>

namespace tovanctl {

// Installs each bundle, or Lumisphere's two when none is given, and says what became of it. `name` is the name to
// install under (with one bundle only), empty for the bundle's kind. A bundle that cannot be a service:
// CommandError(kBadBundle) with the reason, after the bundles before it.
void installBundles(const std::vector<std::string>& paths, const std::string& name);

}  // namespace tovanctl
