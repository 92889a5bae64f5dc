// Registering as a client of the daemon.
#include <tovan/service_control.h>

#include "platform/system/error_text.h"
#include "platform/system/process_id.h"
#include "platform/system/scoped_umask.h"
#include "plist/path_text.h"

#include <tovan/constants.h>
#include <tovan/service_pid_file.h>

#include <plinth/exception.h>
#include <plinth/shared_cf_ref.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

using plinth::CParamException;
using plinth::CSharedCFRef;
using tovan::CFileUtil;
using tovan::CServicePIDFile;

namespace {

bool folderExists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

// The folders between the home folder and the last component, for this user alone. What cannot be made shows when the
// last one is.
void makeFoldersAbove(const std::string& path) {
  const std::string home = tovan::pathText(CSharedCFRef<CFStringRef>(CFileUtil::getHomeDirectory()).get());
  if (home.empty() || path.compare(0, home.size(), home) != 0) return;
  const std::size_t last = path.find_last_of('/', path.size() - 2);
  for (std::size_t end = path.find('/', home.size() + 1); end < last; end = path.find('/', end + 1)) {
    ::mkdir(path.substr(0, end).c_str(), S_IRWXU);
  }
  ::mkdir(path.substr(0, last).c_str(), S_IRWXU);
}

void makeConfigurationFolder() {
  const std::string path = tovan::pathText(tovan::expandedPath(tovan::TovanCorePrivate::kTovanConfigPath).get());
  if (folderExists(path)) return;
  makeFoldersAbove(path);
  const platform::ScopedUmask umask(0);
  if (::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST) return;
  const int error = errno;
  throw CParamException(error, "Couldn't create directory \"%s\", error = %s", path.c_str(),
                        platform::errorText(error).c_str());
}

bool isListed(const CServicePIDFile& clients, std::vector<std::int32_t>& pids) {
  clients.get(pids);
  return std::find(pids.begin(), pids.end(), platform::processId()) != pids.end();
}

}  // namespace

bool addMervaneClient() {
  makeConfigurationFolder();
  CServicePIDFile clients(CFSTR("mervaneclients"));
  std::vector<std::int32_t> pids;
  if (isListed(clients, pids)) return false;
  // Another process that registers at the same time must find this one, and be found.
  clients.lockForRW();
  clients.refresh();
  if (isListed(clients, pids)) return false;
  pids.push_back(platform::processId());
  clients.put(pids);
  return true;
}
