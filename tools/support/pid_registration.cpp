#include "tools/support/pid_registration.h"

#include <plinth/exception.h>
#include <signal.h>
#include <tovan/service_pid_file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/support/process_log.h"

namespace tools {
namespace {

using tovan::CServicePIDFile;

// 0 and negative numbers stand for groups of processes. One that this user may not signal is somebody else's.
bool isGone(std::int32_t pid) { return pid <= 0 || ::kill(pid, 0) != 0; }

// The file object gives the lock back when it goes.
std::vector<std::int32_t> lockAndRead(CServicePIDFile& file) {
  file.lockForRW();
  file.refresh();
  std::vector<std::int32_t> pids;
  file.get(pids);
  return pids;
}

}  // namespace

PidRegistration::PidRegistration(CFStringRef key, CFStringRef kind, CFStringRef name, CFStringRef version)
    : key_(plinth::CSharedCFRef<CFStringRef>::retaining(key)) {
  CServicePIDFile file(key);
  std::vector<std::int32_t> pids = lockAndRead(file);
  std::erase_if(pids, [](std::int32_t pid) { return isGone(pid) || pid == ::getpid(); });
  pids.push_back(::getpid());
  file.put(pids);
  file.setProcessAttributes(::getpid(), kind, name, version);
}

PidRegistration::~PidRegistration() {
  if (!isKept_) withdrawRegistration(key_.get());
}

void withdrawRegistration(CFStringRef key) {
  try {
    CServicePIDFile file(key);
    std::vector<std::int32_t> pids = lockAndRead(file);
    if (std::erase(pids, ::getpid()) == 0) return;
    file.put(pids);
    file.clearProcessAttributes(::getpid());
  } catch (const plinth::CException& exception) {
    report(kLogFailure, std::string("cannot withdraw the registration: ") + exception.what());
  }
}

std::size_t removeGoneProcesses(CFStringRef key) {
  CServicePIDFile file(key);
  std::vector<std::int32_t> pids;
  file.get(pids);
  if (std::none_of(pids.begin(), pids.end(), isGone)) return 0;
  pids = lockAndRead(file);
  const std::size_t removed = std::erase_if(pids, isGone);
  if (removed > 0) file.put(pids);
  return removed;
}

}  // namespace tools
