// service_config_file.h: CServiceConfigFile, the configuration of each instance of one service.
//
// The shared configuration file holds them under "serviceconfig" and the service's name, in order: entry 0 is instance
// 0, and also carries the switches of the whole service in its configuration value.
//
// Failures are those of the base class. Threads: one object belongs to one thread at a time.
#pragma once

#include <tovan/property_list_file.h>
#include <tovan/setting_table.h>

namespace tovan {

// One instance's configuration; a value. Every field is null when unset. Values are kept as they were found: a key that
// is no string survives a read and a write, and its getter gives null.
class TOVAN_EXPORT CServiceConfigEntry {
 public:
  CServiceConfigEntry();
  // The dictionary may be null: then only the name is set.
  CServiceConfigEntry(CFStringRef name, CFDictionaryRef dictionary);
  CServiceConfigEntry(const CServiceConfigEntry&);
  CServiceConfigEntry& operator=(const CServiceConfigEntry&);
  ~CServiceConfigEntry();

  // A missing key sets its field to null. The name stays. A null dictionary reads as an empty one.
  void fromDict(CFDictionaryRef dictionary);
  // A new dictionary of the fields that are not null.
  plinth::CSharedCFRef<CFMutableDictionaryRef> toDict() const;

  // The results belong to the entry.
  CFStringRef name() const noexcept { return name_.get(); }
  CFStringRef accessKey() const noexcept;
  CFStringRef captureKey() const noexcept;
  CFStringRef capturePermKey() const noexcept;
  // Any property-list value, by convention a dictionary.
  CFTypeRef config() const noexcept { return config_.get(); }

  // Null clears.
  void setAccessKey(CFStringRef key);
  void setCaptureKey(CFStringRef key);
  void setCapturePermKey(CFStringRef key);
  void setConfig(CFTypeRef config);

  // The settings as a table.
  static SettingList settings() noexcept;

 private:
  struct Table;
  plinth::CSharedCFRef<CFStringRef> name_;
  plinth::CSharedCFRef<CFTypeRef> accessKey_;
  plinth::CSharedCFRef<CFTypeRef> captureKey_;
  plinth::CSharedCFRef<CFTypeRef> capturePermKey_;
  plinth::CSharedCFRef<CFTypeRef> config_;
};

extern template class CPropertyListFile<CServiceConfigEntry>;

class TOVAN_EXPORT CServiceConfigFile : public CPropertyListFile<CServiceConfigEntry> {
 public:
  // Reads the shared configuration file, kServiceConfigFilePath. The name is a service kind or a service's network
  // name.
  explicit CServiceConfigFile(CFStringRef serviceName);
  // Reads the file at a path; a leading "~/" is expanded.
  CServiceConfigFile(CFStringRef serviceName, CFStringRef path);
  ~CServiceConfigFile() override;

  // Belongs to this object.
  CFStringRef serviceName() const noexcept { return serviceName_.get(); }

  // Reads the file. Where it holds nothing about the service, the entries stay as they are. True; a failure throws.
  bool refresh();
  // Writes the entries; all other services and all other sections of the file stay as they are there. While the lock is
  // held they do not: see the head of property_list_basic_file.h.
  void flush() const;

 private:
  plinth::CSharedCFRef<CFStringRef> serviceName_;
};

}  // namespace tovan
