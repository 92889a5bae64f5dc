// path_bytes.h: a path as the system takes it.
#pragma once

#include <plinth/string.h>

#include <string>

namespace tovan {

// UTF-8; empty, which names no file, for an empty holder and for a text that holds U+0000.
inline std::string pathBytes(const plinth::CStringRef& path) {
  std::string bytes = path ? path->str() : std::string();
  if (bytes.find('\0') != std::string::npos) bytes.clear();
  return bytes;
}

}  // namespace tovan
