// runtime_path.h: finds a stored path again when the frameworks have moved.
#pragma once

#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

namespace tovan {

// A path inside "Mervane.framework" or "Lumisphere.framework", re-rooted at where that framework lies now: everything
// in front of the first "/Mervane.framework/" (or, when the path has none, the first "/Lumisphere.framework/") gives
// way to the parent of the framework's URL. The caller owns the result. Null when the path is null or holds neither
// name, or when the URL of the framework it names is null.
CFStringRef getRuntimePath(CFStringRef path, CFURLRef mervaneURL, CFURLRef lumisphereURL);

}  // namespace tovan
