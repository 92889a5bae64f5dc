// text.h: text of property-list strings.
#pragma once

#include <CoreFoundation/CFString.h>
#include <plinth/string.h>

#include <string>

namespace tools {

// UTF-8; the empty string for null.
inline std::string textOf(CFStringRef string) {
  const plinth::CStringRef text = plinth::CSTR(string);
  return text ? text->str() : std::string();
}

inline plinth::CSharedCFRef<CFStringRef> stringOf(const std::string& utf8) {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                                 static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false);
}

}  // namespace tools
