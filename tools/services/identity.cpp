#include "tools/services/identity.h"

#include <CoreFoundation/CFBundle.h>
#include <plinth/exception.h>
#include <tovan/cf_util.h>
#include <tovan/framework_location.h>
#include <tovan/service_cache_file.h>

#include <filesystem>
#include <system_error>
#include <vector>

#include "tools/support/text.h"

namespace service {
namespace {

plinth::CSharedCFRef<CFStringRef> stringOf(CFBundleRef bundle, CFStringRef key) {
  CFStringRef value = nullptr;
  if (bundle != nullptr) tovan::CFUtil::CFDictGetString(CFBundleGetInfoDictionary(bundle), key, value);
  return plinth::CSharedCFRef<CFStringRef>::retaining(value);
}

bool isOwnProgram(tovan::CServiceCacheEntry entry) {
  entry.updateRuntimeServicePath();
  std::error_code failed;
  return std::filesystem::equivalent(tools::textOf(entry.path()), "/proc/self/exe", failed) && !failed;
}

}  // namespace

Identity ownIdentity() {
  const CFBundleRef bundle = CFBundleGetMainBundle();
  return {plinth::CSharedCFRef<CFStringRef>::retaining(getServiceKindFromBundle(bundle)),
          stringOf(bundle, CFSTR("CFBundleName")), stringOf(bundle, CFSTR("CFBundleVersion"))};
}

std::string logName(const Identity& identity) {
  std::string kind = tools::textOf(identity.kind.get());
  try {
    const tovan::CServiceCacheFile cache;
    tovan::CServiceCacheEntry entry;
    if (cache.get(identity.kind.get(), entry)) return kind;
    std::vector<tovan::CServiceCacheEntry> entries;
    cache.get(entries, 0);
    std::erase_if(entries, [](const auto& one) { return !isOwnProgram(one); });
    return entries.size() == 1 ? tools::textOf(entries.front().name()) : kind;
  } catch (const plinth::CException&) {
    return kind;  // the log says that the cache cannot be read
  }
}

}  // namespace service
