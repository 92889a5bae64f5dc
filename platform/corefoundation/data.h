// data.h: direct access to byte buffers for the rest of this folder.
#pragma once

#include <CoreFoundation/CFData.h>

#include <cstdint>
#include <span>

namespace cf {

// Data that takes over `bytes`, a block from malloc (null when length is 0), and frees it with free. The caller owns
// the data; should memory run out, the exception leaves the block with the caller.
CFDataRef createDataTaking(std::uint8_t* bytes, CFIndex length);

// New mutable data of the given length whose bytes are not set yet: the caller fills them at once. The caller owns it.
CFMutableDataRef createDataOfLength(CFIndex length);

// Good until the data changes or goes. Null gives an empty span.
std::span<const std::uint8_t> bytes(CFDataRef data);

// Whether the data can change.
bool isMutable(CFDataRef data);

}  // namespace cf
