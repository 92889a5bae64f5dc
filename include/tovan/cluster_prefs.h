// cluster_prefs.h: CClusterPrefs, the preferences of one cluster, read from and written to a dictionary.
//
// A value: copying shares the containers, which are not changed through it. Keys that this class does not know survive
// a read and a write. Nothing throws. Threads: one object belongs to one thread at a time.
#pragma once

#include <plinth/shared_cf_ref.h>
#include <tovan/setting_table.h>

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <cstdint>

namespace tovan {

class TOVAN_EXPORT CClusterPrefs {
 public:
  CClusterPrefs();
  CClusterPrefs(const CClusterPrefs&);
  CClusterPrefs& operator=(const CClusterPrefs&);
  ~CClusterPrefs();

  // Sets every field; a key that is absent or of another type gives the field's default. Keeps a copy of the whole
  // dictionary as the base of toDict(). Null reads as an empty dictionary.
  void fromDict(CFDictionaryRef dictionary);
  // A new dictionary: what was kept, with every known key set or, where its rule says so, removed.
  plinth::CSharedCFRef<CFMutableDictionaryRef> toDict() const;

  CFArrayRef cluster() const noexcept { return cluster_.get(); }
  CFStringRef name() const noexcept { return name_.get(); }
  CFStringRef storage() const noexcept { return storage_.get(); }
  // Null clears.
  void setCluster(CFArrayRef cluster);
  void setName(CFStringRef name);
  void setStorage(CFStringRef storage);

  // The settings as a table.
  static SettingList settings() noexcept;

 private:
  struct Table;
  plinth::CSharedCFRef<CFDictionaryRef> kept_;
  plinth::CSharedCFRef<CFArrayRef> cluster_;
  plinth::CSharedCFRef<CFStringRef> name_;
  plinth::CSharedCFRef<CFStringRef> storage_;

 public:
  bool privateStorage = false;
  bool publishedStorage = true;
  std::int64_t storageCleanupThreshold = -1;  // -1: not set
  std::int64_t statusInterval = 5;
  std::int64_t maxActiveTargets = -1;   // -1: no limit
  std::int64_t maxActiveSegments = -1;  // -1: no limit
  bool local = false;
  bool shared = false;
  bool unmanagedServices = false;
  std::int64_t unmanagedMultiCaptureThreshold = 0;
};

}  // namespace tovan
