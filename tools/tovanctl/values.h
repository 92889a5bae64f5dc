// values.h: property-list values to and from what people and machines read.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <plinth/shared_cf_ref.h>

#include <nlohmann/json.hpp>
#include <string>

namespace tovanctl {

using Json = nlohmann::ordered_json;

// UTF-8 text of a string; the empty string for null.
std::string text(CFStringRef string);
// A string from UTF-8; never null for valid UTF-8, CommandError(kUsage) otherwise.
plinth::CSharedCFRef<CFStringRef> string(const std::string& utf8);

// Any property-list value. Data becomes {"data": base64}, a date {"date": "2026-11-20T18:00:00Z"}; null becomes null.
Json json(CFTypeRef value);
// One line for a table: text as it is, booleans yes/no, containers as compact JSON, null as "-".
std::string cell(CFTypeRef value);

}  // namespace tovanctl
