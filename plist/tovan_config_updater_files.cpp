// Where the updater's files lie, and how it copies them.
#include <tovan/tovan_config_updater.h>

#include <plinth/exception.h>
#include <tovan/constants.h>
#include <tovan/framework_location.h>

#include <CoreFoundation/CFURL.h>

#include <sys/stat.h>

#include <cerrno>

#include "platform/system/locked_file.h"
#include "plist/path_text.h"
#include "plist/updater_files.h"

namespace tovan {
namespace {

using plinth::CSharedCFRef;
using plinth::CStringRef;

constexpr unsigned int kAllModeBits = 07777;

// In the order of FileIndex.
TovanConfigUpdater::FilePaths standardPaths() {
  const CStringRef user = plinth::CSTR(TovanCorePrivate::kTovanConfigFilePath);
  return {user, plinth::CSTR(user->str() + ".default"),
          plinth::CSTR("@Frameworks/Mervane.framework/Resources/LumisphereConfig.plist.default")};
}

// The folder that holds the frameworks, without a slash at its end.
std::string frameworksFolder() {
  const CSharedCFRef<CFURLRef> cluster(getMervaneFrameworkURL());
  if (cluster) {
    const CSharedCFRef<CFURLRef> folder(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, cluster.get()));
    const CSharedCFRef<CFStringRef> path(CFURLCopyFileSystemPath(folder.get(), kCFURLPOSIXPathStyle));
    return pathText(path.get());
  }
  std::string installed = TovanCorePrivate::kTovanFrameworksInstallPath;
  installed.pop_back();
  return installed;
}

std::string textOf(const CStringRef& path) { return path ? path->str() : std::string(); }

}  // namespace

TovanConfigUpdater::TovanConfigUpdater(std::ostream& stream) : TovanConfigUpdater(stream, standardPaths()) {}

TovanConfigUpdater::TovanConfigUpdater(std::ostream& stream, const FilePaths& paths) : stream_(stream), given_(paths) {
  resolveFilePaths();
}

TovanConfigUpdater::~TovanConfigUpdater() = default;

// ---- Paths

const CStringRef& TovanConfigUpdater::filePath(FileIndex index) const { return resolved_[index]; }

void TovanConfigUpdater::resolveFilePaths() {
  for (std::size_t index = 0; index < given_.size(); ++index) resolved_[index] = resolveFilePath(given_[index]);
}

CStringRef TovanConfigUpdater::resolveFilePath(const CStringRef& path) {
  if (isUserHomeBasedFilePath(path)) return resolveUserHomeBasedFilePath(path);
  if (isRelativeFilePath(path)) return resolveRelativeFilePath(path);
  return path;
}

bool TovanConfigUpdater::isUserHomeBasedFilePath(const CStringRef& path) { return textOf(path).starts_with('~'); }

CStringRef TovanConfigUpdater::resolveUserHomeBasedFilePath(const CStringRef& path) {
  return plinth::CSTR(expandedPath(path->getStringRef()).get());
}

bool TovanConfigUpdater::isRelativeFilePath(const CStringRef& path) { return textOf(path).starts_with('@'); }

CStringRef TovanConfigUpdater::resolveRelativeFilePath(const CStringRef& path) {
  const std::string base = "@Frameworks";
  const std::string given = path->str();
  if (!given.starts_with(base + "/")) {
    throw plinth::CFileException("TovanConfigUpdater: file \"%s\" has an unknown base location", given.c_str());
  }
  return plinth::CSTR(frameworksFolder() + given.substr(base.size()));
}

// ---- Files

void TovanConfigUpdater::copyFile(const CStringRef& from, const CStringRef& to, unsigned int mode) const {
  const std::string source = textOf(from);
  const std::string target = textOf(to);
  struct stat facts {};
  if (::stat(source.c_str(), &facts) != 0) throwUpdaterFailure(__func__, "stat", source, errno);
  CSharedCFRef<CFDataRef> content;
  {
    const platform::Descriptor file = platform::openLocked(source.c_str(), platform::FileLock::shared);
    if (!file) throwUpdaterFailure(__func__, "open", source, errno);
    content = contentOf(file.get(), source);
  }
  replaceFile(target, content.get());
  // Deliberately not when it is 0600, which new files have.
  if (mode == 0 || mode == kFileMode) return;
  if (::chmod(target.c_str(), static_cast<mode_t>(mode)) != 0) throwUpdaterFailure(__func__, "chmod", target, errno);
}

void TovanConfigUpdater::setFilePermissions(const CStringRef& path, unsigned int mode) const {
  const std::string file = textOf(path);
  struct stat facts {};
  if (::stat(file.c_str(), &facts) != 0) throwUpdaterFailure(__func__, "stat", file, errno);
  if ((facts.st_mode & kAllModeBits) == mode) return;
  if (::chmod(file.c_str(), static_cast<mode_t>(mode)) != 0) throwUpdaterFailure(__func__, "chmod", file, errno);
}

void TovanConfigUpdater::throwFileNotFoundException(const CStringRef& path) const {
  throw plinth::CFileException("TovanConfigUpdater: file \"%s\" not found", textOf(path).c_str());
}

void TovanConfigUpdater::requirePresent(FileIndex index) const {
  if (!isFilePresent(filePath(index))) throwFileNotFoundException(filePath(index));
}

// What would be installed has to be readable: an unreadable configuration would stop every program of the cluster.
CSharedCFRef<CFDataRef> TovanConfigUpdater::shippedDefaults() const {
  requirePresent(kMasterFile);
  return contentOfMaster(CPropertyListBasicFile(pathOf(kMasterFile), CPropertyListBasicFile::kOpenForRead));
}

// A file that is missing or empty reads as a dictionary without entries: those are no defaults.
CSharedCFRef<CFDataRef> TovanConfigUpdater::contentOfMaster(const CPropertyListBasicFile& master) const {
  if (master.fileLock().isNull()) throwFileNotFoundException(filePath(kMasterFile));
  CSharedCFRef<CFDataRef> defaults = contentOf(master.fileLock()->descriptor(), textOf(filePath(kMasterFile)));
  if (CFDataGetLength(defaults.get()) == 0) {
    throw plinth::CFileException("TovanConfigUpdater: file \"%s\" is empty", textOf(filePath(kMasterFile)).c_str());
  }
  return defaults;
}

bool TovanConfigUpdater::isFilePresent(const CStringRef& path) const { return fileExists(textOf(path).c_str()); }

bool TovanConfigUpdater::isEqual(CFStringRef a, CFStringRef b) {
  if (a == nullptr || b == nullptr) return a == b;
  return CFEqual(a, b) != 0;
}

}  // namespace tovan
