#include "tools/launchctl/property_list.h"

#include <cstddef>

#include "tools/launchctl/failure.h"
#include "tools/support/text.h"

namespace launchctl {
namespace {

// The value of a key when it has the kind.
template <class T>
T valueOf(CFDictionaryRef list, const char* key, CFTypeID kind) {
  if (list == nullptr) return nullptr;
  const CFTypeRef value = CFDictionaryGetValue(list, string(key).get());
  return value != nullptr && CFGetTypeID(value) == kind ? static_cast<T>(value) : nullptr;
}

std::string takeDescription(CFErrorRef error) {
  const plinth::CSharedCFRef<CFErrorRef> holder(error);
  if (error == nullptr) return "unknown reason";
  const plinth::CSharedCFRef<CFStringRef> description(CFErrorCopyDescription(error));
  return text(description.get());
}

plinth::CSharedCFRef<CFMutableArrayRef> newArray() { return CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks); }

}  // namespace

std::string text(CFStringRef string) { return tools::textOf(string); }

plinth::CSharedCFRef<CFStringRef> string(const std::string& utf8) {
  plinth::CSharedCFRef<CFStringRef> made = tools::stringOf(utf8);
  if (!made) throw Failure("a text is not valid UTF-8");
  return made;
}

Dictionary parseDictionary(const std::string& bytes) {
  const plinth::CSharedCFRef<CFDataRef> data(
      CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
  CFErrorRef error = nullptr;
  const plinth::CSharedCFRef<CFPropertyListRef> list(
      CFPropertyListCreateWithData(nullptr, data.get(), kCFPropertyListImmutable, nullptr, &error));
  if (!list) throw Failure(takeDescription(error));
  if (CFGetTypeID(list.get()) != CFDictionaryGetTypeID()) throw Failure("the root is not a dictionary");
  return Dictionary::retaining(static_cast<CFDictionaryRef>(list.get()));
}

std::string xml(CFPropertyListRef list) {
  CFErrorRef error = nullptr;
  const plinth::CSharedCFRef<CFDataRef> data(
      CFPropertyListCreateData(nullptr, list, kCFPropertyListXMLFormat_v1_0, 0, &error));
  if (!data) throw Failure(takeDescription(error));
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
          static_cast<std::size_t>(CFDataGetLength(data.get()))};
}

std::optional<std::string> stringOf(CFDictionaryRef list, const char* key) {
  const auto value = valueOf<CFStringRef>(list, key, CFStringGetTypeID());
  return value == nullptr ? std::nullopt : std::optional(text(value));
}

std::optional<std::int64_t> integerOf(CFDictionaryRef list, const char* key) {
  const auto value = valueOf<CFNumberRef>(list, key, CFNumberGetTypeID());
  std::int64_t integer = 0;
  if (value == nullptr || !CFNumberGetValue(value, kCFNumberSInt64Type, &integer)) return std::nullopt;
  return integer;
}

bool boolOf(CFDictionaryRef list, const char* key) {
  return CFBooleanGetValue(valueOf<CFBooleanRef>(list, key, CFBooleanGetTypeID())) != 0;
}

std::optional<double> numberOf(CFDictionaryRef list, const char* key) {
  const auto value = valueOf<CFNumberRef>(list, key, CFNumberGetTypeID());
  if (value == nullptr) return std::nullopt;
  double real = 0;
  CFNumberGetValue(value, kCFNumberDoubleType, &real);
  return real;
}

Dictionary dictionaryOf(CFDictionaryRef list, const char* key) {
  return Dictionary::retaining(valueOf<CFDictionaryRef>(list, key, CFDictionaryGetTypeID()));
}

std::vector<std::string> stringsOf(CFDictionaryRef list, const char* key) {
  std::vector<std::string> found;
  const auto array = valueOf<CFArrayRef>(list, key, CFArrayGetTypeID());
  for (CFIndex index = 0; array != nullptr && index < CFArrayGetCount(array); ++index) {
    const CFTypeRef value = CFArrayGetValueAtIndex(array, index);
    if (CFGetTypeID(value) == CFStringGetTypeID()) found.push_back(text(static_cast<CFStringRef>(value)));
  }
  return found;
}

std::vector<Dictionary> dictionariesOf(CFDictionaryRef list, const char* key) {
  std::vector<Dictionary> found;
  const auto array = valueOf<CFArrayRef>(list, key, CFArrayGetTypeID());
  for (CFIndex index = 0; array != nullptr && index < CFArrayGetCount(array); ++index) {
    const CFTypeRef value = CFArrayGetValueAtIndex(array, index);
    if (CFGetTypeID(value) != CFDictionaryGetTypeID()) continue;
    found.push_back(Dictionary::retaining(static_cast<CFDictionaryRef>(value)));
  }
  return found;
}

std::map<std::string, std::string> textsOf(CFDictionaryRef list, const char* key) {
  std::map<std::string, std::string> found;
  for (const auto& [name, value] : pairsOf(dictionaryOf(list, key).get())) {
    if (CFGetTypeID(value) == CFStringGetTypeID()) found[name] = text(static_cast<CFStringRef>(value));
  }
  return found;
}

std::vector<std::pair<std::string, CFTypeRef>> pairsOf(CFDictionaryRef list) {
  if (list == nullptr) return {};
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(list));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(list, keys.data(), values.data());
  std::vector<std::pair<std::string, CFTypeRef>> pairs;
  pairs.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    pairs.emplace_back(text(static_cast<CFStringRef>(keys[index])), values[index]);
  }
  return pairs;
}

ListBuilder::ListBuilder()
    : list_(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks)) {}

ListBuilder& ListBuilder::add(const std::string& key, CFTypeRef value) {
  CFDictionarySetValue(list_.get(), string(key).get(), value);
  return *this;
}

ListBuilder& ListBuilder::set(const std::string& key, const std::string& value) {
  return add(key, string(value).get());
}

ListBuilder& ListBuilder::set(const std::string& key, std::int64_t value) {
  const plinth::CSharedCFRef<CFNumberRef> number(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
  return add(key, number.get());
}

ListBuilder& ListBuilder::set(const std::string& key, double value) {
  const plinth::CSharedCFRef<CFNumberRef> number(CFNumberCreate(nullptr, kCFNumberDoubleType, &value));
  return add(key, number.get());
}

ListBuilder& ListBuilder::set(const std::string& key, bool value) {
  return add(key, value ? kCFBooleanTrue : kCFBooleanFalse);
}

ListBuilder& ListBuilder::set(const std::string& key, const std::vector<std::string>& values) {
  const auto array = newArray();
  for (const std::string& value : values) CFArrayAppendValue(array.get(), string(value).get());
  return add(key, array.get());
}

ListBuilder& ListBuilder::set(const std::string& key, const std::map<std::string, std::string>& values) {
  ListBuilder inner;
  for (const auto& [name, value] : values) inner.set(name, value);
  return add(key, inner.list_.get());
}

ListBuilder& ListBuilder::set(const std::string& key, const std::vector<Dictionary>& values) {
  const auto array = newArray();
  for (const Dictionary& value : values) CFArrayAppendValue(array.get(), value.get());
  return add(key, array.get());
}

ListBuilder& ListBuilder::set(const std::string& key, const Dictionary& value) { return add(key, value.get()); }

}  // namespace launchctl
