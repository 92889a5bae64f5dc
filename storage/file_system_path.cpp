#include "storage/file_system_path.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>

#include "storage/storage_failure.h"

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

struct Free {
  void operator()(char* text) const noexcept { std::free(text); }
};

}  // namespace

void throwUnresolved(const CStringRef& path, int error) {
  const CStringRef text = CString::sprintf("Couldn't get realpath for file: %s (errno = %d)",
                                           CString::nullToEmptyString(path)->getUTF8Ptr(), error);
  throwStorageFailure(kSharedStorageExceptionSystem, kSharedStorageNotDone, "%@", text);
}

std::string realPath(const std::string& path) {
  const std::unique_ptr<char, Free> real(::realpath(path.c_str(), nullptr));
  return real ? std::string(real.get()) : std::string();
}

const char* fileSystemRepresentation(const CStringRef& path) {
  if (!path) return nullptr;
  const CFStringRef text = path->getStringRef();
  std::string bytes(static_cast<std::size_t>(CFStringGetMaximumSizeOfFileSystemRepresentation(text)), '\0');
  const bool isPath = CFStringGetFileSystemRepresentation(text, bytes.data(), static_cast<CFIndex>(bytes.size()));
  return isPath ? path->getUTF8Ptr() : nullptr;
}

CStringRef resolvedPath(const CStringRef& path) {
  const char* const bytes = fileSystemRepresentation(path);
  if (bytes == nullptr) throwUnresolved(path, EINVAL);
  const std::string real = realPath(bytes);
  if (real.empty()) throwUnresolved(path, errno);
  CStringRef resolved = CSTR(real);
  if (!resolved) throwUnresolved(path, EILSEQ);  // a folder whose name is not UTF-8
  return resolved;
}

}  // namespace tovan
