#include <tovan/framework_location.h>

#include <tovan/file_util.h>

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFBundle.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

using plinth::CSharedCFRef;

namespace {

using URL = CSharedCFRef<CFURLRef>;
using Path = UInt8[PATH_MAX];

// False when the URL has no path or one that is too long for a file system.
bool readPath(const URL& url, Path& path) {
  return url && CFURLGetFileSystemRepresentation(url.get(), true, path, sizeof path);
}

bool exists(const URL& url) {
  Path path;
  return readPath(url, path) && fileExists(reinterpret_cast<const char*>(path));
}

// Without symbolic links and relative parts; null when the item cannot be reached.
URL resolved(const URL& url) {
  Path path;
  if (!readPath(url, path)) return nullptr;
  struct Free {
    void operator()(char* text) const { std::free(text); }
  };
  const std::unique_ptr<char, Free> real(realpath(reinterpret_cast<const char*>(path), nullptr));
  if (real == nullptr) return nullptr;
  return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(real.get()),
                                                 static_cast<CFIndex>(std::strlen(real.get())), true);
}

URL parent(const URL& url) {
  return url ? URL(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, url.get())) : nullptr;
}

URL child(const URL& url, CFStringRef name) {
  return url ? URL(CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, url.get(), name, true)) : nullptr;
}

bool isNamed(const URL& url, CFStringRef name) {
  if (!url) return false;
  const CSharedCFRef<CFStringRef> last = CFURLCopyLastPathComponent(url.get());
  return last && CFEqual(last.get(), name);
}

URL existing(const URL& url) { return exists(url) ? url : nullptr; }

URL mervaneFramework() {
  CFBundleRef library = CFBundleGetBundleWithIdentifier(CFSTR("com.brant.mervane.TovanCore"));
  if (library == nullptr) return nullptr;
  URL candidate = resolved(CFBundleCopyBundleURL(library));
  for (int level = 0; level < 4; ++level) candidate = parent(candidate);
  const bool isPlaced =
      isNamed(parent(candidate), CFSTR("Frameworks")) && isNamed(candidate, CFSTR("Mervane.framework"));
  return isPlaced ? existing(candidate) : nullptr;
}

URL lumisphereFramework() { return existing(child(parent(mervaneFramework()), CFSTR("Lumisphere.framework"))); }

URL serviceBundle(const URL& framework, CFStringRef name) {
  return existing(child(child(framework, CFSTR("Resources")), name));
}

// The caller owns the result.
CFStringRef copyServiceKind(const URL& url) {
  if (!url) return nullptr;
  const CSharedCFRef<CFBundleRef> bundle = CFBundleCreate(kCFAllocatorDefault, url.get());
  return CSharedCFRef<CFStringRef>::retaining(getServiceKindFromBundle(bundle.get())).take();
}

}  // namespace

extern "C" {

CFURLRef getMervaneFrameworkURL() { return mervaneFramework().take(); }

CFURLRef getLumisphereFrameworkURL() { return lumisphereFramework().take(); }

CFStringRef getServiceKindFromBundle(CFBundleRef bundle) {
  if (bundle == nullptr) return nullptr;
  const CFTypeRef kind = CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("MervaneServiceKind"));
  return kind != nullptr && CFGetTypeID(kind) == CFStringGetTypeID() ? static_cast<CFStringRef>(kind) : nullptr;
}

void getLumisphereServiceBundleURLs(CFURLRef* jobController, CFURLRef* transcoder) {
  const URL framework = lumisphereFramework();
  if (jobController != nullptr) {
    *jobController = serviceBundle(framework, CFSTR("LumisphereJobController.bundle")).take();
  }
  if (transcoder != nullptr) {
    *transcoder = serviceBundle(framework, CFSTR("LumisphereTranscoder.bundle")).take();
  }
}

void getLumisphereServiceBundleIDs(CFStringRef* jobController, CFStringRef* transcoder) {
  const URL framework = lumisphereFramework();
  if (jobController != nullptr) {
    *jobController = copyServiceKind(serviceBundle(framework, CFSTR("LumisphereJobController.bundle")));
  }
  if (transcoder != nullptr) {
    *transcoder = copyServiceKind(serviceBundle(framework, CFSTR("LumisphereTranscoder.bundle")));
  }
}

}  // extern "C"
