#include <tovan/service_installation.h>

#include "control/bundle_entry.h"
#include "control/file_change.h"
#include "control/launch_agent.h"

#include <tovan/service_cache_file.h>
#include <tovan/service_util.h>

#include <optional>

using tovan::CServiceCacheEntry;
using tovan::CServiceCacheFile;
using tovan::CServiceUtil;

namespace {

// Whether the entry is to take the place of the one that is installed. It takes over that one's number of instances
// either way, which is the user's.
bool replacesInstalled(const CServiceCacheFile& file, CServiceCacheEntry& entry) {
  CServiceCacheEntry old;
  if (!file.get(entry.name(), old)) return true;
  if (old.instances > 0) entry.instances = old.instances;
  return old.version < entry.version || old.path() == nullptr || !CFEqual(old.path(), entry.path());
}

// Whether the entry was written. Looks before it locks, since locking creates the file and needs leave to write it.
bool store(CServiceCacheFile& file, CServiceCacheEntry& entry) {
  if (!replacesInstalled(file, entry)) return false;
  tovan::beginChange(file);
  const bool stored = replacesInstalled(file, entry);
  if (stored) {
    file.put(entry);
    file.flush();
  }
  file.unlock();
  return stored;
}

void writeJobDescriptions(const CServiceCacheEntry& entry) {
  const std::int32_t count = CServiceCacheEntry::ConvertToRealInstanceCount(entry.instances);
  for (std::int32_t i = 0; i < count; ++i) tovan::writeJobDescription(entry, static_cast<unsigned int>(i));
}

bool setEnabled(CFStringRef name, bool enabled) {
  CServiceCacheFile file;
  CServiceCacheEntry entry;
  if (name == nullptr || !file.get(name, entry)) return false;
  tovan::beginChange(file);
  if (!file.get(name, entry)) return false;
  entry.enabled = enabled;
  file.put(entry);
  file.flush();
  return true;
}

}  // namespace

bool installService(CFURLRef bundleURL) { return installServiceWithName(nullptr, bundleURL); }

bool installServiceWithName(CFStringRef name, CFURLRef bundleURL) {
  CServiceCacheFile file;
  std::optional<CServiceCacheEntry> entry = tovan::entryFromBundle(name, bundleURL);
  if (!entry) return false;
  const bool stored = store(file, *entry);
  if (CServiceUtil::launchFlagForService(*entry) == CServiceUtil::kLaunchedByLaunchd) writeJobDescriptions(*entry);
  return stored;
}

bool removeServiceByPath(CFURLRef bundleURL) {
  const auto kind = tovan::serviceKindOfBundle(bundleURL);
  return kind && removeService(kind.get());
}

bool removeService(CFStringRef name) {
  CServiceCacheFile file;
  CServiceCacheEntry entry;
  if (name == nullptr || !file.get(name, entry)) return false;
  tovan::beginChange(file);
  if (!file.remove(name)) return false;
  file.flush();
  return true;
}

bool serviceInstalled(CFStringRef name) {
  const CServiceCacheFile file;
  CServiceCacheEntry entry;
  return name != nullptr && file.get(name, entry);
}

bool enableService(CFStringRef name) { return setEnabled(name, true); }

bool disableService(CFStringRef name) { return setEnabled(name, false); }

bool resetServiceEntry(CFStringRef name) { return setEnabled(name, false); }

bool serviceEnabled(CFStringRef name) {
  const CServiceCacheFile file;
  CServiceCacheEntry entry;
  return name != nullptr && file.get(name, entry) && entry.enabled;
}
