// CSharedStorageUtils: the volume that a path lies on.
#include <tovan/shared_storage_utils.h>

#include <plinth/exception.h>

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "platform/system/error_text.h"
#include "platform/system/file_system.h"
#include "storage/path_bytes.h"
#include "storage/storage_failure.h"

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

constexpr char kVolumes[] = "/Volumes/";

platform::FileSystemFacts factsOf(const CStringRef& path, const char* function) {
  std::optional<platform::FileSystemFacts> facts = platform::fileSystemFacts(pathBytes(path));
  if (facts) return *std::move(facts);
  const int error = errno;
  const CStringRef text =
      CString::sprintf("[%ld] CSharedStorageUtils::%s(): statfs(%@) failed: %s", static_cast<long>(::getpid()),
                       function, CString::nullToEmptyString(path)->getStringRef(), platform::errorText(error).c_str());
  throwStorageFailure(kSharedStorageExceptionSystem, kSharedStorageNotDone, "%@", text);
}

}  // namespace

CStringRef CSharedStorageUtils::getFilesystemType(const CStringRef& path) {
  return CSTR(factsOf(path, "getFilesystemType").type);
}

bool CSharedStorageUtils::isExFATBasedPath(const CStringRef& path) { return getFilesystemType(path) == CSTR("exfat"); }

bool CSharedStorageUtils::isKelpBasedPath(const CStringRef& path) { return getFilesystemType(path) == CSTR("kcfs"); }

bool CSharedStorageUtils::pathIsOnReadOnlyVolume(const CStringRef& path) {
  return factsOf(path, "pathIsOnReadOnlyVolume").isReadOnly;
}

CStringRef CSharedStorageUtils::getKelpVolumeName(const CStringRef& path) {
  constexpr std::size_t kNameAt = sizeof kVolumes - 1;
  const std::string bytes = pathBytes(path);
  const bool isBelow = bytes.compare(0, kNameAt, kVolumes) == 0;
  const std::string name = isBelow ? bytes.substr(kNameAt, bytes.find('/', kNameAt) - kNameAt) : std::string();
  if (name.empty() || name == "." || name == "..") {
    const CStringRef text = CString::sprintf("Path [%s] is not volume-based", path ? path->getUTF8Ptr() : "");
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFound, "%@", text);
  }
  return CSTR(name);
}

CStringRef CSharedStorageUtils::getKelpVolumePath(const CStringRef& path) {
  return CString::sprintf("/Volumes/%@", getKelpVolumeName(path)->getStringRef());
}

bool CSharedStorageUtils::isVolumeMounted(const CStringRef& path) {
  return platform::isMountPoint(getKelpVolumePath(path)->str());
}

}  // namespace tovan
