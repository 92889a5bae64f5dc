#include "tools/tovanctl/log_level.h"

#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/notification_names.h>
#include <tovan/service_cache_file.h>

#include "tools/tovanctl/daemon.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/post_notification.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;
using tovan::CFUtil;
using tovan::CServiceCacheEntry;
using tovan::CServiceCacheFile;

struct Levels {
  std::int32_t own = CServiceCacheEntry::kDefaultLogLevel;
  std::optional<std::int32_t> override;
  std::int32_t effective() const { return override.value_or(own); }
};

Levels levelsOf(const CServiceCacheEntry& entry) {
  Levels levels;
  bool found = false;
  levels.own = entry.logLevel(false, found);
  const std::int32_t level = entry.logLevel(true, found);
  if (found) levels.override = level;
  return levels;
}

// Whose level a process takes that has no entry of its own: the first one's.
void showDaemonLevel(const CServiceCacheFile& cache, bool asJson) {
  CServiceCacheEntry first;
  const bool isFirst = cache.getAtIndex(0, first);
  const std::int32_t level = isFirst ? levelsOf(first).effective() : CServiceCacheEntry::kDefaultLogLevel;
  if (asJson) {
    return printJson({{"service", kDaemonName}, {"level", level}, {"own", nullptr}, {"override", nullptr}});
  }
  const std::string whose = isFirst ? "that of the first service, " + text(first.name()) : "the usual one";
  print(std::string(kDaemonName) + ": " + std::to_string(level) + " from its next start on (" + whose +
        ", since the daemon has no entry of its own)\n");
}

// The override is a value of the user's preferences, and there must be some for it to be set to the usual level.
void setOverride(CServiceCacheEntry& entry, std::int32_t level) {
  if (entry.userPrefs() == nullptr) {
    const CSharedCFRef<CFMutableDictionaryRef> none(CFUtil::CFDictMakeMutable());
    entry.setUserPrefs(none.get());
  }
  entry.setLogLevel(level, true);
}

void removeOverride(CServiceCacheEntry& entry) {
  if (entry.userPrefs() == nullptr) return;
  const CSharedCFRef<CFMutableDictionaryRef> preferences(CFDictionaryCreateMutableCopy(nullptr, 0, entry.userPrefs()));
  CFDictionaryRemoveValue(preferences.get(), CFSTR("LogLevel"));
  entry.setUserPrefs(preferences.get());
}

// Loggers look at their level when preferences changed. One that was changed without the preferences pane ("headless")
// is nobody else's business, and theirs only with "logging".
void tellLoggers() {
  const CSharedCFRef<CFMutableDictionaryRef> userInfo(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSetBoolean(userInfo.get(), tovan::TovanCorePrivate::kDictKeyHeadless, true);
  CFUtil::CFDictSetBoolean(userInfo.get(), tovan::TovanCorePrivate::kDictKeyLogging, true);
  postNotification(tovan::TovanNotification::kTovanPrefsChangedNotification, tovan::TovanNotification::kPrefExternalID,
                   userInfo.get());
}

std::string levelLine(const Levels& levels) {
  const std::string own =
      levels.override ? " (the user's; the service's own is " + std::to_string(levels.own) + ")" : "";
  return std::to_string(levels.effective()) + own + "\n";
}

}  // namespace

void showLogLevel(const std::string& service, bool asJson) {
  const CServiceCacheFile cache;
  if (service == kDaemonName) return showDaemonLevel(cache, asJson);
  const Levels levels = levelsOf(serviceOfName(cache, service));
  if (!asJson) return print(service + ": " + levelLine(levels));
  printJson({{"service", service},
             {"level", levels.effective()},
             {"own", levels.own},
             {"override", levels.override ? Json(*levels.override) : Json(nullptr)}});
}

void changeLogLevel(const std::string& service, std::optional<std::int32_t> level) {
  if (service == kDaemonName) {
    throw CommandError(kUnknownName,
                       "the daemon has no entry that could hold a level; at its start it takes that of the "
                       "first service");
  }
  CServiceCacheFile cache;
  CServiceCacheEntry entry = serviceOfName(cache, service);
  if (level) {
    setOverride(entry, *level);
  } else {
    removeOverride(entry);
  }
  cache.put(entry);
  cache.flush();
  print(service + ": the log level is now " + levelLine(levelsOf(entry)));
  finishOutput();
  try {
    tellLoggers();
  } catch (const CommandError& error) {
    throw CommandError(kFailed,
                       "the level is stored, and counts from the next start on; running processes were not told: " +
                           std::string(error.what()));
  }
}

}  // namespace tovanctl
