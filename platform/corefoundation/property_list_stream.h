// property_list_stream.h: whole lists through streams.
#pragma once

#include <CoreFoundation/CFStream.h>

#include <cstdint>
#include <span>
#include <vector>

namespace cf {

// `length` bytes of the open stream, fewer when it ends before, or all up to its end when length is 0. Throws
// ListFailure with the stream's own error as the cause.
std::vector<std::uint8_t> readWhole(CFReadStreamRef stream, CFIndex length);

// Writes all bytes, continuing short writes, and gives their number. Throws likewise.
CFIndex writeWhole(CFWriteStreamRef stream, std::span<const std::uint8_t> bytes);

}  // namespace cf
