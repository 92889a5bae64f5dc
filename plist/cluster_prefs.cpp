#include <tovan/cluster_prefs.h>

#include <tovan/cf_util.h>

#include "plist/setting_rows.h"

namespace tovan {

using plinth::CSharedCFRef;

struct CClusterPrefs::Table {
  using Row = SettingRow<CClusterPrefs>;
  using Prefs = CClusterPrefs;
  using enum SettingType;
  using enum SettingWritten;

  static constexpr std::array<Row, 13> kRows = {{
      {{{.key = CFSTR("Cluster"), .type = array, .written = whenSet, .description = "The members of the cluster"}},
       &Prefs::cluster_},
      {{{.key = CFSTR("Name"), .type = string, .written = whenSet, .description = "The name of the cluster"}},
       &Prefs::name_},
      {{{.key = CFSTR("Storage"),
         .type = string,
         .written = whenSet,
         .description = "Where the cluster's storage lies"}},
       &Prefs::storage_},
      {{{.key = CFSTR("PrivateStorage"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether the storage belongs to this cluster alone"}},
       &Prefs::privateStorage},
      {{{.key = CFSTR("PublishedStorage"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether the storage is published to the members",
         .defaultNumber = true}},
       &Prefs::publishedStorage},
      {{{.key = CFSTR("StorageCleanupThreshold"),
         .type = int64,
         .written = whenNotDefault,
         .description = "When the storage is cleaned up; -1 for never",
         .defaultNumber = -1}},
       &Prefs::storageCleanupThreshold},
      {{{.key = CFSTR("StatusInterval"),
         .type = int64,
         .written = always,
         .description = "How often the members report their state",
         .defaultNumber = 5}},
       &Prefs::statusInterval},
      {{{.key = CFSTR("MaxActiveTargets"),
         .type = int64,
         .written = whenNotNegative,
         .description = "How many targets may be active at once; -1 for no limit",
         .defaultNumber = -1}},
       &Prefs::maxActiveTargets},
      {{{.key = CFSTR("MaxActiveSegments"),
         .type = int64,
         .written = whenNotNegative,
         .description = "How many segments may be active at once; -1 for no limit",
         .defaultNumber = -1}},
       &Prefs::maxActiveSegments},
      {{{.key = CFSTR("Local"), .type = boolean, .written = always, .description = "Whether this host is a member"}},
       &Prefs::local},
      {{{.key = CFSTR("Shared"),
         .type = boolean,
         .written = always,
         .description = "Whether the cluster is open to other hosts"}},
       &Prefs::shared},
      {{{.key = CFSTR("UnmanagedServices"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether services that no cluster manages may take part"}},
       &Prefs::unmanagedServices},
      {{{.key = CFSTR("UnmanagedMultiCaptureThreshold"),
         .type = int64,
         .written = whenNotDefault,
         .description = "From how many targets on an unmanaged service is captured more than once"}},
       &Prefs::unmanagedMultiCaptureThreshold},
  }};
  static constexpr auto kDescriptions = descriptionsOf(kRows);
};

CClusterPrefs::CClusterPrefs() = default;
CClusterPrefs::CClusterPrefs(const CClusterPrefs&) = default;
CClusterPrefs& CClusterPrefs::operator=(const CClusterPrefs&) = default;
CClusterPrefs::~CClusterPrefs() = default;

void CClusterPrefs::fromDict(CFDictionaryRef dictionary) {
  resetSettings(Table::kRows, *this);
  kept_ = nullptr;
  if (dictionary == nullptr) return;
  kept_ = CSharedCFRef<CFDictionaryRef>(CFDictionaryCreateCopy(kCFAllocatorDefault, dictionary));
  readSettings(Table::kRows, kept_.get(), *this);
}

CSharedCFRef<CFMutableDictionaryRef> CClusterPrefs::toDict() const {
  CSharedCFRef<CFMutableDictionaryRef> dictionary(kept_.isNull() ? CFUtil::CFDictMakeMutable()
                                                                 : CFUtil::CFDictMakeMutableCopy(kept_.get()));
  writeSettings(Table::kRows, *this, dictionary.get());
  return dictionary;
}

void CClusterPrefs::setCluster(CFArrayRef cluster) { cluster_ = CSharedCFRef<CFArrayRef>::retaining(cluster); }
void CClusterPrefs::setName(CFStringRef name) { name_ = CSharedCFRef<CFStringRef>::retaining(name); }
void CClusterPrefs::setStorage(CFStringRef storage) { storage_ = CSharedCFRef<CFStringRef>::retaining(storage); }

SettingList CClusterPrefs::settings() noexcept { return Table::kDescriptions; }

}  // namespace tovan
