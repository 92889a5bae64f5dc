// log_level.h: `tovanctl log level`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tovanctl {

void showLogLevel(const std::string& service, bool json);
// Writes the user's override of the service's level, or takes it away, and tells the processes that run. The level
// counts even when nobody can be told: then CommandError(kFailed) says so. CommandError(kUnknownName) for the daemon,
// which has no entry that could hold a level.
void changeLogLevel(const std::string& service, std::optional<std::int32_t> level);

}  // namespace tovanctl
