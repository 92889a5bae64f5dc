#include "tools/tovanctl/setting_tree.h"

#include <tovan/property_list_basic_file.h>

namespace tovanctl {
namespace {

CFDictionaryRef asDictionary(CFTypeRef value) {
  return value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID() ? static_cast<CFDictionaryRef>(value)
                                                                           : nullptr;
}

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

void collect(CFTypeRef value, SettingPath& path, SettingLeaves& leaves) {
  const CFDictionaryRef dictionary = asDictionary(value);
  if (dictionary == nullptr || CFDictionaryGetCount(dictionary) == 0) {
    leaves[path] = plinth::CSharedCFRef<CFTypeRef>::retaining(value);
    return;
  }
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  for (std::size_t index = 0; index < count; ++index) {
    path.push_back(text(static_cast<CFStringRef>(keys[index])));
    collect(values[index], path, leaves);
    path.pop_back();
  }
}

}  // namespace

std::string pathText(const SettingPath& path) {
  std::string out;
  for (const std::string& key : path) out += (out.empty() ? "" : " / ") + key;
  return out;
}

SettingPath parsePath(const std::string& text) {
  SettingPath path;
  std::size_t at = 0;
  for (std::size_t slash = text.find('/'); slash != std::string::npos; slash = text.find('/', at)) {
    path.push_back(trimmed(text.substr(at, slash - at)));
    at = slash + 1;
  }
  path.push_back(trimmed(text.substr(at)));
  return path;
}

SettingLeaves leavesOf(CFTypeRef value, const SettingPath& above) {
  SettingLeaves leaves;
  SettingPath path = above;
  collect(value, path, leaves);
  return leaves;
}

CFTypeRef valueAt(CFDictionaryRef root, const SettingPath& path) {
  CFTypeRef value = root;
  for (const std::string& key : path) {
    if (asDictionary(value) == nullptr) return nullptr;
    value = CFDictionaryGetValue(asDictionary(value), string(key).get());
  }
  return value;
}

plinth::CSharedCFRef<CFDictionaryRef> rootOfFile(CFStringRef path) {
  return tovan::CPropertyListBasicFile(path).toPropertyList();
}

}  // namespace tovanctl
