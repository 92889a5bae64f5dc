#include <tovan/service_cache_file.h>

#include <tovan/cf_util.h>
#include <tovan/framework_location.h>

#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFURL.h>

#include <algorithm>

#include "foundation/runtime_path.h"
#include "platform/system/processors.h"
#include "plist/setting_rows.h"

namespace tovan {

using plinth::CSharedCFRef;

namespace {

CFStringRef stdoutPathKey() { return CFSTR("StdoutPath"); }
CFStringRef logLevelKey() { return CFSTR("LogLevel"); }
CFStringRef truncateLogKey() { return CFSTR("TruncateLog"); }

CSharedCFRef<CFStringRef> retained(CFStringRef string) { return CSharedCFRef<CFStringRef>::retaining(string); }

// A copy that can change; a new dictionary of null.
CSharedCFRef<CFMutableDictionaryRef> changeableCopy(const CSharedCFRef<CFDictionaryRef>& dictionary) {
  return CSharedCFRef<CFMutableDictionaryRef>(dictionary.isNull() ? CFUtil::CFDictMakeMutable()
                                                                  : CFUtil::CFDictMakeMutableCopy(dictionary.get()));
}

// A stored path may be a file URL.
CSharedCFRef<CFStringRef> withoutScheme(const CSharedCFRef<CFStringRef>& path) {
  if (path.isNull() || !CFStringHasPrefix(path.get(), CFSTR("file://"))) return path;
  const CSharedCFRef<CFURLRef> url = CFURLCreateWithString(kCFAllocatorDefault, path.get(), nullptr);
  if (url.isNull()) return path;
  return CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle);
}

}  // namespace

struct CServiceCacheEntry::Table {
  using Row = SettingRow<CServiceCacheEntry>;
  using Entry = CServiceCacheEntry;
  using enum SettingType;
  using enum SettingWritten;
  using enum SettingLoad;

