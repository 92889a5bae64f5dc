// CSharedStorageUtils: questions about paths.
#include <tovan/shared_storage_utils.h>

#include <plinth/exception.h>
#include <tovan/file_util.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>

#include "platform/system/error_text.h"
#include "storage/file_system_path.h"
#include "storage/local_url.h"
#include "storage/path_bytes.h"
#include "storage/storage_failure.h"

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CURLRef;

namespace {

bool mayAccess(const CStringRef& path, int mode) {
  const std::string bytes = pathBytes(path);
  return !bytes.empty() && ::faccessat(AT_FDCWD, bytes.c_str(), mode, AT_EACCESS) == 0;
}

// Resolves as much of the path from its beginning as exists. A ".." behind a missing name could not be resolved.
std::string resolvedWhereItExists(const CStringRef& path) {
  const std::string bytes = pathBytes(path);
  std::string::size_type end = bytes.size();
  for (;;) {
    const std::string real = realPath(end == 0 ? "/" : bytes.substr(0, end));
    if (real.empty()) {
      const int error = errno;
      struct stat facts;
      const bool leadsNowhere = ::lstat(bytes.substr(0, end).c_str(), &facts) == 0;  // a link
      if (error != ENOENT || end == 0 || leadsNowhere) throwUnresolved(path, error);
    }
    if (!real.empty()) {
      const std::string rest = bytes.substr(end);
      if ((rest + "/").find("/../") != std::string::npos) throwUnresolved(path, ENOENT);
      return real == "/" && !rest.empty() ? rest : real + rest;
    }
    end = bytes.rfind('/', end - 1);
  }
}

[[noreturn]] void throwUnlisted(const CStringRef& path, const char* call, int error) {
  const CStringRef text =
      CString::sprintf("[%ld] CSharedStorageUtils::getDirContents(): %s(%@) failed: %s", static_cast<long>(::getpid()),
                       call, path->getStringRef(), platform::errorText(error).c_str());
  throwStorageFailure(kSharedStorageExceptionSystem, kSharedStorageNotDone, "%@", text);
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

}  // namespace

bool CSharedStorageUtils::pathExists(const CStringRef& path) {
  const std::string bytes = pathBytes(path);
  return !bytes.empty() && fileExists(bytes.c_str());
}

bool CSharedStorageUtils::pathIsDirectory(const CStringRef& path) {
  struct stat facts;
  if (::stat(pathBytes(path).c_str(), &facts) != 0) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFound, "Non-existent path = [%@]", path);
  }
  return S_ISDIR(facts.st_mode);
}

bool CSharedStorageUtils::pathIsReadable(const CStringRef& path) { return mayAccess(path, R_OK); }

bool CSharedStorageUtils::pathIsWritable(const CStringRef& path) { return mayAccess(path, W_OK); }

bool CSharedStorageUtils::pathIsRW(const CStringRef& path) { return mayAccess(path, R_OK | W_OK); }

CStringRef CSharedStorageUtils::normalizedPath(const CStringRef& path) { return resolvedPath(path); }

CURLRef CSharedStorageUtils::normalizedURL(const CURLRef& url) {
  if (url.isNull()) throw plinth::CNullPointerException("Error: url is null!");
  if (!namesLocalFile(url)) return url;
  CStringRef path = url->getFileSystemPath();
  if (path.isNull()) throwUnresolved(url->getString(), EILSEQ);
  const bool isRelative = path->isEmpty() || path->str().front() != '/';
  if (isRelative) path = CSTR(realPath(".") + "/" + path->str());
  const CStringRef real = CSTR(resolvedWhereItExists(path));
  if (real.isNull()) throwUnresolved(path, EILSEQ);
  const bool isFolder = CFURLHasDirectoryPath(url->getURLRef()) || (pathExists(real) && pathIsDirectory(real));
  return plinth::makeShared<plinth::CURL>(real, kCFURLPOSIXPathStyle, isFolder);
}

std::vector<CStringRef> CSharedStorageUtils::getDirContents(const CStringRef& path) {
  if (!pathIsDirectory(path)) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFolder, "Path [%@] not a directory", path);
  }
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir(pathBytes(path).c_str()));
  if (!folder) throwUnlisted(path, "opendir", errno);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
    errno = 0;
  }
  if (errno != 0) throwUnlisted(path, "readdir", errno);
  std::sort(names.begin(), names.end());
  std::vector<CStringRef> contents;
  for (const std::string& name : names) {
    if (CStringRef text = CSTR(name)) contents.push_back(text);
  }
  return contents;
}

}  // namespace tovan
