// tovan_config_file.h: CTovanConfigFile, the settings of the cluster daemon on this host.
//
// The settings are the section "mervaneconfig" of the shared configuration file. Each is a public data member, which
// its owner changes directly and flush() writes. Most are written only when they differ from their default, so that a
// later change of a default reaches every file that never set it; docs/config-file.md has the table, and settings()
// gives it to programs. A key that holds a value of the wrong type reads as its default.
//
// Failures are those of the base class. Threads: one object belongs to one thread at a time.
#pragma once

#include <tovan/property_list_basic_file.h>
#include <tovan/setting_table.h>

namespace tovan {

class TOVAN_EXPORT CTovanConfigFile : public CPropertyListBasicFile {
 public:
  // "allinterfaces": the value of NetworkConnection that stands for every network interface.
  static const CFStringRef sAllInterfacesValue;

  // How this host advertises itself.
  enum Advertising : std::int32_t { kAdvertisingDN = 1, kAdvertisingMC = 2, kAdvertisingRV = 3 };

  // Reads the shared configuration file, kTovanConfigFilePath.
  CTovanConfigFile();
  // Reads the file at a path; a leading "~/" is expanded.
  explicit CTovanConfigFile(CFStringRef path);
  ~CTovanConfigFile() override;

  plinth::CSharedCFRef<CFStringRef> stdoutPath;
  plinth::CSharedCFRef<CFStringRef> stdoutServicePath;
  bool daemonEnabled = true;
  std::int32_t daemonPort = 0;
  bool launchContentAgent = true;
  bool sharingEnabled = false;
  std::int32_t sharingType = 0;
  bool logToFile = false;
  bool requirePassword = false;
  plinth::CSharedCFRef<CFStringRef> serverPassword;
  plinth::CSharedCFRef<CFStringRef> serverName;
  std::int32_t advertising = kAdvertisingRV;
  plinth::CSharedCFRef<CFStringRef> networkConnection;
  bool allowVistrelAds = true;
  bool allowRemoteAds = true;
  plinth::CSharedCFRef<CFStringRef> dnsDomain;
  bool useDNSDomain = false;
  bool usePortRange = false;
  std::int32_t portRangeStart = 0;
  std::int32_t portRangePorts = 0;

  // Puts the members back to where a load begins: the port 0, the strings null, but for the two standard-output paths,
  // which stay.
  void initRefresh();
  // initRefresh(), then the file. True; a failure throws, with the members at their initial values.
  bool refresh();
  // Loads a section, which becomes the document in memory. Only keys that are present change their member; then a port
  // of 0 becomes kTovanDaemonPortNumber, an unset or empty server name the computer's name, and the other unset strings
  // their defaults. Throws (4) for null.
  void fromPropertyList(CFDictionaryRef section);
  // A new section.
  plinth::CSharedCFRef<CFDictionaryRef> toPropertyList() const;
  // Writes the section into the file; all other sections stay as they are there. While the lock is held they do not:
  // see the head of property_list_basic_file.h.
  void flush() const;

  // The settings, by key. A copy is empty when the setting is null or there is none of that key.
  static SettingList settings() noexcept;
  plinth::CSharedCFRef<CFTypeRef> copySetting(CFStringRef key) const;
  // Null puts a setting back to its default. Throws plinth::CParamException, naming the key and what is wrong, for an
  // unknown key, a value of another type, a number that is no 32-bit integer and a name that an enumeration lacks.
  void setSetting(CFStringRef key, CFTypeRef value);

 private:
  struct Table;
  void applyFallbacks();
};

}  // namespace tovan
