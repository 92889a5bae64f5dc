// CSharedStorageUtils: the storage information file.
#include <tovan/shared_storage_utils.h>

#include <plinth/exception.h>
#include <plinth/shared_cf_ref.h>
#include <tovan/cf_util.h>
#include <tovan/constants.h>

#include <CoreFoundation/CFPropertyList.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include "platform/system/descriptor.h"
#include "platform/system/locked_file.h"
#include "storage/path_bytes.h"
#include "storage/storage_failure.h"
#include "storage/storage_names.h"

namespace tovan {

using platform::Descriptor;
using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CURLRef;

namespace {

constexpr mode_t kFileMode = 0644;

CStringRef inFolder(const CStringRef& folder, const char* name) {
  return CString::sprintf("%@/%s", folder->getStringRef(), name);
}

bool fill(const Descriptor& file, CFDataRef data) {
  const CFIndex length = CFDataGetLength(data);
  return platform::reserveSpace(file.get(), length) &&
         platform::writeAll(file, CFDataGetBytePtr(data), static_cast<std::size_t>(length)) &&
         ::ftruncate(file.get(), length) == 0;
}

// In place, with the room reserved first. The folder is open to others: what is there is written into only when it is a
// plain file with no second name elsewhere. A new file that cannot be filled goes again. That the mode of a file of
// somebody else's cannot be set is no failure.
bool writeInfo(const std::string& path, CFDataRef data) {
  constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  Descriptor file = Descriptor::open(path.c_str(), kFlags | O_CREAT | O_EXCL, kFileMode);
  const bool isNew = static_cast<bool>(file);
  if (!isNew) file = Descriptor::open(path.c_str(), kFlags);
  struct stat facts;
  if (!file || ::fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode) || facts.st_nlink > 1) return false;
  if (!fill(file, data)) {
    if (isNew) ::unlink(path.c_str());
    return false;
  }
  ::fchmod(file.get(), kFileMode);
  return true;
}

CSharedCFRef<CFDataRef> infoList(const CStringRef& id) {
  const CSharedCFRef<CFMutableDictionaryRef> info = CFUtil::CFDictMakeMutable();
  CFUtil::CFDictSetString(info.get(), CSTR(kStorageInfoKey)->getStringRef(),
                          CString::nullToEmptyString(id)->getStringRef());
  return CFPropertyListCreateData(kCFAllocatorDefault, info.get(), kCFPropertyListXMLFormat_v1_0, 0, nullptr);
}

void addMarker(const std::string& path) {
  const Descriptor file = Descriptor::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, kFileMode);
  if (file) ::fchmod(file.get(), kFileMode);
}

}  // namespace

void CSharedStorageUtils::addSharedInfoFile(const CURLRef& url, const CStringRef& id) {
  if (url.isNull()) throw plinth::CNullPointerException("Error: url is null!");
  const CStringRef folder = url->getFileSystemPath();
  if (pathBytes(folder).empty()) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFound, "Non-existent path = [%@]",
                        url->getString());
  }
  if (!pathIsDirectory(folder)) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFolder, "Path [%@] not a directory", folder);
  }
  if (!pathIsRW(folder)) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotAccessible, "Path [%@] not read/write",
                        folder);
  }
  const CStringRef path = inFolder(folder, kStorageInfoFileName);
  const CSharedCFRef<CFDataRef> info = infoList(id);  // null for an identifier that XML can't carry
  if (info.isNull() || !writeInfo(path->str(), info.get())) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotDone, "Couldn't write info file [%@]", path);
  }
  addMarker(inFolder(folder, kNeverIndexFileName)->str());
}

void CSharedStorageUtils::addJobsInfoFile(const CURLRef& url, const CStringRef& id) {
  if (url.isNull()) throw plinth::CNullPointerException("Error: url is null!");
  const CURLRef jobs = url->copyAndAppendString(CSTR(TovanCorePrivate::kTovanSpooledJobsSubPath), true);
  makeDir(jobs->getFileSystemPath(), 0777);
  addSharedInfoFile(jobs, id);
}

}  // namespace tovan
