// string_testing.h: strings in and out of the string tests.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <plinth/shared_cf_ref.h>

#include <string>
#include <string_view>

namespace strings {

using String = plinth::CSharedCFRef<CFStringRef>;
using MutableString = plinth::CSharedCFRef<CFMutableStringRef>;

// A new string from UTF-8; an empty holder for bytes that are none.
inline String fromUTF8(std::string_view text) {
  return String(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                        static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

inline String fromUnits(std::u16string_view units) {
  return String(CFStringCreateWithCharacters(kCFAllocatorDefault, reinterpret_cast<const UniChar*>(units.data()),
                                             static_cast<CFIndex>(units.size())));
}

inline MutableString mutableFromUTF8(std::string_view text) {
  return MutableString(CFStringCreateMutableCopy(kCFAllocatorDefault, 0, fromUTF8(text).get()));
}

inline CFRange whole(CFStringRef string) { return CFRangeMake(0, CFStringGetLength(string)); }

// What CFStringGetCharacters finds.
inline std::u16string unitsOf(CFStringRef string) {
  std::u16string units(static_cast<std::size_t>(CFStringGetLength(string)), u'\0');
  CFStringGetCharacters(string, whole(string), reinterpret_cast<UniChar*>(units.data()));
  return units;
}

// The bytes in an encoding, lone surrogates as '?'. "<null>" for no string.
inline std::string bytesOf(CFStringRef string, CFStringEncoding encoding, bool external = false) {
  if (string == nullptr) return "<null>";
  CFIndex count = 0;
  CFStringGetBytes(string, whole(string), encoding, '?', external, nullptr, 0, &count);
  std::string bytes(static_cast<std::size_t>(count), '\0');
  CFStringGetBytes(string, whole(string), encoding, '?', external, reinterpret_cast<UInt8*>(bytes.data()), count,
                   &count);
  return bytes;
}

inline std::string utf8(CFStringRef string) { return bytesOf(string, kCFStringEncodingUTF8); }
template <class Holder>
std::string utf8(const Holder& holder) {
  return utf8(static_cast<CFStringRef>(holder.get()));
}

}  // namespace strings
