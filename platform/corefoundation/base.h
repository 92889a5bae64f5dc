// base.h: what the containers and the public functions of CFBase.h share.
#pragma once

#include "platform/corefoundation/runtime.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace cf {

// CFEqual and CFHash for the inside of this folder. Null equals only null; hash takes no null.
bool equal(const void* left, const void* right);
CFHashCode hash(const void* object);

// Pairs of objects that nest, still to be compared: a stack on the heap in place of the call stack.
class PendingComparisons {
 public:
  // False when the two differ. True when they are equal, or nest and will be compared later.
  bool add(const void* left, const void* right);
  // Compares all that is pending and what comes up meanwhile.
  bool allAreEqual();

 private:
  std::vector<std::pair<const void*, const void*>> pairs_;
};

// Appends the description of an object as it stands inside a container: strings in double quotes, containers spelled
// out down to a depth of 32, below which "..." stands for them.
void appendDescription(std::string& text, const void* object, int depth);
// The containers' share: appends their content; depth counts from 0.
void appendArrayDescription(std::string& text, const void* array, int depth);
void appendDictionaryDescription(std::string& text, const void* dictionary, int depth);
// The description of a value that is not known to be an object: by the callback, else by its address.
void appendValueDescription(std::string& text, const void* value, CFStringRef (*copyDescription)(const void*));

// A string object with this text, which is made valid UTF-8 by whoever built it. The caller owns it.
CFStringRef createText(const std::string& text);

// Spreads a number's bits over a hash.
inline CFHashCode mixBits(std::uint64_t bits) noexcept {
  bits ^= bits >> 33;
  bits *= 0xff51afd7ed558ccdULL;
  bits ^= bits >> 33;
  bits *= 0xc4ceb9fe1a85ec53ULL;
  bits ^= bits >> 33;
  return bits;
}

// Whether the range lies inside 0..count.
inline bool liesInside(CFRange range, CFIndex count) noexcept {
  return range.location >= 0 && range.length >= 0 && range.location <= count && range.length <= count - range.location;
}

// The callbacks of containers of objects.
const void* retainObject(CFAllocatorRef allocator, const void* object);
void releaseObject(CFAllocatorRef allocator, const void* object);

// The kinds, for isKind.
extern const CFRuntimeClass kArrayClass;
extern const CFRuntimeClass kBooleanClass;
extern const CFRuntimeClass kDataClass;
extern const CFRuntimeClass kDateClass;
extern const CFRuntimeClass kDictionaryClass;
extern const CFRuntimeClass kErrorClass;
extern const CFRuntimeClass kNumberClass;
extern const CFRuntimeClass kTimeZoneClass;

inline CFTypeID typeID(const CFRuntimeClass& kind) noexcept { return reinterpret_cast<CFTypeID>(&kind); }

}  // namespace cf
