// storage_wait.h: what goes on while tovanctl waits for the daemon's storage.
#pragma once

#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFRunLoop.h>
#include <plinth/shared_cf_ref.h>

#include <optional>
#include <string>

#include "tools/tovanctl/process.h"

namespace tovanctl {

// As long as it lives, the run loop of the thread that made it watches over a wait that turns the loop. After a second
// a terminal shows how long the wait has lasted and what the daemon does meanwhile. The wait is left with a
// CommandError when the daemon ends (kNoDaemon) and at Ctrl-C (kFailed), if those are caught (interrupt.h).
class StorageWait {
 public:
  // What is waited for, such as "publishing /a"; the daemon lives as long.
  StorageWait(std::string what, const ProcessHold& daemon);
  ~StorageWait();
  StorageWait(const StorageWait&) = delete;
  StorageWait& operator=(const StorageWait&) = delete;

  // CommandError(kTimedOut): no answer came within the seconds. Says what the daemon was doing.
  [[noreturn]] void fail(double timeout) const;

 private:
  static void lookDue(CFRunLoopTimerRef timer, void* wait);
  static void activityArrived(CFNotificationCenterRef center, void* wait, CFStringRef name, const void* object,
                              CFDictionaryRef userInfo);
  void look();
  void ask();
  void show();
  double elapsed() const;
  // "; the daemon has been mounting ... for 12 s"; empty when it does nothing, or did not say.
  std::string activityText() const;

  const std::string what_;
  const ProcessHold& daemon_;
  const Deadline began_;
  const std::string id_;  // of the questions that this wait asks
  plinth::CSharedCFRef<CFRunLoopTimerRef> timer_;
  std::string operation_;
  double operationSeconds_ = 0;
  int secondsShown_ = 0;
};

}  // namespace tovanctl
