#include "tools/mervaned/installed_services.h"

#include <CoreFoundation/CFBundle.h>
#include <CoreFoundation/CFURL.h>
#include <plinth/process_utilities.h>
#include <signal.h>
#include <tovan/framework_location.h>
#include <tovan/service_config_file.h>
#include <tovan/service_pid_file.h>
#include <tovan/service_util.h>

#include <cstdint>

#include "tools/support/text.h"

namespace mervaned {

using plinth::CSharedCFRef;
using tools::stringOf;
using tools::textOf;
using tovan::CServiceCacheEntry;
using tovan::CServiceCacheFile;
using tovan::CServicePIDFile;
using tovan::CServiceUtil;

namespace {

// With the paths as they are where the frameworks lie now.
CServiceCacheEntry located(const CServiceCacheEntry& entry) {
  CServiceCacheEntry current(entry);
  current.updateRuntimeServicePath();
  return current;
}

bool runsProgramOf(const CServiceCacheEntry& entry, std::int32_t pid) {
  const plinth::CStringRef name = plinth::ProcessUtilities::FindProcessNameForProcess(pid);
  const std::string path = textOf(entry.path());
  return name && name->str() == path.substr(path.rfind('/') + 1);
}

}  // namespace

std::vector<CServiceCacheEntry> installedServices() {
  std::vector<CServiceCacheEntry> entries;
  const CServiceCacheFile cache;
  cache.get(entries, 0);
  return entries;
}

std::optional<CServiceCacheEntry> installedService(const std::string& name) {
  const CServiceCacheFile cache;
  CServiceCacheEntry entry;
  if (!cache.get(stringOf(name).get(), entry)) return std::nullopt;
  return entry;
}

bool isDaemonService(const CServiceCacheEntry& entry) {
  return CServiceUtil::launchFlagForService(entry) == CServiceUtil::kLaunchedByDaemon;
}

std::string kindOf(const CServiceCacheEntry& entry) {
  const CServiceCacheEntry current = located(entry);
  if (current.bundlePath() == nullptr) return textOf(entry.name());
  const CSharedCFRef<CFURLRef> url(
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, current.bundlePath(), kCFURLPOSIXPathStyle, true));
  const CSharedCFRef<CFBundleRef> bundle(url ? CFBundleCreate(kCFAllocatorDefault, url.get()) : nullptr);
  const CFStringRef kind = getServiceKindFromBundle(bundle.get());
  return textOf(kind != nullptr ? kind : entry.name());
}

long instanceCount(const CServiceCacheEntry& entry) {
  return CServiceCacheEntry::ConvertToRealInstanceCount(entry.instances);
}

std::vector<std::string> commandLineOf(const CServiceCacheEntry& entry, long instance) {
  const tovan::CServiceConfigFile configurations(entry.name());
  tovan::CServiceConfigEntry configuration;
  configurations.getAtIndex(instance, configuration);
  std::vector<std::string> words;
  for (const plinth::CStringRef& word : CServiceUtil::buildServiceArgs(located(entry), configuration, instance)) {
    words.push_back(word->str());
  }
  return words;
}

int endProcessesOf(const CServiceCacheEntry& entry) {
  const CServiceCacheEntry current = located(entry);
  const CSharedCFRef<CFStringRef> kind = stringOf(kindOf(entry));
  CServicePIDFile file(kind.get());
  std::vector<std::int32_t> pids;
  file.get(pids);
  int count = 0;
  for (const std::int32_t pid : pids) {
    CSharedCFRef<CFStringRef> registeredKind, name, version;
    if (pid <= 0 || !file.processAttributes(pid, registeredKind, name, version) || !registeredKind) continue;
    if (!CFEqual(registeredKind.get(), kind.get()) || !runsProgramOf(current, pid)) continue;
    if (::kill(pid, SIGTERM) == 0) ++count;
  }
  return count;
}

}  // namespace mervaned
