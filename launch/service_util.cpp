#include <tovan/service_util.h>

#include "platform/system/descriptor.h"
#include "platform/system/scoped_umask.h"

#include <tovan/file_util.h>
#include <tovan/tovan_config_file.h>

#include <plinth/string.h>

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>
#include <utility>

namespace tovan {

using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CStringRef;

namespace {

// Makes every stream a name of the file, which may have got the number of one of them, and closes its other names.
void redirect(std::initializer_list<int> streams, platform::Descriptor file) {
  if (!file) return;
  bool isStream = false;
  for (const int stream : streams) {
    if (file.get() == stream) {
      isStream = true;
      ::fcntl(stream, F_SETFD, 0);
    } else {
      ::dup2(file.get(), stream);
    }
  }
  if (isStream) static_cast<void>(file.release());
}

platform::Descriptor openForAppending(const CStringRef& path) {
  const platform::ScopedUmask umask(0);
  return platform::Descriptor::open(path->getUTF8Ptr(), O_RDWR | O_APPEND | O_CREAT | O_NOCTTY, 0666);
}

}  // namespace

int CServiceUtil::launchFlagForService(const CServiceCacheEntry& entry) {
  const CStringRef hint = CSTR(entry.launchHint());
  return hint && hint->beginsWith(CSTR("launchd.")) ? kLaunchedByLaunchd : kLaunchedByDaemon;
}

void CServiceUtil::setupStdStreams() {
  redirect({STDIN_FILENO}, platform::Descriptor::open("/dev/null", O_RDONLY));
  const CTovanConfigFile cluster;
  const CSharedCFRef<CFStringRef> path(CFileUtil::expandTildeInPath(cluster.stdoutPath.get()));
  if (path) redirect({STDOUT_FILENO, STDERR_FILENO}, openForAppending(CSTR(path.get())));
}

}  // namespace tovan
