#include "tools/tovanctl/services.h"

#include <tovan/constants.h>

#include <algorithm>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/suggestions.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {

std::vector<std::string> serviceNames(const tovan::CServiceCacheFile& cache) {
  std::vector<tovan::CServiceCacheEntry> entries;
  cache.get(entries, 0);
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (const tovan::CServiceCacheEntry& entry : entries) names.push_back(text(entry.name()));
  std::sort(names.begin(), names.end());
  return names;
}

tovan::CServiceCacheEntry serviceOfName(const tovan::CServiceCacheFile& cache, const std::string& name) {
  tovan::CServiceCacheEntry entry;
  if (!cache.get(string(name).get(), entry)) {
    throw CommandError(kUnknownName, unknownName("service", name, serviceNames(cache)));
  }
  return entry;
}

bool isRequiredService(const std::string& name) {
  using namespace tovan::TovanCorePrivate;
  return name == kClusterAdminServiceKind || name == kTranscoderServiceKind;
}

}  // namespace tovanctl
