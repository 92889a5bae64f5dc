// file_system_path.h: paths as the file system takes them.
#pragma once

#include <plinth/string.h>

#include <string>

namespace tovan {

// The path's bytes, owned by the string; null for an empty holder and for a text that no path can be (one that holds
// U+0000 or half a surrogate pair).
const char* fileSystemRepresentation(const plinth::CStringRef& path);

// The path without symbolic links and relative parts. Throws ISharedStorageException (type 5, sub-code 12) "Couldn't
// get realpath for file: PATH (errno = NUMBER)".
plinth::CStringRef resolvedPath(const plinth::CStringRef& path);
[[noreturn]] void throwUnresolved(const plinth::CStringRef& path, int error);

// The same for bytes; empty, with errno, when the path can't be followed.
std::string realPath(const std::string& path);

}  // namespace tovan
