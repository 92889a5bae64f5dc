#include "tools/tovanctl/storage_hold.h"

#include <CoreFoundation/CFRunLoop.h>
#include <tovan/notifications.h>

#include <utility>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/output.h"

namespace tovanctl {
namespace {

constexpr double kSlice = 0.1;  // seconds between two looks for the signal and at the daemon

void noteStart(CFNotificationCenterRef, void* hasStarted, CFStringRef, const void*, CFDictionaryRef) {
  *static_cast<bool*>(hasStarted) = true;
}

class StartObserver {
 public:
  StartObserver() {
    addDaemonObserver(&hasStarted_, noteStart, tovan::TovanNotification::kTovanDaemonStartedNotification);
  }
  ~StartObserver() { unregisterForNotifications(&hasStarted_); }
  StartObserver(const StartObserver&) = delete;
  StartObserver& operator=(const StartObserver&) = delete;

  // Whether a daemon has started since the last call.
  bool takeStart() { return std::exchange(hasStarted_, false); }

 private:
  bool hasStarted_ = false;
};

// The daemon does requests in their order: what it may still be doing is done before it is taken back.
void take(const StorageHold& hold) {
  try {
    hold.take();
  } catch (const CommandError&) {
    if (!wasInterrupted()) throw;
  }
}

}  // namespace

void holdUntilInterrupted(const StorageHold& hold, const StorageDaemon& daemon) {
  StartObserver starts;
  take(hold);
  if (!wasInterrupted()) hold.sayTaken();
  while (!wasInterrupted()) {
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, kSlice, TRUE);
    if (daemon.isGone()) throw CommandError(kNoDaemon, "the daemon ended, and the reference with it");
    if (!starts.takeStart()) continue;
    message("the daemon started anew: taking the reference again");
    take(hold);
  }
  forgetInterrupts();
  hold.giveBack();
  hold.sayGivenBack();
}

}  // namespace tovanctl
