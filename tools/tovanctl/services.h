// services.h: looking services up by name.
#pragma once

#include <tovan/service_cache_file.h>

#include <string>
#include <vector>

namespace tovanctl {

// The names of all installed services, sorted.
std::vector<std::string> serviceNames(const tovan::CServiceCacheFile& cache);
// The entry of a service. CommandError(kUnknownName), with the nearest name, when none is installed under it.
tovan::CServiceCacheEntry serviceOfName(const tovan::CServiceCacheFile& cache, const std::string& name);

// Whether it is one of the two without which the daemon replaces the configuration by the shipped defaults.
bool isRequiredService(const std::string& name);

}  // namespace tovanctl
