// string_mutable.h: the buffer of mutable strings.
#pragma once

#include <string_view>

#include "platform/corefoundation/string.h"

namespace cf {

// A new empty mutable string. The caller owns it.
CFMutableStringRef createMutableString();
// Puts `text` (trusted bytes, which may be the string's own) in the place of a clipped range.
void replaceRange(CFMutableStringRef string, CFRange clippedRange, std::string_view text);
void replaceAll(CFMutableStringRef string, std::string_view text);
void append(CFMutableStringRef string, std::string_view text);
void freeBuffer(CFMutableStringRef string) noexcept;

}  // namespace cf
