#include "storage/file_system_path.h"

#include <tovan/shared_storage_exception.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

struct Free {
  void operator()(char* text) const { std::free(text); }
};

[[noreturn]] void failToResolve(const CStringRef& path, int error) {
  const CStringRef message = CString::sprintf("Couldn't get realpath for file: %s (errno = %d)",
                                              CString::nullToEmptyString(path)->getUTF8Ptr(), error);
  throw ISharedStorageException(kSharedStorageExceptionSystem, kSharedStorageNotDone, message->getUTF8Ptr());
}

}  // namespace

const char* fileSystemRepresentation(const CStringRef& path) {
  if (!path) return nullptr;
  const CFStringRef text = path->getStringRef();
  std::string bytes(static_cast<std::size_t>(CFStringGetMaximumSizeOfFileSystemRepresentation(text)), '\0');
  const bool isPath = CFStringGetFileSystemRepresentation(text, bytes.data(), static_cast<CFIndex>(bytes.size()));
  return isPath ? path->getUTF8Ptr() : nullptr;
}

CStringRef resolvedPath(const CStringRef& path) {
  const char* const bytes = fileSystemRepresentation(path);
  if (bytes == nullptr) failToResolve(path, EINVAL);
  const std::unique_ptr<char, Free> real(::realpath(bytes, nullptr));
  if (real == nullptr) failToResolve(path, errno);
  CStringRef resolved = CSTR(real.get());
  if (!resolved) failToResolve(path, EILSEQ);  // a folder whose name is not UTF-8
  return resolved;
}

}  // namespace tovan
