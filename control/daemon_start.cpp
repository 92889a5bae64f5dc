// Launching the daemon and waiting for it.
#include <tovan/daemon_control.h>

#include "platform/system/detached_process.h"
#include "platform/system/error_text.h"

#include <tovan/framework_location.h>

#include <plinth/exception.h>
#include <plinth/interval_timer.h>
#include <plinth/shared_cf_ref.h>
#include <plinth/shared_object.h>
#include <plinth/string.h>
#include <plinth/url.h>

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFRunLoop.h>

#include <chrono>
#include <string>

using plinth::CParamException;
using plinth::CSharedCFRef;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{10};
constexpr CFTimeInterval kTurn = 0.1;  // seconds

std::string daemonPath() {
  const CSharedCFRef<CFURLRef> framework(getMervaneFrameworkURL());
  if (!framework) throw CParamException("Mervane.framework not found");
  const plinth::CURLRef url = plinth::makeShared<plinth::CURL>(framework.get());
  return url->copyAndAppendString(plinth::CSTR("Resources/mervaned"), false)->getFileSystemPath()->str();
}

// Whether the daemon came up.
bool waitForDaemon() {
  // Does nothing but keep the run loop from returning at once when it has nothing else.
  plinth::CIntervalTimer keepsLoopWaiting(1000, CFAbsoluteTimeGetCurrent() + 60);
  keepsLoopWaiting.start();
  const Clock::time_point deadline = Clock::now() + kPatience;
  while (!isDaemonRunning() && Clock::now() < deadline) CFRunLoopRunInMode(kCFRunLoopDefaultMode, kTurn, false);
  return isDaemonRunning();
}

}  // namespace

void startDaemon() {
  if (isDaemonRunning()) return;
  const std::string path = daemonPath();
  if (const int error = platform::launchDetached(path); error != 0) {
    throw CParamException(error, "Couldn't launch mervane daemon with path %s, error = %s", path.c_str(),
                          platform::errorText(error).c_str());
  }
  if (!waitForDaemon()) throw CParamException("Couldn't start mervane daemon: PID time-out");
}
