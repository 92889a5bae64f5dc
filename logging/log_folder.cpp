#include "logging/log_folder.h"

#include <plinth/shared_cf_ref.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>

#include "platform/system/scoped_umask.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>

namespace tovan {
namespace {

std::string homeFolder() {
  const plinth::CSharedCFRef<CFStringRef> home(CFileUtil::getHomeDirectory());
  return home ? plinth::CSTR(home.get())->str() : std::string();
}

void makeFolder(const std::string& path, bool setsMode) {
  if (::mkdir(path.c_str(), S_IRWXU) == 0 || errno != EEXIST || !setsMode) return;
  struct stat status;
  if (::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) ::chmod(path.c_str(), S_IRWXU);
}

}  // namespace

plinth::CStringRef logFolder() {
  const plinth::CStringRef folder = plinth::CSTR(TovanCorePrivate::kTovanLogFilePath);
  const plinth::CSharedCFRef<CFStringRef> expanded(CFileUtil::expandTildeInPath(folder->getStringRef()));
  return expanded ? plinth::CSTR(expanded.get()) : folder;
}

void makeLogFolder() {
  const std::string folder = logFolder()->str();  // ends in "/"
  const std::string home = homeFolder();
  if (home.empty()) return;
  const platform::ScopedUmask all(0);
  for (std::size_t end = folder.find('/', home.size() + 1); end != std::string::npos; end = folder.find('/', end + 1)) {
    makeFolder(folder.substr(0, end), end + 1 == folder.size());
  }
}

plinth::CStringRef logPathOf(const plinth::CStringRef& serviceName, unsigned int instance) {
  // The folder ends in "/" already: the path holds two slashes there, which is deliberate.
  plinth::CStringRef path = plinth::CString::sprintf("%@/%@", logFolder()->getStringRef(), serviceName->getStringRef());
  if (instance != 0) path->append(plinth::CString::sprintf("-%ld", static_cast<long>(instance)));
  path->append(".log");
  return path;
}

bool isInLogFolder(const plinth::CStringRef& path) {
  std::string folder = path->str();
  folder.erase(folder.rfind('/') + 1);
  while (folder.ends_with("//")) folder.pop_back();
  return folder == logFolder()->str();
}

}  // namespace tovan
