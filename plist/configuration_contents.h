// configuration_contents.h: whether a configuration file holds what the cluster needs.
#pragma once

#include <CoreFoundation/CFString.h>

#include <optional>
#include <string>

namespace tovan {

// What is wrong with the contents of the file at a path, in words; nothing when they are valid, as
// tovan/tovan_config_updater.h defines it. Throws when the file cannot be read.
std::optional<std::string> problemOfConfiguration(CFStringRef path);

}  // namespace tovan