  static constexpr std::array<Row, 25> kRows = {{
      {{{.key = CFSTR("SharePref"),
         .type = boolean,
         .written = always,
         .description = "Whether the user wants the service to be shared"}},
       &Entry::sharePref},
      {{{.key = CFSTR("NetworkName"),
         .type = string,
         .written = whenSet,
         .description = "The name of the service on the network"}},
       &Entry::networkName_},
      {{{.key = CFSTR("DisplayName"), .type = string, .written = whenSet, .description = "The name that people read"}},
       &Entry::displayName_},
      {{{.key = CFSTR("Description"), .type = string, .written = whenSet, .description = "What the service does"}},
       &Entry::description_},
      {{{.key = CFSTR("Executable"),
         .type = string,
         .written = whenSet,
         .description = "The name of the executable inside the bundle; none for the bundle's main executable"}},
       &Entry::executable_},
      {{{.key = CFSTR("Path"), .type = string, .written = whenSet, .description = "The path of the executable"}},
       &Entry::path_},
      {{{.key = CFSTR("BundlePath"), .type = string, .written = whenSet, .description = "The path of the bundle"}},
       &Entry::bundlePath_},
      {{{.key = CFSTR("CaptureKey"),
         .type = string,
         .written = whenSet,
         .description = "The capture key of instances that have none of their own"}},
       &Entry::captureKey_},
      {{{.key = CFSTR("UserPrefs"),
         .type = dictionary,
         .written = always,
         .description = "The user's preferences for the service"}},
       &Entry::userPrefs_},
      {{{.key = CFSTR("Version"),
         .type = int64,
         .written = whenNotDefault,
         .description = "The version of the service; a reinstallation replaces lower ones"}},
       &Entry::version},
      {{{.key = CFSTR("PerUserService"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether each user has instances of their own"}},
       &Entry::perUserService},
      {{{.key = CFSTR("UserID"),
         .type = int32,
         .written = always,
         .description = "The user that the service runs as; -1 for none in particular",
         .defaultNumber = -1}},
       &Entry::userID},
      {{{.key = CFSTR("UserIDs"),
         .type = array,
         .written = whenSet,
         .description = "The users that the service is for"}},
       &Entry::userIDs_},
      {{{.key = CFSTR("Instances"),
         .type = int32,
         .written = always,
         .description = "How many instances run; -n reads as one per n processors, at least 1"},
        fromDefault,
        ConvertToRealInstanceCount},
       &Entry::instances},
      {{{.key = CFSTR("Enabled"), .type = boolean, .written = always, .description = "Whether the service runs"}},
       &Entry::enabled},
      {{{.key = CFSTR("ExplicitSyncOnly"),
         .type = boolean,
         .written = always,
         .description = "Whether only a synchronisation that names the service starts or stops it"}},
       &Entry::explicitSyncOnly},
      {{{.key = CFSTR("DetachDaemon"),
         .type = boolean,
         .written = always,
         .description = "Whether the service detaches itself from its starter"}},
       &Entry::detachDaemon},
      {{{.key = CFSTR("LocalAds"),
         .type = boolean,
         .written = always,
         .description = "Whether the service advertises on this host only"}},
       &Entry::localAds},
      {{{.key = CFSTR("StdoutPath"),
         .type = string,
         .written = whenNotEmpty,
         .description = "The file that the service's output goes to",
         .container = CFSTR("UserPrefs")}},
       &Entry::stdoutPath_},
      {{{.key = CFSTR("Logging"),
         .type = boolean,
         .written = always,
         .description = "Whether the service keeps a log"}},
       &Entry::logging},
      {{{.key = CFSTR("LogLevel"),
         .type = int32,
         .written = whenNotDefault,
         .description = "Up to which level messages are logged",
         .defaultNumber = kDefaultLogLevel}},
       &Entry::logLevel_},
      {{{.key = CFSTR("TruncateLog"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether the log begins afresh with each start"}},
       &Entry::truncateLog_},
      {{{.key = CFSTR("Visible"),
         .type = boolean,
         .written = always,
         .description = "Whether the service is shown to people"}},
       &Entry::visible},
      {{{.key = CFSTR("Advertising"),
         .type = int32,
         .written = whenNotDefault,
         .description = "How the service advertises itself: 1 for DN, 2 for MC, any other number but 0 for RV"}},
       &Entry::advertising},
      {{{.key = CFSTR("LaunchHint"),
         .type = string,
         .written = whenNotEmpty,
         .description = "How the service is started; one that begins with \"launchd.\" has job descriptions"}},
       &Entry::launchHint_},
  }};
  static constexpr auto kDescriptions = descriptionsOf(kRows);
};

CServiceCacheEntry::CServiceCacheEntry() = default;
CServiceCacheEntry::CServiceCacheEntry(CFStringRef name, CFDictionaryRef dictionary) : name_(retained(name)) {
  if (dictionary != nullptr) fromDict(dictionary);
}
CServiceCacheEntry::CServiceCacheEntry(const CServiceCacheEntry&) = default;
CServiceCacheEntry& CServiceCacheEntry::operator=(const CServiceCacheEntry&) = default;
CServiceCacheEntry::~CServiceCacheEntry() = default;

void CServiceCacheEntry::fromDict(CFDictionaryRef dictionary) {
  resetSettings(Table::kRows, *this);
  if (dictionary != nullptr) readSettings(Table::kRows, dictionary, *this);
}

CSharedCFRef<CFMutableDictionaryRef> CServiceCacheEntry::toDict() const {
  CSharedCFRef<CFMutableDictionaryRef> dictionary(CFUtil::CFDictMakeMutable());
  writeSettings(Table::kRows, *this, dictionary.get());
  return dictionary;
}

std::int32_t CServiceCacheEntry::ConvertToRealInstanceCount(std::int32_t count) {
  if (count >= 0) return count;
  // In 64 bits, since the lowest count has no positive counterpart in 32.
  const std::int64_t processorsEach = -std::int64_t{count};
  return static_cast<std::int32_t>(std::max<std::int64_t>(1, platform::processorCount() / processorsEach));
}

void CServiceCacheEntry::setNetworkName(CFStringRef networkName) { networkName_ = retained(networkName); }
void CServiceCacheEntry::setDisplayName(CFStringRef displayName) { displayName_ = retained(displayName); }
void CServiceCacheEntry::setDescription(CFStringRef description) { description_ = retained(description); }
void CServiceCacheEntry::setExecutable(CFStringRef executable) { executable_ = retained(executable); }
void CServiceCacheEntry::setPath(CFStringRef path) { path_ = retained(path); }
void CServiceCacheEntry::setBundlePath(CFStringRef bundlePath) { bundlePath_ = retained(bundlePath); }
void CServiceCacheEntry::setCaptureKey(CFStringRef captureKey) { captureKey_ = retained(captureKey); }
void CServiceCacheEntry::setLaunchHint(CFStringRef launchHint) { launchHint_ = retained(launchHint); }
void CServiceCacheEntry::setUserIDs(CFArrayRef userIDs) { userIDs_ = CSharedCFRef<CFArrayRef>::retaining(userIDs); }
void CServiceCacheEntry::setUserPrefs(CFDictionaryRef userPrefs) {
  userPrefs_ = CSharedCFRef<CFDictionaryRef>::retaining(userPrefs);
}

void CServiceCacheEntry::setStdoutPath(CFStringRef stdoutPath) {
  stdoutPath_ = retained(stdoutPath);
  // A path that is gone must not come back with the preferences that it was read from.
  const bool isGone = stdoutPath == nullptr || CFStringGetLength(stdoutPath) == 0;
  if (!isGone || userPrefs_.isNull() || !CFDictionaryContainsKey(userPrefs_.get(), stdoutPathKey())) return;
  const CSharedCFRef<CFMutableDictionaryRef> prefs = changeableCopy(userPrefs_);
  CFDictionaryRemoveValue(prefs.get(), stdoutPathKey());
  userPrefs_ = prefs;
}

void CServiceCacheEntry::setLogLevel(std::int32_t level, bool inUserPrefs) {
  if (!inUserPrefs) {
    logLevel_ = level;
    return;
  }
  if (level == kDefaultLogLevel && userPrefs_.isNull()) return;
  const CSharedCFRef<CFMutableDictionaryRef> prefs = changeableCopy(userPrefs_);
  if (level == kDefaultLogLevel && logLevel_ == kDefaultLogLevel) {
    CFDictionaryRemoveValue(prefs.get(), logLevelKey());
  } else {
    CFUtil::CFDictSetInt(prefs.get(), logLevelKey(), level);
  }
  userPrefs_ = prefs;
}

std::int32_t CServiceCacheEntry::logLevel(bool inUserPrefs, bool& found) const {
  found = true;
  if (!inUserPrefs) return logLevel_;
  std::int32_t level = kDefaultLogLevel;
  found = CFUtil::CFDictGetInt(userPrefs_.get(), logLevelKey(), level);
  return found ? level : kDefaultLogLevel;
}

void CServiceCacheEntry::setTruncateLog(bool value, bool inUserPrefs) {
  if (!inUserPrefs) {
    truncateLog_ = value;
    return;
  }
  if (!value && userPrefs_.isNull()) return;
  const CSharedCFRef<CFMutableDictionaryRef> prefs = changeableCopy(userPrefs_);
  // Deliberately not the rule of the log level: the override goes only when both are true, and a false one over a false
  // flag is stored.
  if (value && truncateLog_) {
    CFDictionaryRemoveValue(prefs.get(), truncateLogKey());
  } else {
    CFUtil::CFDictSetBoolean(prefs.get(), truncateLogKey(), value);
  }
  userPrefs_ = prefs;
}

bool CServiceCacheEntry::truncateLog(bool inUserPrefs, bool& found) const {
  found = true;
  if (!inUserPrefs) return truncateLog_;
  bool value = false;
  found = CFUtil::CFDictGetBoolean(userPrefs_.get(), truncateLogKey(), value);
  return found && value;
}

void CServiceCacheEntry::updateRuntimeServicePath() {
  const CSharedCFRef<CFURLRef> mervane = getMervaneFrameworkURL();
  const CSharedCFRef<CFURLRef> lumisphere = getLumisphereFrameworkURL();
  for (CSharedCFRef<CFStringRef>* const path : {&path_, &bundlePath_}) {
    const CSharedCFRef<CFStringRef> present(
        getRuntimePath(withoutScheme(*path).get(), mervane.get(), lumisphere.get()));
    if (!present.isNull()) *path = present;
  }
}

SettingList CServiceCacheEntry::settings() noexcept { return Table::kDescriptions; }

CSharedCFRef<CFTypeRef> CServiceCacheEntry::copySetting(CFStringRef key) const {
  return copySettingOf(Table::kRows, *this, key);
}

void CServiceCacheEntry::setSetting(CFStringRef key, CFTypeRef value) {
  assignSettingOf(Table::kRows, *this, key, value, "CServiceCacheEntry::setSetting");
  if (CFEqual(key, stdoutPathKey())) setStdoutPath(stdoutPath());
}

}  // namespace tovan
