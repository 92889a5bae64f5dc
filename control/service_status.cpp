// Whether a service runs.
#include <tovan/service_installation.h>

#include <tovan/service_pid_file.h>

#include <plinth/exception.h>

#include <signal.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace {

// 0 and negative numbers address groups of processes, never one.
bool isAlive(std::int32_t pid) { return pid > 0 && ::kill(pid, 0) == 0; }

}  // namespace

bool isServiceRunning(CFStringRef name) {
  if (name == nullptr) return false;
  std::vector<std::int32_t> pids;
  try {
    const tovan::CServicePIDFile file(name);
    file.get(pids);
  } catch (const plinth::CException&) {
    return false;
  }
  return std::any_of(pids.begin(), pids.end(), isAlive);
}
