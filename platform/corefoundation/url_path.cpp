// URLs and file-system paths.
#include "platform/corefoundation/string.h"
#include "platform/corefoundation/url.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace cf {
namespace {

// The current directory; empty when it is gone or lies outside this process's root.
std::string currentDirectory() {
  std::string path(256, '\0');
  while (::getcwd(path.data(), path.size()) == nullptr) {
    if (errno != ERANGE) return {};
    path.resize(path.size() * 2);
  }
  path.resize(std::strlen(path.c_str()));
  return path.starts_with('/') ? path : std::string();
}

bool canBeDecomposed(CFURLRef url) { return isKind(url, kURLClass) && !url->parts.isOpaque(); }

// Whether the URL names something on this machine. Without a scheme it may.
bool isFileURL(const URLParts& parts) {
  const std::string_view host = parts.authority;
  return (parts.scheme.empty() || parts.scheme == "file") && (host.empty() || host == "localhost");
}

// The URL with another path; all else stays.
CFURLRef createWithPath(CFURLRef url, std::string_view path) {
  const std::string_view text = utf8View(url->text);
  const std::string_view old = url->parts.path;
  const auto begin = static_cast<std::size_t>(old.data() - text.data());
  std::string changed(text.substr(0, begin));
  changed += path;
  changed += text.substr(begin + old.size());
  return createURL(changed, url->base);
}

// The last component when it is a name that may carry an extension, else empty.
std::string_view nameOf(std::string_view path) {
  const std::string_view last = lastPathComponent(path);
  return last == "/" || last == "." || last == ".." ? std::string_view() : last;
}

CFURLRef createFromPathOrNull(std::string_view path, bool isDirectory, CFURLRef base) {
  if (base != nullptr && !isKind(base, kURLClass)) return nullptr;
  return createFileURL(path, isDirectory, base);
}

}  // namespace

CFURLRef createFileURL(std::string_view path, bool isDirectory, CFURLRef base) {
  if (path.empty() || path.find('\0') != std::string_view::npos) return nullptr;
  const bool isAbsolute = path.starts_with('/');
  path = withoutTrailingSlashes(path);
  std::string text = escapePath(path, !isAbsolute);
  if (isAbsolute) text.insert(0, "file://");
  if (path == "/") return createURL(text, nullptr);
  if (isDirectory) text += '/';
  if (isAbsolute || base != nullptr) return createURL(text, base);
  const std::string directory = currentDirectory();
  if (directory.empty()) return nullptr;
  const Owned<CFURLRef> current(createFileURL(directory, true));
  return createURL(text, current.get());
}

std::optional<std::string> fileSystemPath(CFURLRef url) {
  if (!canBeDecomposed(url) || url->parts.path.empty()) return std::nullopt;
  std::string path = decodeEscapes(withoutTrailingSlashes(url->parts.path));
  if (path.find('\0') != std::string::npos) return std::nullopt;
  return path;
}

std::optional<std::string> absoluteFileSystemPath(CFURLRef url) {
  const Owned<CFURLRef> absolute(CFURLCopyAbsoluteURL(url));
  if (!absolute || !isFileURL(absolute.get()->parts)) return std::nullopt;
  auto path = fileSystemPath(absolute.get());
  if (!path || path->starts_with('/')) return path;
  const std::string directory = currentDirectory();
  if (directory.empty()) return std::nullopt;
  return (directory == "/" ? directory : directory + "/") + *path;
}

}  // namespace cf

using namespace cf;

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style,
                                       Boolean isDirectory) {
  return CFURLCreateWithFileSystemPathRelativeToBase(allocator, path, style, isDirectory, nullptr);
}

CFURLRef CFURLCreateWithFileSystemPathRelativeToBase(CFAllocatorRef, CFStringRef path, CFURLPathStyle style,
                                                     Boolean isDirectory, CFURLRef base) {
  if (!isString(path) || style != kCFURLPOSIXPathStyle) return nullptr;
  return createFromPathOrNull(utf8View(path), isDirectory != 0, base);
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                                 Boolean isDirectory) {
  return CFURLCreateFromFileSystemRepresentationRelativeToBase(allocator, bytes, length, isDirectory, nullptr);
}

