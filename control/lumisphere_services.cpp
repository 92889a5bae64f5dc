#include "control/lumisphere_services.h"

#include <tovan/framework_location.h>

#include <CoreFoundation/CFString.h>

namespace tovan {

using plinth::CSharedCFRef;

CSharedCFRef<CFArrayRef> lumisphereServices() {
  CFStringRef jobController = nullptr;
  CFStringRef transcoder = nullptr;
  getLumisphereServiceBundleIDs(&jobController, &transcoder);
  const CSharedCFRef<CFStringRef> first(jobController);
  const CSharedCFRef<CFStringRef> second(transcoder);
  if (!first || !second) return nullptr;
  const void* names[] = {first.get(), second.get()};
  return CFArrayCreate(kCFAllocatorDefault, names, 2, &kCFTypeArrayCallBacks);
}

}  // namespace tovan
