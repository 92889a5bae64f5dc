#include "foundation/runtime_path.h"

#include <plinth/shared_cf_ref.h>

namespace tovan {

using plinth::CSharedCFRef;

namespace {

// The part of the path that begins with the framework's name; null when the name does not occur.
CSharedCFRef<CFStringRef> partFromFramework(CFStringRef path, CFStringRef nameInSlashes) {
  const CFRange found = CFStringFind(path, nameInSlashes, 0);
  if (found.location == kCFNotFound) return nullptr;
  const CFIndex start = found.location + 1;
  return CFStringCreateWithSubstring(kCFAllocatorDefault, path, CFRangeMake(start, CFStringGetLength(path) - start));
}

}  // namespace

CFStringRef getRuntimePath(CFStringRef path, CFURLRef mervaneURL, CFURLRef lumisphereURL) {
  if (path == nullptr) return nullptr;
  CFURLRef base = mervaneURL;
  CSharedCFRef<CFStringRef> part = partFromFramework(path, CFSTR("/Mervane.framework/"));
  if (part.isNull()) {
    base = lumisphereURL;
    part = partFromFramework(path, CFSTR("/Lumisphere.framework/"));
  }
  if (part.isNull() || base == nullptr) return nullptr;
  const CSharedCFRef<CFURLRef> parent = CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, base);
  if (parent.isNull()) return nullptr;
  const CSharedCFRef<CFURLRef> moved =
      CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, parent.get(), part.get(), false);
  if (moved.isNull()) return nullptr;
  return CSharedCFRef<CFStringRef>(CFURLCopyFileSystemPath(moved.get(), kCFURLPOSIXPathStyle)).take();
}

}  // namespace tovan
