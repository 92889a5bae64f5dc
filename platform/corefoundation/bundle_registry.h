// bundle_registry.h: the bundles that this process knows.
//
// The registry holds a reference to each. A bundle that a Get function has given out stays for good, even when a newer
// picture of its directory takes its place, since its users hold no reference. Safe from any thread; no function calls
// out to code that could come back here.
#pragma once

#include <CoreFoundation/CFBundle.h>

#include <string>
#include <string_view>

namespace cf {

// The bundle of a directory, made unless there is one that is still up to date. The caller owns the reference.
CFBundleRef registeredBundle(const std::string& path);

// These give no reference.
CFBundleRef mainBundle();
CFBundleRef bundleWithIdentifier(std::string_view identifier);
CFArrayRef allBundles();

}  // namespace cf
