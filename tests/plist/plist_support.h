// plist_support.h: making property-list values for a test, and saying what is in them.
#pragma once

#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <tovan/property_list_basic_file.h>

#include <CoreFoundation/CoreFoundation.h>

#include <unistd.h>

#include <map>
#include <string>

#include "tests/support/scratch_home.h"

namespace test {

using plinth::CSharedCFRef;

inline CSharedCFRef<CFStringRef> str(const std::string& text) {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                 static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false);
}

inline std::string utf8(CFStringRef text) { return text == nullptr ? "(null)" : plinth::CSTR(text)->str(); }

inline CSharedCFRef<CFNumberRef> number(std::int64_t value) {
  return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value);
}

inline std::string document(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>" + body + "</dict>\n</plist>\n";
}

inline CSharedCFRef<CFPropertyListRef> parsed(const std::string& text) {
  const CSharedCFRef<CFDataRef> data =
      CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()), static_cast<CFIndex>(text.size()));
  CFErrorRef error = nullptr;
  const CSharedCFRef<CFPropertyListRef> list =
      CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, &error);
  const CSharedCFRef<CFErrorRef> owned(error);
  EXPECT_FALSE(list.isNull()) << "no property list: " << text;
  return list;
}

// A dictionary from the text between <dict> and </dict>.
inline CSharedCFRef<CFDictionaryRef> dict(const std::string& body) {
  return CSharedCFRef<CFDictionaryRef>::retaining(static_cast<CFDictionaryRef>(parsed(document(body)).get()));
}

// A short text of a value, dictionaries in the order of their keys: {a: 1, b: [true, "x"]}.
inline std::string describe(CFTypeRef value) {
  if (value == nullptr) return "null";
  const CFTypeID kind = CFGetTypeID(value);
  if (kind == CFStringGetTypeID()) return "\"" + utf8(static_cast<CFStringRef>(value)) + "\"";
  if (kind == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) ? "true" : "false";
  if (kind == CFNumberGetTypeID()) {
    std::int64_t integer = 0;
    if (CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &integer))
      return std::to_string(integer);
    double real = 0;
    CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberDoubleType, &real);
    return std::to_string(real);
  }
  std::string text;
  if (kind == CFArrayGetTypeID()) {
    const CFArrayRef array = static_cast<CFArrayRef>(value);
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
      text += (i == 0 ? "" : ", ") + describe(CFArrayGetValueAtIndex(array, i));
    }
    return "[" + text + "]";
  }
  if (kind == CFDictionaryGetTypeID()) {
    std::map<std::string, std::string> pairs;
    CFDictionaryApplyFunction(
        static_cast<CFDictionaryRef>(value),
        [](const void* key, const void* held, void* context) {
          (*static_cast<std::map<std::string, std::string>*>(context))[utf8(static_cast<CFStringRef>(key))] =
              describe(held);
        },
        &pairs);
    for (const auto& [key, held] : pairs) text += (text.empty() ? "" : ", ") + key + ": " + held;
    return "{" + text + "}";
  }
  return utf8(CSharedCFRef<CFStringRef>(CFCopyDescription(value)).get());
}

template <class T>
std::string describe(const CSharedCFRef<T>& value) {
  return describe(value.get());
}

// What a file holds, read without any of the library's files.
inline std::string describeFile(const std::string& path) { return describe(parsed(readFile(path))); }

// The value under a key of a file's root; null when there is none.
inline CSharedCFRef<CFTypeRef> sectionOfFile(const std::string& path, const std::string& key) {
  const CSharedCFRef<CFPropertyListRef> root = parsed(readFile(path));
  return CSharedCFRef<CFTypeRef>::retaining(
      CFDictionaryGetValue(static_cast<CFDictionaryRef>(root.get()), str(key).get()));
}

// What a call throws: "CODE: MESSAGE", or "nothing".
template <class Call>
std::string thrownBy(Call call) {
  try {
    call();
  } catch (const plinth::CException& failure) {
    return std::to_string(failure.getType()) + ": " + failure.getMessage()->str();
  }
  return "nothing";
}

inline std::string pid() { return std::to_string(::getpid()); }

// What the process writes to its standard error, and so to the console, while `call` runs.
template <class Call>
std::string consoleOf(Call call) {
  ::testing::internal::CaptureStderr();
  call();
  return ::testing::internal::GetCapturedStderr();
}

}  // namespace test
