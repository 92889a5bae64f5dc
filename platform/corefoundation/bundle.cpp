// Bundle objects: making them, their information dictionary and their executables.
#include "platform/corefoundation/bundle.h"

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFPropertyList.h>

#include "platform/corefoundation/bundle_registry.h"
#include "platform/corefoundation/string.h"
#include "platform/corefoundation/url.h"

#include <memory>

constinit const CFStringRef kCFBundleInfoDictionaryVersionKey = CFSTR("CFBundleInfoDictionaryVersion");
constinit const CFStringRef kCFBundleExecutableKey = CFSTR("CFBundleExecutable");
constinit const CFStringRef kCFBundleIdentifierKey = CFSTR("CFBundleIdentifier");
constinit const CFStringRef kCFBundleVersionKey = CFSTR("CFBundleVersion");
constinit const CFStringRef kCFBundleDevelopmentRegionKey = CFSTR("CFBundleDevelopmentRegion");
constinit const CFStringRef kCFBundleNameKey = CFSTR("CFBundleName");

namespace cf {
namespace {

void finalizeBundle(void* object) noexcept {
  const std::unique_ptr<const BundleContent> content(static_cast<CFBundleStorage*>(object)->content);
  std::free(object);
}

CFStringRef copyBundleDescription(const void* object) {
  const BundleContent& content = *static_cast<const CFBundleStorage*>(object)->content;
  const CFStringRef text = createString("CFBundle <" + content.path + ">");
  return text != nullptr ? text : createString("CFBundle <path that is not UTF-8>");
}

CFStringRef stringValue(CFBundleRef bundle, CFStringRef key) {
  const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, key);
  return isString(value) ? static_cast<CFStringRef>(value) : nullptr;
}

// The URL of an executable of that name, or null. A name that is a path names nothing: a bundle's description must not
// lead out of the bundle.
CFURLRef copyExecutable(const BundleContent& content, std::string_view name) {
  if (!isPlainName(name)) return nullptr;
  for (const std::string& folder : content.layout.executableFolders) {
    const std::string path = folder + "/" + std::string(name);
    if (isExecutableFile(path)) return createFileURL(path, false);
  }
  return nullptr;
}

}  // namespace

constinit const CFRuntimeClass kBundleClass = {"CFBundle", finalizeBundle, nullptr, nullptr, copyBundleDescription};

Owned<CFDictionaryRef> readInfoDictionary(const std::string& path, FileStamp& stamp) {
  const auto bytes = readBundleFile(path, &stamp);
  if (!bytes) return {};
  const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes->data()),
                                           static_cast<CFIndex>(bytes->size())));
  Owned<CFPropertyListRef> list(
      CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
  if (!list || CFGetTypeID(list.get()) != CFDictionaryGetTypeID()) return {};
  return Owned<CFDictionaryRef>(static_cast<CFDictionaryRef>(list.take()));
}

CFBundleRef createBundle(const std::string& path, const std::string& program) {
  auto content = std::make_unique<BundleContent>();
  content->path = path;
  content->program = program;
  content->layout = bundleLayout(path);
  content->info = readInfoDictionary(content->layout.infoPath, content->infoStamp);
  content->infoWasSettled = content->infoStamp.isSettled();
  auto* const bundle = create<CFBundleStorage>(kBundleClass, 0, content.get());
  static_cast<void>(content.release());
  return bundle;
}

const BundleContent* bundleContent(CFBundleRef bundle) noexcept {
  return isKind(bundle, kBundleClass) ? bundle->content : nullptr;
}

}  // namespace cf

using namespace cf;

CFTypeID CFBundleGetTypeID(void) { return reinterpret_cast<CFTypeID>(&kBundleClass); }

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef url) {
  const auto path = absoluteFileSystemPath(url);
  return path ? registeredBundle(*path) : nullptr;
}

CFBundleRef CFBundleGetMainBundle(void) { return mainBundle(); }

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef identifier) {
  return isString(identifier) ? bundleWithIdentifier(utf8View(identifier)) : nullptr;
}

CFArrayRef CFBundleGetAllBundles(void) { return allBundles(); }

CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle) {
  const BundleContent* const content = bundleContent(bundle);
  return content != nullptr ? content->info.get() : nullptr;
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key) {
  const CFDictionaryRef info = CFBundleGetInfoDictionary(bundle);
  return info != nullptr && key != nullptr ? CFDictionaryGetValue(info, key) : nullptr;
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle) { return stringValue(bundle, kCFBundleIdentifierKey); }

CFStringRef CFBundleGetDevelopmentRegion(CFBundleRef bundle) {
  return stringValue(bundle, kCFBundleDevelopmentRegionKey);
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) {
  const BundleContent* const content = bundleContent(bundle);
  return content != nullptr ? createFileURL(content->path, true) : nullptr;
}

CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle) {
  const BundleContent* const content = bundleContent(bundle);
  if (content == nullptr) return nullptr;
  if (!content->program.empty()) return createFileURL(content->program, false);
  if (const CFStringRef name = stringValue(bundle, kCFBundleExecutableKey)) {
    return copyExecutable(*content, utf8View(name));
  }
  return copyExecutable(*content, bundleName(content->path));
}

CFURLRef CFBundleCopyAuxiliaryExecutableURL(CFBundleRef bundle, CFStringRef name) {
  const BundleContent* const content = bundleContent(bundle);
  return content != nullptr && isString(name) ? copyExecutable(*content, utf8View(name)) : nullptr;
}
