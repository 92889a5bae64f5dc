#include "plist/configuration_contents.h"

#include <plinth/string.h>
#include <tovan/constants.h>
#include <tovan/service_cache_file.h>
#include <tovan/tovan_config_file.h>

#include <vector>

#include "plist/path_text.h"

namespace tovan {
namespace {

constexpr std::size_t kFewestServices = 2;

// An absolute path, or the URL of one, that names a file.
bool namesFile(const std::string& path) {
  const bool isAbsolute = path.starts_with('/') || path.starts_with("file://");
  return isAbsolute && !path.ends_with('/');
}

std::optional<std::string> problemOfEntry(const CServiceCacheEntry& entry) {
  const std::string service = "the service " + pathText(entry.name());
  const std::string path = pathText(entry.path());
  if (path.empty()) return service + " has no \"Path\"";
  if (!namesFile(path)) return "the \"Path\" of " + service + " is no absolute path of a file: " + path;
  if (entry.userID < -1) return "the \"UserID\" of " + service + " is " + std::to_string(entry.userID);
  return std::nullopt;
}

}  // namespace

std::optional<std::string> problemOfConfiguration(CFStringRef path) {
  const CTovanConfigFile configuration(path);  // throws when it cannot be loaded
  const CServiceCacheFile services(path);
  std::vector<CServiceCacheEntry> entries;
  services.get(entries, 0);
  if (entries.size() < kFewestServices) return "fewer than two services are installed";
  // Without these two there is no cluster.
  for (const char* const kind :
       {TovanCorePrivate::kClusterAdminServiceKind, TovanCorePrivate::kTranscoderServiceKind}) {
    CServiceCacheEntry entry;
    if (!services.get(plinth::CSTR(kind)->getStringRef(), entry)) {
      return std::string("the required service ") + kind + " is not installed";
    }
    if (auto problem = problemOfEntry(entry)) return problem;
  }
  return std::nullopt;
}

}  // namespace tovan
