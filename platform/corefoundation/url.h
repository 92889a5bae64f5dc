// url.h: the layout of URL objects, for the rest of this folder.
#pragma once

#include <CoreFoundation/CFURL.h>

#include "platform/corefoundation/runtime.h"
#include "platform/corefoundation/url_syntax.h"

#include <optional>
#include <string>
#include <string_view>

struct CFURLStorage {
  CFObjectHead head;
  CFStringRef text;    // owned, immutable, ASCII
  CFURLRef base;       // owned; null when the text is absolute or has no base
  cf::URLParts parts;  // of the text
};

namespace cf {

extern const CFRuntimeClass kURLClass;

// A URL of text that is known to be a URI reference; the base is retained, and dropped when the text has a scheme. The
// caller owns the result.
CFURLRef createURL(std::string_view text, CFURLRef base);

// An absolute file URL of an absolute path, or one relative to `base`, or null for an empty path or one with a NUL.
// The caller owns the result.
CFURLRef createFileURL(std::string_view path, bool isDirectory, CFURLRef base = nullptr);

// The path's bytes, decoded, without slashes at the end; nothing when there is no path or it holds a NUL.
std::optional<std::string> fileSystemPath(CFURLRef url);
// The same of the URL resolved against its base, and, if it is relative even then, against the current directory: an
// absolute path, or nothing. Nothing, too, for a URL that is not a file's on this machine.
std::optional<std::string> absoluteFileSystemPath(CFURLRef url);

}  // namespace cf
