// How CTovanLogger follows the preferences.
#include <plinth/exception.h>
#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/logger.h>
#include <tovan/service_cache_file.h>

#include "logging/preferences_link.h"
#include "platform/system/process_id.h"

#include <exception>
#include <mutex>

namespace tovan {
namespace {

bool concernsLogging(CFDictionaryRef userInfo) {
  bool isHeadless = false;
  CFUtil::CFDictGetBoolean(userInfo, TovanCorePrivate::kDictKeyHeadless, isHeadless);
  CFTypeRef logging = nullptr;
  return !isHeadless || CFUtil::CFDictGet(userInfo, TovanCorePrivate::kDictKeyLogging, logging);
}

}  // namespace

void CTovanLogger::setPrefsChangedHandler(bool on) {
  const std::lock_guard lock(*mutex_);
  if (on) {
    preferences_->open();
  } else {
    preferences_->close();
  }
}

void CTovanLogger::tovanPrefsChanged(CFNotificationCenterRef, void* observer, CFStringRef, const void*,
                                     CFDictionaryRef userInfo) {
  if (observer == nullptr || !concernsLogging(userInfo)) return;
  try {
    static_cast<CTovanLogger*>(observer)->reloadLogLevel();
  } catch (const std::exception& exception) {
    const plinth::CStringRef line = plinth::CString::sprintf(
        "CTovanLogger::tovanPrefsChanged[%d] failed, exception = %s", platform::processId(), exception.what());
    CFUtil::LogToConsole(line->getUTF8Ptr());
  }
}

void CTovanLogger::reloadLogLevel() {
  const plinth::CStringRef name = serviceName();
  if (name->isEmpty()) return;
  const CServiceCacheFile cache;
  CServiceCacheEntry entry;
  if (!cache.get(name->getStringRef(), entry)) return;
  bool isOverridden = false;
  std::int32_t level = entry.logLevel(true, isOverridden);
  if (!isOverridden) level = entry.logLevel(false, isOverridden);
  setLogLevel(static_cast<unsigned int>(level));
}

}  // namespace tovan
