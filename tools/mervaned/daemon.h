// daemon.h: what the daemon answers, and how it ends. docs/daemon.md is its contract.
#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFRunLoop.h>
#include <plinth/shared_cf_ref.h>

#include <optional>
#include <string>

#include "tools/mervaned/options.h"
#include "tools/mervaned/storage.h"
#include "tools/mervaned/supervisor.h"
#include "tools/support/process_log.h"
#include "tools/support/termination_signals.h"

namespace mervaned {

// One object on one thread, whose run loop run() turns.
class Daemon {
 public:
  enum class End { stop, restart };

  // Observes the requests from here on.
  explicit Daemon(const Options& options);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  // Announces the daemon, starts the enabled services and answers requests until it is to end, every service process
  // has ended, and then the storage, or its time is over.
  End run();
  // Whether a storage command that does not end was left behind: the process is to leave without waiting for its
  // threads.
  bool hasLeftStorage() const noexcept { return !storage_.isOver(); }

 private:
  static void notified(CFNotificationCenterRef center, void* daemon, CFStringRef name, const void* object,
                       CFDictionaryRef userInfo);
  static void clientCheckDue(CFRunLoopTimerRef timer, void* daemon);
  void answer(CFStringRef name, CFDictionaryRef userInfo);

  void preferencesChanged(CFDictionaryRef userInfo);
  void syncAll();
  void syncService(const std::string& name, bool enabled);
  void restartService(const std::string& name, double limit);
  void restartServicesOfKind(CFDictionaryRef request);
  void taskEnded(CFDictionaryRef userInfo);
  void checkClients() const;

  void signalled();
  void end(End how, double limit);
  void endStorage();
  bool awaitStorage(double seconds, bool mayBeCutShort);
  double limitOf(CFDictionaryRef request) const;

  const Options options_;
  Supervisor supervisor_;
  tools::TerminationSignals signals_;
  Storage storage_;
  plinth::CSharedCFRef<CFRunLoopTimerRef> clientTimer_;
  bool isEnding_ = false;
  bool isSignalled_ = false;
  bool isHurried_ = false;
  std::optional<tools::LogScope> ending_;
  End end_ = End::stop;
};

}  // namespace mervaned
