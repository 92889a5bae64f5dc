// lists.h: property lists in tests, written as the XML that stands between <plist> and </plist>.
#pragma once

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFPropertyList.h>

#include <gtest/gtest.h>

#include <string>

namespace test {

using List = plinth::CSharedCFRef<CFPropertyListRef>;

inline List listFromText(const std::string& text) {
  const plinth::CSharedCFRef<CFDataRef> data(CFDataCreate(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()), static_cast<CFIndex>(text.size())));
  CFStringRef reason = nullptr;
  List result(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, &reason));
  EXPECT_TRUE(result) << plinth::CSTR(reason)->str() << " in " << text;
  if (reason != nullptr) CFRelease(reason);
  return result;
}

inline std::string document(const std::string& body) { return "<plist version=\"1.0\">" + body + "</plist>"; }

inline List list(const std::string& body) { return listFromText(document(body)); }

inline List dict(const std::string& entries) { return list("<dict>" + entries + "</dict>"); }

inline plinth::CSharedCFRef<CFDictionaryRef> asDictionary(const List& object) {
  return plinth::CSharedCFRef<CFDictionaryRef>::retaining(static_cast<CFDictionaryRef>(object.get()));
}

inline std::string xmlOf(CFPropertyListRef object) {
  if (object == nullptr) return "no list";
  const plinth::CSharedCFRef<CFDataRef> data(CFPropertyListCreateXMLData(kCFAllocatorDefault, object));
  if (!data) return "not a list";
  return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
                     static_cast<std::size_t>(CFDataGetLength(data.get())));
}

// Whether an object is the list that stands in the XML.
inline ::testing::AssertionResult isList(const std::string& body, CFPropertyListRef object) {
  const List expected = list(body);
  if (object != nullptr && CFEqual(expected.get(), object)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "expected\n" << xmlOf(expected.get()) << "but saw\n" << xmlOf(object);
}

inline ::testing::AssertionResult isDict(const std::string& entries, CFPropertyListRef object) {
  return isList("<dict>" + entries + "</dict>", object);
}

}  // namespace test
