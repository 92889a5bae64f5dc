// Asking for services to be restarted.
#include <tovan/service_control.h>

#include "control/failure_report.h"
#include "control/service_list.h"
#include "plist/path_text.h"

#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/notifications.h>

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <unistd.h>

#include <cstdint>
#include <string>

using plinth::CSharedCFRef;
using plinth::CSTR;
using tovan::CFUtil;
using namespace tovan::TovanCorePrivate;

namespace {

CSharedCFRef<CFMutableDictionaryRef> restartRequest(CFStringRef serviceKind) {
  CSharedCFRef<CFMutableDictionaryRef> request(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSetString(request.get(), kDictKeyServiceType, serviceKind);
  CFUtil::CFDictSetInt(request.get(), kDictKeyUserID, static_cast<std::int32_t>(::geteuid()));
  return request;
}

void post(const CSharedCFRef<CFMutableDictionaryRef>& request) {
  signalFrom(tovan::TovanNotification::kTovanServiceRestartNotification, nullptr, request.get());
}

}  // namespace

void restartServices(CFArrayRef names) {
  if (names == nullptr || CFArrayGetCount(names) == 0) return;
  tovan::reportingFailures("TovanConfig::restartServices", [names] {
    const CSharedCFRef<CFMutableDictionaryRef> services(CFUtil::CFDictMakeMutable());
    tovan::forEachString(
        names, [&services](CFStringRef name) { CFUtil::CFDictSetString(services.get(), name, CFSTR("Restart")); });
    tovan::signalServiceList(services.get());
  });
}

void restartMervaneJCService(bool cancelJobs) {
  tovan::reportingFailures("TovanConfig::restartMervaneJCService", [cancelJobs] {
    const auto request = restartRequest(CSTR(kKlarnClusterAdminServiceKind)->getStringRef());
    CFUtil::CFDictSetBoolean(request.get(), kDictKeyCancelJobs, cancelJobs);
    post(request);
  });
}

void restartMervaneService(CFStringRef serviceKind) {
  const std::string kind = serviceKind != nullptr ? tovan::pathText(serviceKind) : "(null)";
  tovan::reportingFailures("TovanConfig::restartMervaneService(" + kind + ")",
                           [serviceKind] { post(restartRequest(serviceKind)); });
}

void restartMervaneServices(bool cancelJobs) {
  tovan::reportingFailures("TovanConfig::restartMervaneServices", [cancelJobs] {
    restartMervaneJCService(cancelJobs);
    for (const char* const kind : {kKlarnTranscoderServiceKind, kTranscoderServiceKind,
                                   kKlarnContentControllerServiceKind, kContentAgentServiceKind}) {
      restartMervaneService(CSTR(kind)->getStringRef());
    }
  });
}
