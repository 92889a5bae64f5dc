// installed_services.h: what the configuration says about the services of this user. Everything reads the files afresh
// and throws the exceptions of the file classes.
#pragma once

#include <tovan/service_cache_file.h>

#include <optional>
#include <string>
#include <vector>

namespace mervaned {

std::vector<tovan::CServiceCacheEntry> installedServices();
std::optional<tovan::CServiceCacheEntry> installedService(const std::string& name);

// Whether the daemon runs the service itself; launchd runs it otherwise.
bool isDaemonService(const tovan::CServiceCacheEntry& entry);
// The kind that the service's bundle declares; its name when there is no such bundle.
std::string kindOf(const tovan::CServiceCacheEntry& entry);
long instanceCount(const tovan::CServiceCacheEntry& entry);

// The program of an instance and its options.
std::vector<std::string> commandLineOf(const tovan::CServiceCacheEntry& entry, long instance);

// Asks the registered processes of a service that launchd runs to end, upon which launchd starts them again. Gives
// their number. A process counts when it is listed and described under the service's kind and runs the service's
// program.
int endProcessesOf(const tovan::CServiceCacheEntry& entry);

}  // namespace mervaned
