// service_cache_file.h: CServiceCacheFile, the registry of the services that are installed for this user.
//
// The registry is the section "mervaneservices" of the shared configuration file, one entry per service under the name
// it was installed by (mostly its service kind).
//
// Failures are those of the base class. Threads: one object belongs to one thread at a time.
#pragma once

#include <tovan/property_list_file.h>
#include <tovan/setting_table.h>

#include <CoreFoundation/CFArray.h>

namespace tovan {

// One installed service; a value. Copying shares the containers, which are never changed in place.
//
// A key that is absent or holds a value of another type reads as its default. docs/config-file.md has the table, and
// settings() gives it to programs.
class TOVAN_EXPORT CServiceCacheEntry {
 public:
  // The level at which a service logs when nothing else is said.
  static constexpr std::int32_t kDefaultLogLevel = 3;

  CServiceCacheEntry();
  // The dictionary may be null: then only the name is set.
  CServiceCacheEntry(CFStringRef name, CFDictionaryRef dictionary);
  CServiceCacheEntry(const CServiceCacheEntry&);
  CServiceCacheEntry& operator=(const CServiceCacheEntry&);
  ~CServiceCacheEntry();

  // Sets every field but the name. A null dictionary reads as an empty one.
  void fromDict(CFDictionaryRef dictionary);
  // A new dictionary.
  plinth::CSharedCFRef<CFMutableDictionaryRef> toDict() const;

  // How many instances a stored count stands for: itself when it is not negative; -n is one per n processors, at
  // least 1.
  static std::int32_t ConvertToRealInstanceCount(std::int32_t count);

  // The plain settings.
  bool sharePref = false;
  std::int64_t version = 0;
  bool perUserService = false;
  std::int32_t userID = -1;
  std::int32_t instances = 0;  // a real count: fromDict converts
  bool enabled = false;
  bool explicitSyncOnly = false;
  bool detachDaemon = false;
  bool localAds = false;
  bool logging = false;
  bool visible = false;
  std::int32_t advertising = 0;

  // Strings and containers; null when unset. The results belong to the entry.
  CFStringRef name() const noexcept { return name_.get(); }
  CFStringRef networkName() const noexcept { return networkName_.get(); }
  CFStringRef displayName() const noexcept { return displayName_.get(); }
  CFStringRef description() const noexcept { return description_.get(); }
  CFStringRef executable() const noexcept { return executable_.get(); }
  CFStringRef path() const noexcept { return path_.get(); }
  CFStringRef bundlePath() const noexcept { return bundlePath_.get(); }
  CFStringRef captureKey() const noexcept { return captureKey_.get(); }
  CFDictionaryRef userPrefs() const noexcept { return userPrefs_.get(); }
  CFArrayRef userIDs() const noexcept { return userIDs_.get(); }
  CFStringRef stdoutPath() const noexcept { return stdoutPath_.get(); }
  CFStringRef launchHint() const noexcept { return launchHint_.get(); }

  // Null clears. The objects are retained as they are.
  void setNetworkName(CFStringRef networkName);
  void setDisplayName(CFStringRef displayName);
  void setDescription(CFStringRef description);
  void setExecutable(CFStringRef executable);
  void setPath(CFStringRef path);
  void setBundlePath(CFStringRef bundlePath);
  void setCaptureKey(CFStringRef captureKey);
  void setUserIDs(CFArrayRef userIDs);
  void setUserPrefs(CFDictionaryRef userPrefs);
  void setStdoutPath(CFStringRef stdoutPath);
  void setLaunchHint(CFStringRef launchHint);

  // The log level and the truncation of the log have a value of the entry and, over it, one of the user's preferences
  // ("UserPrefs"). `inUserPrefs` says which is meant. The getters set `found`; without an override they give
  // kDefaultLogLevel and false. A level of 3 over an entry's level of 3 drops the override, as does true over true.
  void setLogLevel(std::int32_t level, bool inUserPrefs);
  std::int32_t logLevel(bool inUserPrefs, bool& found) const;
  void setTruncateLog(bool value, bool inUserPrefs);
  bool truncateLog(bool inUserPrefs, bool& found) const;

  // Brings the executable's path and the bundle's path to where the frameworks lie now: each that lies in the cluster's
  // or the application's framework is re-rooted there, as a plain path even when a file URL was stored. A path outside
  // the frameworks, or of a framework that cannot be found, stays.
  void updateRuntimeServicePath();

  // The settings, by key; "StdoutPath" is the one inside "UserPrefs". A copy is empty when the setting is null or there
  // is none of that key.
  static SettingList settings() noexcept;
  plinth::CSharedCFRef<CFTypeRef> copySetting(CFStringRef key) const;
  // Null puts a setting back to its default. Throws plinth::CParamException, naming the key and what is wrong, for an
  // unknown key, a value of another type and a number that is no integer of the setting's size. A negative number of
  // "Instances" is converted, as on reading.
  void setSetting(CFStringRef key, CFTypeRef value);

 private:
  struct Table;
  plinth::CSharedCFRef<CFStringRef> name_;
  plinth::CSharedCFRef<CFStringRef> networkName_;
  plinth::CSharedCFRef<CFStringRef> displayName_;
  plinth::CSharedCFRef<CFStringRef> description_;
  plinth::CSharedCFRef<CFStringRef> executable_;
  plinth::CSharedCFRef<CFStringRef> path_;
  plinth::CSharedCFRef<CFStringRef> bundlePath_;
  plinth::CSharedCFRef<CFStringRef> captureKey_;
  plinth::CSharedCFRef<CFDictionaryRef> userPrefs_;
  plinth::CSharedCFRef<CFArrayRef> userIDs_;
  plinth::CSharedCFRef<CFStringRef> stdoutPath_;
  std::int32_t logLevel_ = kDefaultLogLevel;
  bool truncateLog_ = false;
  plinth::CSharedCFRef<CFStringRef> launchHint_;
};

extern template class CPropertyListFile<CServiceCacheEntry>;

class TOVAN_EXPORT CServiceCacheFile : public CPropertyListFile<CServiceCacheEntry> {
 public:
  // Reads the shared configuration file, kServiceCacheFilePath.
  CServiceCacheFile();
  // Reads the file at a path; a leading "~/" is expanded.
  explicit CServiceCacheFile(CFStringRef path);
  ~CServiceCacheFile() override;

  // Reads the file; without the section the entries stay as they are. True; a failure throws.
  bool refresh();
  // Writes the entries; all other sections of the file stay as they are there. While the lock is held they do not: see
  // the head of property_list_basic_file.h.
  void flush() const;

  // CServiceCacheEntry::updateRuntimeServicePath() of every entry.
  void updateRuntimeServicePaths();
};

}  // namespace tovan
