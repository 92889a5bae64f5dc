// bundle_entry.h: what a service bundle says about its service.
#pragma once

#include <tovan/service_cache_file.h>

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

#include <optional>

namespace tovan {

// The kind of a bundle's service; an empty holder when the URL leads to no bundle or the bundle declares none.
plinth::CSharedCFRef<CFStringRef> serviceKindOfBundle(CFURLRef bundleURL);

// The cache entry of a bundle's service, under the name or, without one, under its kind, with the paths of the bundle
// and of its executable as they are now. Nothing when the bundle lacks its kind, its description
// ("MervaneServiceConfig", a dictionary) or its executable.
std::optional<CServiceCacheEntry> entryFromBundle(CFStringRef name, CFURLRef bundleURL);

}  // namespace tovan
