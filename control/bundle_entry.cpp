#include "control/bundle_entry.h"

#include <tovan/cf_util.h>
#include <tovan/framework_location.h>

#include <CoreFoundation/CFBundle.h>
#include <CoreFoundation/CFDictionary.h>

namespace tovan {

using plinth::CSharedCFRef;

namespace {

CSharedCFRef<CFBundleRef> bundleAt(CFURLRef url) {
  return url != nullptr ? CFBundleCreate(kCFAllocatorDefault, url) : nullptr;
}

// The service's description, or null; the bundle owns it.
CFDictionaryRef descriptionIn(CFBundleRef bundle) {
  CFTypeRef description = nullptr;
  CFUtil::CFDictGet(CFBundleGetInfoDictionary(bundle), CFSTR("MervaneServiceConfig"), description);
  const bool isDictionary = description != nullptr && CFGetTypeID(description) == CFDictionaryGetTypeID();
  return isDictionary ? static_cast<CFDictionaryRef>(description) : nullptr;
}

CSharedCFRef<CFStringRef> absolutePath(const CSharedCFRef<CFURLRef>& url) {
  if (!url) return nullptr;
  const CSharedCFRef<CFURLRef> absolute(CFURLCopyAbsoluteURL(url.get()));
  return absolute ? CFURLCopyFileSystemPath(absolute.get(), kCFURLPOSIXPathStyle) : nullptr;
}

// The auxiliary executable of that name, or the main one when there is no name.
CSharedCFRef<CFURLRef> executableIn(CFBundleRef bundle, CFStringRef name) {
  if (name == nullptr || CFStringGetLength(name) == 0) return CFBundleCopyExecutableURL(bundle);
  return CFBundleCopyAuxiliaryExecutableURL(bundle, name);
}

}  // namespace

CSharedCFRef<CFStringRef> serviceKindOfBundle(CFURLRef bundleURL) {
  const auto bundle = bundleAt(bundleURL);
  return CSharedCFRef<CFStringRef>::retaining(getServiceKindFromBundle(bundle.get()));
}

std::optional<CServiceCacheEntry> entryFromBundle(CFStringRef name, CFURLRef bundleURL) {
  const auto bundle = bundleAt(bundleURL);
  const CFStringRef kind = getServiceKindFromBundle(bundle.get());
  if (kind == nullptr) return std::nullopt;
  const CFDictionaryRef description = descriptionIn(bundle.get());
  if (description == nullptr) return std::nullopt;
  CServiceCacheEntry entry(name != nullptr ? name : kind, description);
  const auto executable = absolutePath(executableIn(bundle.get(), entry.executable()));
  const auto bundlePath = absolutePath(CFBundleCopyBundleURL(bundle.get()));
  if (!executable || !bundlePath) return std::nullopt;
  entry.setBundlePath(bundlePath.get());
  entry.setPath(executable.get());
  return entry;
}

}  // namespace tovan
