// array.h: direct access to arrays for the rest of this folder.
#pragma once

#include <CoreFoundation/CFArray.h>

#include <span>

namespace cf {

// An array of objects that takes over the caller's reference to each of them; none may be null. The caller owns the
// array. Should memory run out, the exception leaves the references with the caller.
CFArrayRef createArrayTaking(std::span<const void* const> objects);
// The same, as an array that can change.
CFMutableArrayRef createMutableArrayTaking(std::span<const void* const> objects);

// The values, not retained; good until the array changes or goes. Null gives an empty span.
std::span<const void* const> items(CFArrayRef array);

// Whether the array can change.
bool isMutable(CFArrayRef array);

}  // namespace cf
