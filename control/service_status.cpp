// Whether a service runs.
#include <tovan/service_installation.h>

#include "control/process_alive.h"

#include <tovan/service_pid_file.h>

#include <plinth/exception.h>

#include <algorithm>
#include <cstdint>
#include <vector>

bool isServiceRunning(CFStringRef name) {
  if (name == nullptr) return false;
  std::vector<std::int32_t> pids;
  try {
    const tovan::CServicePIDFile file(name);
    file.get(pids);
  } catch (const plinth::CException&) {
    return false;
  }
  return std::any_of(pids.begin(), pids.end(), tovan::isAlive);
}
