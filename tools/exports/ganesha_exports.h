// ganesha_exports.h: exports as nfs-ganesha takes them: a whole configuration file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/exports/configuration.h"

namespace exports {

// Why this path cannot stand in the configuration; empty when it can.
std::string reasonAgainstGaneshaPath(std::string_view path);

// Version 4 of the protocol, each folder under its own path. An export has no access but for its clients, and there is
// no export without clients. Folders without a form (reasonAgainstGaneshaPath) are left out.
std::string ganeshaExports(const std::vector<std::string>& folders, const Configuration& configuration);

}  // namespace exports
