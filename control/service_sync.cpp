// Bringing services in line with their "Enabled" flags.
#include <tovan/service_control.h>

#include "control/failure_report.h"
#include "control/launch_agent.h"
#include "control/lumisphere_services.h"
#include "control/service_list.h"

#include <tovan/cf_util.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_util.h>

#include <plinth/shared_cf_ref.h>

#include <cstdint>

using tovan::CFUtil;
using tovan::CServiceCacheEntry;
using tovan::CServiceUtil;

namespace {

void syncJobs(const CServiceCacheEntry& entry) {
  const std::int32_t count = CServiceCacheEntry::ConvertToRealInstanceCount(entry.instances);
  for (std::int32_t i = 0; i < count; ++i) tovan::syncJob(entry, static_cast<unsigned int>(i), entry.enabled);
}

}  // namespace

void syncServices(CFArrayRef names) {
  if (names == nullptr || CFArrayGetCount(names) == 0) return tovan::signalServiceList(nullptr);
  const tovan::CServiceCacheFile file;
  const plinth::CSharedCFRef<CFMutableDictionaryRef> daemonServices(CFUtil::CFDictMakeMutable());
  tovan::forEachString(names, [&](CFStringRef name) {
    CServiceCacheEntry entry;
    if (!file.get(name, entry)) return;
    if (CServiceUtil::launchFlagForService(entry) == CServiceUtil::kLaunchedByLaunchd) {
      syncJobs(entry);
    } else {
      CFUtil::CFDictSetBoolean(daemonServices.get(), name, entry.enabled);
    }
  });
  tovan::signalServiceList(daemonServices.get());
}

void syncLumisphereServices() {
  tovan::reportingFailures("TovanConfig::syncLumisphereServices", [] {
    const auto services = tovan::lumisphereServices();
    if (services) syncServices(services.get());
  });
}
