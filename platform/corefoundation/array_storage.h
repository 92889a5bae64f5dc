// array_storage.h: how an array is laid out, for array.cpp and array_change.cpp.
#pragma once

#include <cstdint>

#include "platform/corefoundation/array.h"
#include "platform/corefoundation/base.h"

// An immutable array's values lie behind the object; a mutable one's in a block of their own. A copy of the callbacks,
// where they are neither the standard ones nor none, comes last in the object's block.
struct CFArrayStorage {
  CFObjectHead head;
  CFObjectHead* nextToDestroy;
  const CFArrayCallBacks* callBacks;
  const void** values;
  CFIndex count;
  CFIndex capacity;  // of a mutable array's block
};

namespace cf {

// The bits of the head's info.
constexpr std::uint32_t kArrayIsMutable = 1;
constexpr std::uint32_t kArrayHoldsObjects = 2;

// Only ever called for an array that is there: the analyzer does not see that a NULL one has no items to ask about.
inline bool holdsObjects(CFArrayRef array) noexcept {
  return (array->head.info & kArrayHoldsObjects) != 0;  // NOLINT(clang-analyzer-core.NullDereference)
}

inline const void* retainValue(CFArrayRef array, const void* value) {
  if (holdsObjects(array)) {
    retain(value);
    return value;
  }
  return array->callBacks->retain != nullptr ? array->callBacks->retain(nullptr, value) : value;
}

inline void releaseValue(CFArrayRef array, const void* value) {
  if (holdsObjects(array)) {
    release(value);
  } else if (array->callBacks->release != nullptr) {
    array->callBacks->release(nullptr, value);
  }
}

// An empty array with room for `room` values behind it.
CFArrayStorage* createArray(CFIndex room, const CFArrayCallBacks* callBacks);
// An empty mutable array.
CFMutableArrayRef createMutableArray(const CFArrayCallBacks* callBacks);
// Makes room for `count` values in a mutable array.
void reserve(CFMutableArrayRef array, CFIndex count);

}  // namespace cf
