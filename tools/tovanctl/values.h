// values.h: property-list values to and from what people and machines read.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <plinth/shared_cf_ref.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tovanctl {

using Json = nlohmann::ordered_json;

// UTF-8 text of a string; the empty string for null.
std::string text(CFStringRef string);
// A string from UTF-8; never null for valid UTF-8, CommandError(kUsage) otherwise.
plinth::CSharedCFRef<CFStringRef> string(const std::string& utf8);

plinth::CSharedCFRef<CFArrayRef> arrayOfStrings(const std::vector<std::string>& strings);

// Any property-list value, the kinds kept apart: a real number has a point or an exponent, or is {"real": "nan"}, "inf"
// or "-inf"; data becomes {"data": base64}, a date {"date": "2026-11-20T18:00:00Z"}; null becomes null.
Json json(CFTypeRef value);
// The same back: the dictionary that a JSON object stands for. CommandError(kUsage) for what is no object, for null,
// which no property list holds, for an integer beyond 64 bits with its sign, for more than 512 levels, and for an
// object inside whose only member is a string called "data", "date" or "real" and not of the form above.
plinth::CSharedCFRef<CFDictionaryRef> propertyList(const Json& object);
// One line for a table: text as it is, booleans yes/no, containers as compact JSON, null as "-".
std::string cell(CFTypeRef value);

}  // namespace tovanctl