CFURLRef CFURLCreateFromFileSystemRepresentationRelativeToBase(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                                               Boolean isDirectory, CFURLRef base) {
  if (bytes == nullptr || length < 0) return nullptr;
  const std::string_view path(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  return createFromPathOrNull(path, isDirectory != 0, base);
}

Boolean CFURLHasDirectoryPath(CFURLRef url) {
  if (!canBeDecomposed(url)) return false;
  const std::string_view last = lastPathComponent(url->parts.path);
  return url->parts.path.ends_with('/') || last == "." || last == "..";
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style) {
  if (style != kCFURLPOSIXPathStyle) return nullptr;
  const auto path = fileSystemPath(url);
  return path ? createString(*path) : nullptr;
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer, CFIndex capacity) {
  if (buffer == nullptr || capacity <= 0) return false;
  const Owned<CFURLRef> source(resolveAgainstBase ? CFURLCopyAbsoluteURL(url) : Owned<CFURLRef>::retaining(url).take());
  const auto path = fileSystemPath(source.get());
  if (!path || path->size() >= static_cast<std::size_t>(capacity)) return false;
  std::memcpy(buffer, path->c_str(), path->size() + 1);
  return true;
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
  return canBeDecomposed(url) ? createString(decodeEscapes(lastPathComponent(url->parts.path))) : nullptr;
}

CFStringRef CFURLCopyPathExtension(CFURLRef url) {
  if (!canBeDecomposed(url)) return nullptr;
  const std::string_view name = nameOf(url->parts.path);
  const std::size_t dot = extensionDot(name);
  return dot == std::string_view::npos ? nullptr : createString(decodeEscapes(name.substr(dot + 1)));
}

CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef, CFURLRef url, CFStringRef component,
                                               Boolean isDirectory) {
  if (!canBeDecomposed(url) || !isString(component)) return nullptr;
  std::string_view name = utf8View(component);
  if (name.find('\0') != std::string_view::npos) return nullptr;
  while (name.starts_with('/')) name.remove_prefix(1);
  while (name.ends_with('/')) name.remove_suffix(1);
  const std::string_view old = url->parts.path;
  std::string path(old);
  if (!name.empty()) {
    const bool startsPath = path.empty() && url->parts.authority.data() == nullptr;
    if (!path.ends_with('/') && !startsPath) path += '/';
    path += escapePath(name, !path.starts_with('/'));
  }
  if (isDirectory && !path.ends_with('/') && (!path.empty() || url->parts.authority.data() != nullptr)) path += '/';
  return createWithPath(url, path);
}

CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef, CFURLRef url) {
  if (!canBeDecomposed(url)) return nullptr;
  // Behind a host an empty path is the root.
  const bool isRoot = url->parts.path.empty() && url->parts.authority.data() != nullptr;
  return createWithPath(url, isRoot ? std::string("/") : parentPath(url->parts.path));
}

CFURLRef CFURLCreateCopyAppendingPathExtension(CFAllocatorRef, CFURLRef url, CFStringRef extension) {
  if (!canBeDecomposed(url) || !isString(extension)) return nullptr;
  const std::string_view added = utf8View(extension);
  if (added.empty() || added.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) return nullptr;
  const std::string_view old = url->parts.path;
  if (nameOf(old).empty()) return nullptr;
  std::string path(withoutTrailingSlashes(old));
  path += '.';
  path += escapePath(added, !old.starts_with('/'));
  if (old.ends_with('/')) path += '/';
  return createWithPath(url, path);
}

CFURLRef CFURLCreateCopyDeletingPathExtension(CFAllocatorRef, CFURLRef url) {
  if (!canBeDecomposed(url)) return nullptr;
  const std::string_view old = url->parts.path;
  const std::string_view name = nameOf(old);
  const std::size_t dot = extensionDot(name);
  if (dot == std::string_view::npos) return createWithPath(url, old);
  std::string path(withoutTrailingSlashes(old));
  path.resize(path.size() - (name.size() - dot));
  if (old.ends_with('/')) path += '/';
  return createWithPath(url, path);
}
