// lumisphere_services.h: the application's own services.
#pragma once

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFArray.h>

namespace tovan {

// The names of the job controller and the transcoder, in this order; an empty holder unless both bundles are in place.
plinth::CSharedCFRef<CFArrayRef> lumisphereServices();

}  // namespace tovan
