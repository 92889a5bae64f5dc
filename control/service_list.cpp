#include "control/service_list.h"

#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/notifications.h>

#include <plinth/shared_cf_ref.h>

namespace tovan {

void signalServiceList(CFDictionaryRef services) {
  const CFStringRef name = TovanNotification::kTovanPrefsChangedNotification;
  if (services == nullptr || CFDictionaryGetCount(services) == 0) return signalDaemon(name, nullptr);
  const plinth::CSharedCFRef<CFMutableDictionaryRef> userInfo(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSet(userInfo.get(), TovanCorePrivate::kDictKeyServiceList, services);
  signalDaemon(name, userInfo.get());
}

}  // namespace tovan
