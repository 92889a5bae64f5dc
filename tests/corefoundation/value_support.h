// value_support.h: short words for values in tests.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace values {

// One reference, given back with the scope.
template <class Ref>
class Held {
 public:
  Held() = default;
  Held(Ref taken) : object_(taken) {}
  Held(Held&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Held& operator=(Held&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Held() { CFRelease(object_); }
  operator Ref() const { return object_; }
  Ref get() const { return object_; }

 private:
  Ref object_ = nullptr;
};

// A string that is counted, unlike a CFSTR constant.
inline Held<CFStringRef> string(std::string_view text) {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                 static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false);
}

inline std::string textOf(CFStringRef string) {
  if (string == nullptr) return "(null)";
  std::string text(static_cast<std::size_t>(CFStringGetLength(string)) * 3 + 1, '\0');
  if (!CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8)) return "?";
  return text.c_str();
}
inline std::string textOfOwned(CFStringRef owned) { return textOf(Held<CFStringRef>(owned)); }
inline std::string descriptionOf(CFTypeRef object) { return textOfOwned(CFCopyDescription(object)); }

inline Held<CFNumberRef> integer(int value) { return CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value); }
inline Held<CFNumberRef> longInteger(long long value) {
  return CFNumberCreate(kCFAllocatorDefault, kCFNumberLongLongType, &value);
}
inline Held<CFNumberRef> real(double value) { return CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &value); }

inline CFRange all(CFArrayRef array) { return CFRangeMake(0, CFArrayGetCount(array)); }

}  // namespace values
