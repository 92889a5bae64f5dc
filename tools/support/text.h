// text.h: text of property-list strings.
#pragma once

#include <CoreFoundation/CFString.h>
#include <plinth/shared_cf_ref.h>

#include <cstddef>
#include <string>

namespace tools {

// UTF-8, with "?" for half a surrogate pair; the empty string for null.
inline std::string textOf(CFStringRef string) {
  if (string == nullptr) return {};
  const CFIndex length = CFStringGetLength(string);
  const CFIndex room = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8);
  std::string out(static_cast<std::size_t>(room), '\0');
  CFIndex used = 0;
  CFStringGetBytes(string, CFRangeMake(0, length), kCFStringEncodingUTF8, '?', false,
                   reinterpret_cast<UInt8*>(out.data()), room, &used);
  out.resize(static_cast<std::size_t>(used));
  return out;
}

// Null for bytes that are not UTF-8.
inline plinth::CSharedCFRef<CFStringRef> stringOf(const std::string& utf8) {
  return plinth::CSharedCFRef<CFStringRef>(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                              static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

}  // namespace tools
