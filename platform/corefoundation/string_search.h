// string_search.h: where one string occurs in another.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/corefoundation/string.h"

namespace cf {

// The places of `text`, which is not empty, in a clipped range that do not overlap: from its start or, with
// kCFCompareBackwards, from its end; at most `limit` of them. Always in the order of the string.
std::vector<CFRange> occurrences(CFStringRef string, CFRange clippedRange, CFStringRef text,
                                 CFStringCompareFlags options, std::size_t limit);

}  // namespace cf
