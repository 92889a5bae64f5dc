#include "tools/tovanctl/install_command.h"

#include <plinth/plinth.h>
#include <tovan/framework_location.h>
#include <tovan/launchctl_plist.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_installation.h>

#include <climits>
#include <cstdlib>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/first_configuration.h"
#include "tools/tovanctl/jobs.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;

std::string pathOf(CFURLRef url) {
  const CSharedCFRef<CFStringRef> path(CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle));
  return text(path.get());
}

// The absolute location of a bundle, its links resolved: what is installed must not depend on where tovanctl was
// called.
CSharedCFRef<CFURLRef> locationOf(const std::string& path) {
  char* const resolved = ::realpath(path.c_str(), nullptr);
  if (resolved == nullptr) throw CommandError(kBadBundle, "there is no bundle at \"" + path + "\"");
  const std::string absolute = resolved;
  std::free(resolved);
  return CSharedCFRef<CFURLRef>(CFURLCreateFromFileSystemRepresentation(
      nullptr, reinterpret_cast<const UInt8*>(absolute.data()), static_cast<CFIndex>(absolute.size()), TRUE));
}

std::vector<CSharedCFRef<CFURLRef>> lumisphereBundles() {
  CFURLRef jobController = nullptr;
  CFURLRef transcoder = nullptr;
  getLumisphereServiceBundleURLs(&jobController, &transcoder);
  std::vector<CSharedCFRef<CFURLRef>> bundles = {CSharedCFRef<CFURLRef>(jobController),
                                                 CSharedCFRef<CFURLRef>(transcoder)};
  if (jobController == nullptr || transcoder == nullptr) {
    throw CommandError(kFailed, "Lumisphere.framework with its service bundles does not lie beside Mervane.framework");
  }
  return bundles;
}

// Why the library refuses a bundle, in the order in which it looks; the kind of a bundle that it would accept.
std::string kindOfUsableBundle(CFURLRef url) {
  const std::string path = pathOf(url);
  const CSharedCFRef<CFBundleRef> bundle(CFBundleCreate(nullptr, url));
  if (!bundle) throw CommandError(kBadBundle, "\"" + path + "\" is no bundle");
  const CFDictionaryRef information = CFBundleGetInfoDictionary(bundle.get());
  if (information == nullptr) {
    throw CommandError(kBadBundle, "the bundle \"" + path + "\" has no readable information dictionary (Info.plist)");
  }
  const CFStringRef kind = getServiceKindFromBundle(bundle.get());
  if (kind == nullptr) {
    throw CommandError(kBadBundle, "the bundle \"" + path + "\" names no service kind (MervaneServiceKind, a string)");
  }
  const CFTypeRef description = CFDictionaryGetValue(information, CFSTR("MervaneServiceConfig"));
  if (description == nullptr || CFGetTypeID(description) != CFDictionaryGetTypeID()) {
    throw CommandError(kBadBundle,
                       "the bundle \"" + path + "\" has no service description (MervaneServiceConfig, a dictionary)");
  }
  const tovan::CServiceCacheEntry entry(kind, static_cast<CFDictionaryRef>(description));
  const CSharedCFRef<CFURLRef> executable(entry.executable() != nullptr
                                              ? CFBundleCopyAuxiliaryExecutableURL(bundle.get(), entry.executable())
                                              : CFBundleCopyExecutableURL(bundle.get()));
  if (!executable) {
    throw CommandError(kBadBundle, "the bundle \"" + path + "\" has no executable" +
                                       (entry.executable() != nullptr ? " \"" + text(entry.executable()) + "\"" : ""));
  }
  return text(kind);
}

void reportJobs(const tovan::CServiceCacheEntry& entry) {
  if (!startedByLaunchd(entry)) {
    print("  the daemon starts it\n");
    return;
  }
  for (std::int32_t instance = 0; instance < entry.instances; ++instance) {
    const plinth::CStringRef path =
        tovan::CLaunchCtlPList::expandedPListFilePathForService(entry, static_cast<unsigned int>(instance));
    print("  job description: " + path->str() + "\n");
  }
}

void install(CFURLRef url, const std::string& name) {
  const std::string key = name.empty() ? kindOfUsableBundle(url) : (kindOfUsableBundle(url), name);
  const CSharedCFRef<CFStringRef> given = name.empty() ? CSharedCFRef<CFStringRef>() : string(name);
  createMissingConfiguration();
  const bool there = serviceInstalled(string(key).get());
  const bool changed = installServiceWithName(given.get(), url);
  if (!changed && !there) throw CommandError(kFailed, "\"" + pathOf(url) + "\" was not installed");
  print(key + (changed ? (there ? ": installed again, the entry was replaced\n" : ": installed\n")
                       : ": was installed already, the entry stays as it is\n"));
  const tovan::CServiceCacheFile cache;
  reportJobs(serviceOfName(cache, key));
}

}  // namespace

void installBundles(const std::vector<std::string>& paths, const std::string& name) {
  if (!name.empty() && paths.size() != 1) {
    throw CommandError(kUsage, "--name goes with exactly one bundle");
  }
  std::vector<CSharedCFRef<CFURLRef>> bundles;
  bundles.reserve(paths.size());
  for (const std::string& path : paths) bundles.push_back(locationOf(path));
  if (paths.empty()) bundles = lumisphereBundles();
  for (const CSharedCFRef<CFURLRef>& bundle : bundles) install(bundle.get(), name);
}

}  // namespace tovanctl
