// protocol_support.h: dictionaries of the storage protocol, as text and from text.
//
// The names and keys stand here in full and not through the library's own constants: they are what another client would
// write.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <plinth/string.h>
#include <tovan/cf_util.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/notification_log.h"

namespace test {

using Dictionary = plinth::CSharedCFRef<CFMutableDictionaryRef>;

inline CFStringRef name(const std::string& operation) {
  static const std::map<std::string, CFStringRef> names = {
      {"publish", CFSTR("MervaneSharedStoragePublishNotification2")},
      {"unpublish", CFSTR("MervaneSharedStorageUnpublishNotification2")},
      {"subscribe", CFSTR("MervaneSharedStorageSubscribeNotification2")},
      {"unsubscribe", CFSTR("MervaneSharedStorageUnsubscribeNotification2")},
      {"port", CFSTR("MervaneGetServerPortNotification2")},
      {"terminated", CFSTR("MervaneProcessTerminatedNotification2")},
      {"publish result", CFSTR("MervaneSharedStoragePublishResultNotification2")},
      {"unpublish result", CFSTR("MervaneSharedStorageUnpublishResultNotification2")},
      {"subscribe result", CFSTR("MervaneSharedStorageSubscribeResultNotification2")},
      {"unsubscribe result", CFSTR("MervaneSharedStorageUnsubscribeResultNotification2")},
      {"port result", CFSTR("MervaneGetServerPortResultNotification2")},
  };
  return names.at(operation);
}

// The operation of a notification's name; the name itself when it is none of the protocol's.
inline std::string operationOf(const std::string& notification) {
  for (const char* const operation :
       {"publish", "unpublish", "subscribe", "unsubscribe", "port", "terminated", "publish result", "unpublish result",
        "subscribe result", "unsubscribe result", "port result"}) {
    if (plinth::CSTR(name(operation))->str() == notification) return operation;
  }
  return notification;
}

inline void set(const Dictionary& dictionary, const std::string& key, const std::string& value) {
  tovan::CFUtil::CFDictSetString(dictionary.get(), plinth::CSTR(key)->getStringRef(),
                                 plinth::CSTR(value)->getStringRef());
}
inline void set(const Dictionary& dictionary, const std::string& key, std::int32_t value) {
  tovan::CFUtil::CFDictSetInt(dictionary.get(), plinth::CSTR(key)->getStringRef(), value);
}
inline void setValue(const Dictionary& dictionary, const std::string& key, CFTypeRef value) {
  tovan::CFUtil::CFDictSet(dictionary.get(), plinth::CSTR(key)->getStringRef(), value);
}
inline void remove(const Dictionary& dictionary, const std::string& key) {
  CFDictionaryRemoveValue(dictionary.get(), plinth::CSTR(key)->getStringRef());
}

// A complete request for an operation.
inline Dictionary request(const std::string& operation) {
  Dictionary made = tovan::CFUtil::CFDictMakeMutable();
  const bool mounts = operation == "subscribe" || operation == "unsubscribe";
  if (operation != "terminated") {
    set(made, "sender", "app");
    set(made, "requestID", "R1");
  }
  if (operation != "port") set(made, "pid", 42);
  if (operation == "publish" || operation == "unpublish") set(made, "storageURL", "/srv/films");
  if (mounts) {
    set(made, "storageURL", "nfs://host/srv/films?port=2049");
    set(made, "storageLocalPath", "/mnt/films");
  }
  return made;
}

// The values whose order means nothing, by key: "pid=42 requestID=R1 sender=app".
inline std::string textOf(CFDictionaryRef dictionary) {
  if (dictionary == nullptr) return "(null)";
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  std::vector<const void*> keys(count), values(count);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  std::map<std::string, std::string> pairs;
  for (std::size_t i = 0; i < count; ++i) {
    const plinth::CStringRef value = plinth::CString::sprintf("%@", values[i]);
    std::string text = value->str();
    if (CFGetTypeID(values[i]) == CFNumberGetTypeID()) {
      long long number = 0;
      CFNumberGetValue(static_cast<CFNumberRef>(values[i]), kCFNumberLongLongType, &number);
      text = std::to_string(number);
    }
    pairs[plinth::CSTR(static_cast<CFStringRef>(keys[i]))->str()] = text;
  }
  std::string text;
  for (const auto& [key, value] : pairs) {
    if (!text.empty()) text += ' ';
    text.append(key).append("=").append(value);
  }
  return text;
}

inline std::string stringIn(CFDictionaryRef dictionary, const std::string& key) {
  CFStringRef value = nullptr;
  tovan::CFUtil::CFDictGetString(dictionary, plinth::CSTR(key)->getStringRef(), value);
  return value == nullptr ? "" : plinth::CSTR(value)->str();
}
inline std::int32_t integerIn(CFDictionaryRef dictionary, const std::string& key) {
  std::int32_t value = 0;
  EXPECT_TRUE(tovan::CFUtil::CFDictGetInt(dictionary, plinth::CSTR(key)->getStringRef(), value)) << "no " << key;
  return value;
}

// What an action writes to standard error.
inline std::string consoleOf(const std::function<void()>& action) {
  ::testing::internal::CaptureStderr();
  action();
  return ::testing::internal::GetCapturedStderr();
}

// A value of every type that a notification carries but those that a key may have.
inline std::vector<plinth::CSharedCFRef<CFTypeRef>> valuesOfOtherTypes(bool stringsToo, bool integersToo) {
  std::vector<plinth::CSharedCFRef<CFTypeRef>> values;
  const double real = 1.5;
  const long long tooLarge = 1LL << 40;
  const int integer = 7;
  values.emplace_back(CFRetain(kCFBooleanTrue));
  values.emplace_back(CFNumberCreate(nullptr, kCFNumberDoubleType, &real));
  values.emplace_back(CFNumberCreate(nullptr, kCFNumberLongLongType, &tooLarge));
  values.emplace_back(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("app"), 3));
  values.emplace_back(CFDateCreate(nullptr, 0));
  values.emplace_back(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  values.emplace_back(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  if (stringsToo) values.emplace_back(CFRetain(CFSTR("42")));
  if (integersToo) values.emplace_back(CFNumberCreate(nullptr, kCFNumberIntType, &integer));
  return values;
}

}  // namespace test
