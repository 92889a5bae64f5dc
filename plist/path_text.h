// path_text.h: a path as the system takes it, and with its tilde expanded.
#pragma once

#include <plinth/string.h>
#include <tovan/file_util.h>

#include <string>

namespace tovan {

// UTF-8; empty for null.
inline std::string pathText(CFStringRef path) { return path == nullptr ? std::string() : plinth::CSTR(path)->str(); }

// A copy with a leading "~/" expanded, null of null. Without a home folder the path stays as it is.
inline plinth::CSharedCFRef<CFStringRef> expandedPath(CFStringRef path) {
  if (path == nullptr) return nullptr;
  const plinth::CSharedCFRef<CFStringRef> expanded(CFileUtil::expandTildeInPath(path));
  return CFStringCreateCopy(kCFAllocatorDefault, expanded.isNull() ? path : expanded.get());
}

}  // namespace tovan
