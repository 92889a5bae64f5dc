#include "plist/configuration_folder.h"

#include <tovan/constants.h>

#include <sys/stat.h>

#include <cerrno>

#include "plist/path_text.h"

namespace tovan {

bool makeConfigurationFolderOf(const std::string& path) {
  const std::string folder = pathText(expandedPath(TovanCorePrivate::kTovanConfigPath).get());  // ends in "/"
  const std::string home = pathText(plinth::CSharedCFRef<CFStringRef>(CFileUtil::getHomeDirectory()).get());
  if (folder.empty() || home.empty() || path.compare(0, folder.size(), folder) != 0) return false;
  if (path.find('/', folder.size()) != std::string::npos) return false;
  for (std::size_t end = folder.find('/', home.size() + 1); end != std::string::npos; end = folder.find('/', end + 1)) {
    if (::mkdir(folder.substr(0, end).c_str(), S_IRWXU) != 0 && errno != EEXIST) return false;
  }
  return true;
}

}  // namespace tovan
