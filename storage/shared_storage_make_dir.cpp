// CSharedStorageUtils::makeDir.
#include <tovan/shared_storage.h>
#include <tovan/shared_storage_utils.h>

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "platform/system/error_text.h"
#include "storage/path_bytes.h"
#include "storage/storage_failure.h"

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

// What becomes of one folder: 0, or errno.
int make(const std::string& path, mode_t mode) { return ::mkdir(path.c_str(), mode) == 0 ? 0 : errno; }

// `folder` is the one that mkdir refused to make, `wanted` the one that makeDir was asked for.
[[noreturn]] void throwNotMade(const std::string& folder, const CStringRef& wanted, int error) {
  if (error == EACCES || error == EPERM || error == EROFS) {
    const std::string::size_type slash = folder.find_last_of('/');
    const std::string above = slash == std::string::npos ? "." : folder.substr(0, slash == 0 ? 1 : slash);
    const CStringRef format = ISharedStorage::localizedStringForKey(CSTR("WritePermissionsMissingForFolder"));
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotAccessible, "%@",
                        CString::sprintf(format->getStringRef(), CSTR(above)->getStringRef()));
  }
  const CStringRef format = ISharedStorage::localizedStringForKey(CSTR("CreateDirectoryErrorFormat"));
  throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFolder, "%@",
                      CString::sprintf(format->getStringRef(), CString::nullToEmptyString(wanted)->getStringRef(),
                                       CSTR(platform::errorText(error))->getStringRef()));
}

void makeFoldersAbove(const std::string& folder, const CStringRef& wanted) {
  for (std::string::size_type end = folder.find('/', 1); end != std::string::npos; end = folder.find('/', end + 1)) {
    const std::string above = folder.substr(0, end);
    const int error = make(above, 0777);
    struct stat facts;
    // A folder that is there may be refused for other reasons than being there, such as a read-only volume.
    const bool isThere = error != 0 && ::stat(above.c_str(), &facts) == 0;
    if (error != 0 && !isThere) throwNotMade(above, wanted, error);
  }
}

}  // namespace

void CSharedStorageUtils::makeDir(const CStringRef& path, mode_t mode) {
  std::string folder = pathBytes(path);
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  if (!pathExists(path)) {
    makeFoldersAbove(folder, path);
    const int error = make(folder, mode);
    // chmod, because the process's mask takes permissions away.
    if (error == 0 && ::chmod(folder.c_str(), mode) != 0) throwNotMade(folder, path, errno);
    if (error != 0 && error != EEXIST) throwNotMade(folder, path, error);
  }
  struct stat facts;
  if (folder.empty() || ::stat(folder.c_str(), &facts) != 0) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFolder, "path not present: [%@]", path);
  }
  if (!S_ISDIR(facts.st_mode)) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFolder, "Path [%@] not a directory", path);
  }
}

}  // namespace tovan
