// Whether the daemon of this library's version, or another one, runs.
#include <tovan/daemon_control.h>

#include "control/daemon_process.h"
#include "control/process_alive.h"

#include <tovan/service_pid_file.h>

#include <plinth/exception.h>
#include <plinth/process_utilities.h>
#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <vector>

using plinth::CSharedCFRef;
using plinth::ProcessUtilities;
using tovan::CServicePIDFile;

namespace {

bool hasCurrentVersion(CServicePIDFile& file, std::int32_t pid) {
  CSharedCFRef<CFStringRef> kind, name, version;
  return file.processAttributes(pid, kind, name, version) && version && CFEqual(version.get(), tovan::daemonVersion());
}

bool isNamedAsDaemon(std::int32_t pid) {
  const plinth::CStringRef name = ProcessUtilities::FindProcessNameForProcess(pid);
  return name && CFEqual(name->getStringRef(), tovan::daemonName());
}

bool hasCurrentDaemon(CServicePIDFile& file) {
  std::vector<std::int32_t> pids;
  file.get(pids);
  return std::any_of(pids.begin(), pids.end(), [&file](std::int32_t pid) {
    return tovan::isAlive(pid) && isNamedAsDaemon(pid) && hasCurrentVersion(file, pid);
  });
}

// Whether the process is listed, alive, and of the current version.
bool isRegistered(CServicePIDFile& file, pid_t daemon) {
  std::vector<std::int32_t> pids;
  file.get(pids);
  return std::find(pids.begin(), pids.end(), daemon) != pids.end() && tovan::isAlive(daemon) &&
         hasCurrentVersion(file, daemon);
}

}  // namespace

bool isDaemonRunning() {
  try {
    CServicePIDFile file(tovan::daemonName());
    return hasCurrentDaemon(file);
  } catch (const plinth::CException&) {
    return false;
  }
}

bool IsOtherVersionOfDaemonRunning() {
  pid_t daemon = 0;
  if (!ProcessUtilities::FindProcessWithName(plinth::CSTR(tovan::daemonName()), daemon, ::geteuid())) return false;
  try {
    CServicePIDFile file(tovan::daemonName());
    return !isRegistered(file, daemon);
  } catch (const plinth::CException&) {
    return true;
  }
}
