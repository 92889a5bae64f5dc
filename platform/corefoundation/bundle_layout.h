// bundle_layout.h: where a bundle keeps what. Paths are absolute, without a slash at their end.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cf {

struct BundleLayout {
  std::string infoPath;         // the information dictionary's file, there or not
  std::string resourcesFolder;  // may be missing, like the next one
  std::string frameworksFolder;
  std::vector<std::string> executableFolders;  // in the order of search

  bool operator==(const BundleLayout&) const = default;
};

// The layout of the bundle directory `path` as it is on disk now.
BundleLayout bundleLayout(const std::string& path);

// The innermost bundle that the file lies in; nothing when it lies in none. The file's path must be real: absolute,
// without symbolic links. A bundle without an extension is recognised only from files at its top, in its Resources or
// in its Contents.
std::optional<std::string> enclosingBundle(const std::string& file);

// The bundle's name: the last component of its path without its extension.
std::string bundleName(const std::string& path);

// Whether a name from a file or a caller names one entry of a directory: not empty, "." or "..", without a slash and
// without a NUL.
bool isPlainName(std::string_view name) noexcept;
// Whether a relative path leads nowhere but down: plain names joined by single slashes.
bool leadsDown(std::string_view path) noexcept;

}  // namespace cf
