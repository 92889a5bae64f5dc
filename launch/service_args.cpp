// The command line of a service process, step by step.
#include <tovan/service_util.h>

#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/tovan_config_file.h>

#include <plinth/exception.h>
#include <plinth/string.h>
#include <plinth/url.h>
#include <plinth/uuid_string.h>

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFURL.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace tovan {

using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

bool isEmpty(const CStringRef& text) { return !text || text->getLength() == 0; }

// The entry's path; one that is a file URL is turned into a path.
CStringRef executableOf(const CServiceCacheEntry& entry) {
  CStringRef path = CSTR(entry.path());
  if (path && path->beginsWith(CSTR("file://"))) {
    const CSharedCFRef<CFURLRef> url(CFURLCreateWithString(kCFAllocatorDefault, path->getStringRef(), nullptr));
    path = url ? plinth::makeShared<plinth::CURL>(url.get())->getFileSystemPath() : nullptr;
  }
  if (!path) throw plinth::CNullPointerException("Error: path is null!");
  return path;
}

// The "HostName" of the instance's dictionary in the user preference "HostList"; an empty holder when there is none.
CStringRef hostNameOf(const CServiceCacheEntry& entry, long instance) {
  CFTypeRef list = nullptr;
  CFUtil::CFDictGet(entry.userPrefs(), CFSTR("HostList"), list);
  if (list == nullptr || CFGetTypeID(list) != CFArrayGetTypeID()) return nullptr;
  const auto hosts = static_cast<CFArrayRef>(list);
  if (instance < 0 || instance >= CFArrayGetCount(hosts)) return nullptr;
  const CFTypeRef host = CFArrayGetValueAtIndex(hosts, instance);
  if (CFGetTypeID(host) != CFDictionaryGetTypeID()) return nullptr;
  CFStringRef name = nullptr;
  CFUtil::CFDictGetString(static_cast<CFDictionaryRef>(host), CFSTR("HostName"), name);
  return CSTR(name);
}

// What people read for the instance: the server's name, from the second instance on with a number, and the host.
CStringRef displayNameOf(const CTovanConfigFile& cluster, const CServiceCacheEntry& entry, long instance) {
  CStringRef name = CString::nullToEmptyString(CSTR(cluster.serverName.get()));
  if (instance > 0) {
    name = CString::sprintf("%@ %lu", name->getStringRef(), static_cast<unsigned long>(instance) + 1);
  }
  const CStringRef host = hostNameOf(entry, instance);
  return host ? CString::sprintf("%@ (%@)", name->getStringRef(), host->getStringRef()) : name;
}

struct Identity {
  CStringRef identifier;
  CStringRef captureKey;
};

// Both come from the instance's configuration. Only where that has no capture key does the entry's stand in, for the
// identifier too when that is empty as well; the two then tell the instances apart by a number.
Identity identityOf(const CServiceCacheEntry& entry, const CServiceConfigEntry& config, long instance) {
  Identity identity{CSTR(config.name()), CSTR(config.captureKey())};
  if (isEmpty(identity.captureKey)) {
    identity.captureKey = CSTR(entry.captureKey());
    if (isEmpty(identity.identifier)) {
      identity.identifier = identity.captureKey;
      if (instance > 0 && !isEmpty(identity.identifier)) {
        identity.identifier =
            CString::sprintf("%@-%lu", identity.identifier->getStringRef(), static_cast<unsigned long>(instance) + 1);
        identity.captureKey = identity.identifier;
      }
    }
  }
  if (!identity.identifier) identity.identifier = plinth::makeShared<plinth::CUUIDString>();
  return identity;
}

CStringRef accessKeyOf(const CTovanConfigFile& cluster) {
  return cluster.sharingEnabled && cluster.requirePassword ? CSTR(cluster.serverPassword.get()) : nullptr;
}

// A service that advertises itself locally, the cluster's own excepted, passes keys only when it has one of its own.
bool passesKeys(const CServiceCacheEntry& entry) {
  if (!entry.localAds || CFEqual(entry.name(), TovanCorePrivate::kClusterServiceKind)) return true;
  return !isEmpty(CSTR(entry.captureKey()));
}

const char* advertisingCode(std::int32_t advertising) {
  switch (advertising) {
    case CTovanConfigFile::kAdvertisingDN:
      return "dn";
    case CTovanConfigFile::kAdvertisingMC:
      return "mc";
    default:
      return "rv";
  }
}

class CommandLine {
 public:
  void add(const CStringRef& word) { words_.push_back(word); }
  void addOption(const char* name, bool wanted) {
    if (wanted) add(CSTR(name));
  }
  // Nothing for an empty value.
  void addOption(const char* name, const CStringRef& value) {
    if (isEmpty(value)) return;
    add(CSTR(name));
    add(value);
  }
  std::vector<CStringRef> take() { return std::move(words_); }

 private:
  std::vector<CStringRef> words_;
};

}  // namespace

std::vector<CStringRef> CServiceUtil::buildServiceArgs(const CServiceCacheEntry& entry,
                                                       const CServiceConfigEntry& config, long instance) {
  const CTovanConfigFile cluster;
  CommandLine line;
  line.add(executableOf(entry));
  const CStringRef name = displayNameOf(cluster, entry, instance);
  const auto [identifier, captureKey] = identityOf(entry, config, instance);
  line.addOption("-d", entry.detachDaemon);
  line.addOption("-l", entry.localAds);
  line.addOption("-v", entry.logging || cluster.logToFile);
  if (entry.advertising != 0) line.addOption("-adv", CSTR(advertisingCode(entry.advertising)));
  line.addOption("-idx", CString::fromInt(instance));
  line.addOption("-name", name);
  line.addOption("-id", identifier);
  if (passesKeys(entry)) {
    line.addOption("-ak", accessKeyOf(cluster));
    line.addOption("-ck", captureKey);
  }
  line.addOption("-pu", entry.perUserService);
  return line.take();
}

}  // namespace tovan
