#include "storage/subexport.h"

#include <tovan/cf_util.h>
#include <tovan/shared_storage.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <string>

#include "platform/system/error_text.h"
#include "platform/system/transient_lock.h"
#include "storage/local_url.h"
#include "storage/path_bytes.h"
#include "storage/storage_failure.h"

namespace tovan {

using plinth::CException;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CURLRef;

namespace {

std::string pathOf(const CURLRef& url) { return pathBytes(url->getFileSystemPath()); }

CURLRef fileURL(const std::string& path, bool isFolder) {
  return plinth::makeShared<plinth::CURL>(CSTR(path), kCFURLPOSIXPathStyle, isFolder);
}

void refuseExFAT(const CStringRef& path) {
  if (!CSharedStorageUtils::isExFATBasedPath(path)) return;
  const CStringRef format = ISharedStorage::localizedStringForKey(CSTR("ExFATExportNotSupported"));
  throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotSupported, "%@",
                      CString::sprintf(format->getStringRef(), path->getStringRef()));
}

platform::Descriptor lockBeside(const CURLRef& parent) {
  const std::string path = pathOf(parent) + "/" + kSubexportLockName;
  platform::Descriptor lock = platform::openTransientLock(path.c_str());
  if (lock) return lock;
  const int error = errno;
  throw CException(plinth::kExceptionTypeSystemCall, error, "Couldn't create lock file: %s (errno = %d)", path.c_str(),
                   error);
}

// A link in the folder's place could lead anywhere.
void refuseOtherThanFolder(const CURLRef& folder) {
  struct stat facts;
  if (::lstat(pathOf(folder).c_str(), &facts) == 0 && !S_ISDIR(facts.st_mode)) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFolder, "Path [%@] not a directory",
                        folder->getFileSystemPath());
  }
}

// 0 or errno.
int linkFile(const std::string& file, const std::string& link) {
  return ::linkat(AT_FDCWD, file.c_str(), AT_FDCWD, link.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

// The template with its last six characters, "XXXXXX", replaced.
std::string filledIn(std::string pattern) {
  constexpr char kCharacters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  constexpr std::size_t kPlaces = 6;
  std::random_device random;
  std::uniform_int_distribution<std::size_t> choice(0, sizeof kCharacters - 2);
  for (std::size_t place = pattern.size() - kPlaces; place < pattern.size(); ++place) {
    pattern[place] = kCharacters[choice(random)];
  }
  return pattern;
}

// Links the file under a name of its own beside the one that is taken. It is the linking itself that finds out whether
// a name is free, so nobody can come in between. Changes `link` to the new name; 0 or errno.
int linkUnderNewName(const std::string& file, std::string& link) {
  constexpr int kAttempts = 100;
  const CURLRef wanted = fileURL(link, false);
  const CStringRef extension = wanted->getPathExtension();
  const std::string pattern = pathOf(wanted->copyWithoutPathExtension()) + "XXXXXX";
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    link = filledIn(pattern) + (extension ? "." + extension->str() : "");
    if (attempt == 0) {
      CFUtil::LogToConsole(CString::sprintf("link() failed: file %s already exists, trying to link again as %s.\n",
                                            pathOf(wanted).c_str(), link.c_str())
                               ->getUTF8Ptr());
    }
    const int error = linkFile(file, link);
    if (error != EEXIST) return error;
  }
  throw CException(plinth::kExceptionTypeSystemCall, EEXIST, "mktemp(%s) failed: %s", pattern.c_str(),
                   platform::errorText(EEXIST).c_str());
}

void copyFinderCodes(const CURLRef& from, const CURLRef& to) {
  if (from->getFinderType() == to->getFinderType() && from->getFinderCreator() == to->getFinderCreator()) return;
  to->setFinderTypeAndCreator(from->getFinderType(), from->getFinderCreator());
}

[[noreturn]] void throwNotRemoved(const char* format, const std::string& path, int error) {
  const CStringRef text = CString::sprintf(format, path.c_str(), platform::errorText(error).c_str());
  throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotSupported, "%@", text);
}

}  // namespace

Subexport makeSubexport(const CURLRef& file) {
  if (file.isNull()) throw plinth::CNullPointerException("Error: url is null!");
  if (!namesLocalFile(file)) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFound, "Non-existent path = [%@]",
                        file->getString());
  }
  refuseExFAT(file->getFileSystemPath());
  const CURLRef parent = CSharedStorageUtils::normalizedURL(file->copyWithoutLastPathComponent());
  const CURLRef folder = parent->copyAndAppendString(CSTR(kSubexportFolderName), true);
  const std::string source = pathOf(file);
  std::string link = pathOf(folder->copyAndAppendString(file->getLastPathComponent(), false));
  platform::Descriptor lock = lockBeside(parent);
  refuseOtherThanFolder(folder);
  CSharedStorageUtils::makeDir(folder->getFileSystemPath(), 0777);
  int error = linkFile(source, link);
  if (error == ENOENT) {
    // Somebody's end of another sub-export took the folder away in between.
    CSharedStorageUtils::makeDir(folder->getFileSystemPath(), 0777);
    error = linkFile(source, link);
  }
  if (error == EEXIST) error = linkUnderNewName(source, link);
  lock.reset();
  if (error != 0) {
    throw CException(plinth::kExceptionTypeSystemCall, error, "Source subexp link(%s, %s) failed: %s", source.c_str(),
                     link.c_str(), platform::errorText(error).c_str());
  }
  const CURLRef linkURL = fileURL(link, false);
  copyFinderCodes(file, linkURL);
  return {folder, linkURL};
}

CURLRef subexportFolderOf(const CURLRef& link) {
  if (link.isNull()) throw plinth::CNullPointerException("Error: url is null!");
  const std::string path = pathOf(link);
  const std::string::size_type slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash);
  const std::string ending = std::string("/") + kSubexportFolderName;
  const bool isOurs =
      folder.size() > ending.size() && folder.compare(folder.size() - ending.size(), ending.size(), ending) == 0;
  if (!isOurs) throwNotRemoved("Couldn't remove subexp link: %s (%s)", link->getString()->str(), EINVAL);
  return fileURL(folder, true);
}

void removeSubexportLink(const CURLRef& link) {
  const CURLRef folder = subexportFolderOf(link);
  const std::string path = pathOf(link);
  refuseOtherThanFolder(folder);
  const platform::Descriptor lock = lockBeside(folder->copyWithoutLastPathComponent());
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    throwNotRemoved("Couldn't remove subexp link: %s (%s)", path, errno);
  }
}

void removeSubexportFolder(const CURLRef& link) {
  const CURLRef folder = subexportFolderOf(link);
  const std::string path = pathOf(folder);
  refuseOtherThanFolder(folder);
  const platform::Descriptor lock = lockBeside(folder->copyWithoutLastPathComponent());
  if (!CSharedStorageUtils::pathExists(folder->getFileSystemPath())) return;
  for (const CStringRef& name : CSharedStorageUtils::getDirContents(folder->getFileSystemPath())) {
    if (name->str() != kStorageInfoFileName && name->str() != kNeverIndexFileName) return;
  }
  ::unlink((path + "/" + kStorageInfoFileName).c_str());
  ::unlink((path + "/" + kNeverIndexFileName).c_str());
  // Another's link, made in this moment, keeps the folder.
  if (::rmdir(path.c_str()) != 0 && errno != ENOENT && errno != ENOTEMPTY) {
    throwNotRemoved("Couldn't remove subexp directory: %s (%s)", path, errno);
  }
}

}  // namespace tovan
