// url_support.h: short words for URLs in tests.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace test {

struct ReleaseObject {
  void operator()(const void* object) const { CFRelease(object); }
};
// One reference, given back with the scope.
template <class Ref>
using Held = std::unique_ptr<std::remove_pointer_t<Ref>, ReleaseObject>;

inline Held<CFStringRef> string(std::string_view text) {
  return Held<CFStringRef>(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                                   static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

// The text of a string, or "(null)". Takes no reference.
inline std::string textOf(CFStringRef string) {
  if (string == nullptr) return "(null)";
  const CFRange all = CFRangeMake(0, CFStringGetLength(string));
  CFIndex size = 0;
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size);
  std::string text(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, reinterpret_cast<UInt8*>(text.data()), size, &size);
  return text;
}
// The same of a string that the caller owns, given back here.
inline std::string textOfOwned(CFStringRef owned) { return textOf(Held<CFStringRef>(owned).get()); }

inline Held<CFURLRef> url(std::string_view text, CFURLRef base = nullptr) {
  return Held<CFURLRef>(CFURLCreateWithString(kCFAllocatorDefault, string(text).get(), base));
}
inline Held<CFURLRef> fileURL(std::string_view path, bool isDirectory, CFURLRef base = nullptr) {
  return Held<CFURLRef>(CFURLCreateFromFileSystemRepresentationRelativeToBase(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), isDirectory,
      base));
}
// "(null)" for no URL.
inline std::string textOf(CFURLRef url) { return textOf(url != nullptr ? CFURLGetString(url) : nullptr); }
inline std::string textOfOwned(CFURLRef owned) { return textOf(Held<CFURLRef>(owned).get()); }
inline std::string pathOf(CFURLRef url) { return textOfOwned(CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle)); }
// The path of a URL that the caller owns, given back here; "(null)" for no URL.
inline std::string pathOfOwned(CFURLRef owned) {
  const Held<CFURLRef> held(owned);
  return held ? pathOf(held.get()) : "(null)";
}

}  // namespace test
