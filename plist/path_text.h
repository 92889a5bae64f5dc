// path_text.h: a path as the system takes it, and with its tilde expanded.
#pragma once

#include <plinth/string.h>
#include <tovan/file_util.h>

#include <string>

namespace tovan {

// UTF-8; empty for null.
inline std::string pathText(CFStringRef path) { return path == nullptr ? std::string() : plinth::CSTR(path)->str(); }

// A leading "~/" expanded. Without a home folder the path stays as it is.
inline plinth::CSharedCFRef<CFStringRef> expandedPath(CFStringRef path) {
  const plinth::CSharedCFRef<CFStringRef> expanded(CFileUtil::expandTildeInPath(path));
  return expanded.isNull() ? plinth::CSharedCFRef<CFStringRef>::retaining(path) : expanded;
}

}  // namespace tovan
