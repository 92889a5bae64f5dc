// Whether restarting the job controller ends the jobs under way.
#include <tovan/service_control.h>

#include "control/failure_report.h"
#include "control/file_change.h"

#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/service_config_file.h>

#include <plinth/exception.h>
#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFNumber.h>

using plinth::CSharedCFRef;
using tovan::CFUtil;
using tovan::CServiceConfigEntry;
using tovan::CServiceConfigFile;
using namespace tovan::TovanCorePrivate;

namespace {

plinth::CStringRef jobController() { return plinth::CSTR(kKlarnClusterAdminServiceKind); }

// Null when there is none. What stands in its place must not get lost.
CFDictionaryRef configurationOf(const CServiceConfigEntry& entry) {
  const CFTypeRef configuration = entry.config();
  if (configuration != nullptr && CFGetTypeID(configuration) != CFDictionaryGetTypeID()) {
    throw plinth::CParamException("Configuration of service %s is not a dictionary", kKlarnClusterAdminServiceKind);
  }
  return static_cast<CFDictionaryRef>(configuration);
}

void setCancelJobs(CServiceConfigEntry& entry, bool cancelJobs) {
  const CFDictionaryRef present = configurationOf(entry);
  if (present == nullptr && !cancelJobs) return;
  const CSharedCFRef<CFMutableDictionaryRef> changed(present != nullptr ? CFUtil::CFDictMakeMutableCopy(present)
                                                                        : CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSet(changed.get(), kDictKeyCancelJobs, cancelJobs ? kCFBooleanTrue : nullptr);
  entry.setConfig(changed.get());
}

}  // namespace

bool getCancelActiveJobsOnRestart() {
  bool cancelJobs = false;
  tovan::reportingFailures("TovanConfig::getCancelActiveJobsOnRestart", [&cancelJobs] {
    const CServiceConfigFile file(jobController()->getStringRef());
    CServiceConfigEntry entry;
    if (!file.getAtIndex(0, entry)) return;
    CFUtil::CFDictGetBoolean(configurationOf(entry), kDictKeyCancelJobs, cancelJobs);
  });
  return cancelJobs;
}

void setCancelActiveJobsOnRestart(bool cancelJobs) {
  tovan::reportingFailures("TovanConfig::setCancelActiveJobsOnRestart", [cancelJobs] {
    CServiceConfigFile file(jobController()->getStringRef());
    CServiceConfigEntry entry;
    if (!file.getAtIndex(0, entry)) return;  // locking would create the file
    tovan::beginChange(file);
    if (!file.getAtIndex(0, entry)) return;
    setCancelJobs(entry, cancelJobs);
    file.putAtIndex(0, entry);
    file.flush();
  });
}
