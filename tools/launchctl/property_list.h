// property_list.h: property lists to and from the types of this program: job descriptions, requests, replies and the
// host's state all are property lists.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <plinth/shared_cf_ref.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace launchctl {

using Dictionary = plinth::CSharedCFRef<CFDictionaryRef>;

// UTF-8 text of a string; the empty string for null.
std::string text(CFStringRef string);
// Failure for bytes that are not UTF-8, which no property list can carry.
plinth::CSharedCFRef<CFStringRef> string(const std::string& utf8);

// A list in either format whose root is a dictionary. Failure with line and column, or saying what the root is.
Dictionary parseDictionary(const std::string& bytes);
// The XML form. Failure for what it cannot carry.
std::string xml(CFPropertyListRef list);

// The values of a key; nothing when it is missing or of another type.
std::optional<std::string> stringOf(CFDictionaryRef list, const char* key);
std::optional<std::int64_t> integerOf(CFDictionaryRef list, const char* key);
bool boolOf(CFDictionaryRef list, const char* key);
// Integers and reals.
std::optional<double> numberOf(CFDictionaryRef list, const char* key);
Dictionary dictionaryOf(CFDictionaryRef list, const char* key);
std::vector<std::string> stringsOf(CFDictionaryRef list, const char* key);
std::vector<Dictionary> dictionariesOf(CFDictionaryRef list, const char* key);
std::map<std::string, std::string> textsOf(CFDictionaryRef list, const char* key);

// The keys and values, in the dictionary's order.
std::vector<std::pair<std::string, CFTypeRef>> pairsOf(CFDictionaryRef list);

// A dictionary in the making.
class ListBuilder {
 public:
  ListBuilder();
  ListBuilder& set(const std::string& key, const std::string& value);
  ListBuilder& set(const std::string& key, const char* value) { return set(key, std::string(value)); }
  ListBuilder& set(const std::string& key, std::int64_t value);
  ListBuilder& set(const std::string& key, double value);
  ListBuilder& set(const std::string& key, bool value);
  ListBuilder& set(const std::string& key, const std::vector<std::string>& values);
  ListBuilder& set(const std::string& key, const std::map<std::string, std::string>& values);
  ListBuilder& set(const std::string& key, const std::vector<Dictionary>& values);
  ListBuilder& set(const std::string& key, const Dictionary& value);
  Dictionary list() const { return list_; }

 private:
  ListBuilder& add(const std::string& key, CFTypeRef value);
  plinth::CSharedCFRef<CFMutableDictionaryRef> list_;
};

}  // namespace launchctl
