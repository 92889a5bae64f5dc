// bundle_support.h: bundles built in scratch folders.
#pragma once

#include "tests/corefoundation/url_support.h"
#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

namespace test {

inline Held<CFBundleRef> bundleAt(const std::string& path) {
  return Held<CFBundleRef>(CFBundleCreate(kCFAllocatorDefault, fileURL(path, true).get()));
}

// An information dictionary with these elements, such as "<key>a</key><string>b</string>".
inline std::string infoPlist(const std::string& elements) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + elements + "</dict></plist>\n";
}
inline std::string entry(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

// Writes a file and the folders it lies in.
inline void put(const std::string& path, const std::string& content) {
  makeFolders(std::filesystem::path(path).parent_path().string());
  writeFile(path, content);
}
inline void putExecutable(const std::string& path) {
  put(path, "#!/bin/sh\n");
  ASSERT_EQ(::chmod(path.c_str(), 0755), 0) << path;
}

// The text that a bundle's dictionary holds under a key.
inline std::string value(CFBundleRef bundle, const char* key) {
  const CFTypeRef found = CFBundleGetValueForInfoDictionaryKey(bundle, string(key).get());
  if (found != nullptr && CFGetTypeID(found) != CFStringGetTypeID()) return "(not a string)";
  return textOf(static_cast<CFStringRef>(found));
}
inline std::string executable(CFBundleRef bundle) { return pathOfOwned(CFBundleCopyExecutableURL(bundle)); }
inline std::string auxiliary(CFBundleRef bundle, const std::string& name) {
  return pathOfOwned(CFBundleCopyAuxiliaryExecutableURL(bundle, string(name).get()));
}

}  // namespace test
