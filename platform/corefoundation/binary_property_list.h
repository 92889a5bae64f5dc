// binary_property_list.h: binary property lists ("bplist00"), read and written through libplist.
//
// libplist is handed only lists that checkBinaryList has found sound, and whose size as a tree is bounded: the format
// lets objects be shared, and libplist copies them for each use.
#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <cstdint>
#include <span>

namespace cf {

bool isBinaryList(std::span<const std::uint8_t> bytes);

// The list in the bytes, immutable; the caller owns it. Throws ListFailure, naming the object and its place in bytes.
CFPropertyListRef readBinaryList(std::span<const std::uint8_t> bytes);

// The list in the binary format; the caller owns the bytes. Throws ListFailure, as the XML writer does.
CFDataRef writeBinaryList(CFPropertyListRef list);

// Throws ListFailure unless the bytes are a binary list of property-list kinds with string keys, within the depth, as
// a tree not much larger than the file, and without what libplist cannot hand over: a NUL inside a string, and
// integers that need more than 64 bits.
void checkBinaryList(std::span<const std::uint8_t> bytes);

}  // namespace cf
