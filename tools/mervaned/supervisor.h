// supervisor.h: the instances of all services that the daemon runs.
#pragma once

#include <CoreFoundation/CFRunLoop.h>
#include <plinth/shared_cf_ref.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tools/mervaned/instance.h"
#include "tools/mervaned/options.h"

namespace mervaned {

// Works on the run loop of the thread that made it, with one timer that fires when the next instance has something due.
// That a process has ended is told by taskEnded(); the timer looks as well, now and then, since a notification may be
// lost with the bus.
class Supervisor {
 public:
  // The action is called when an instance has ended and none has a process any more.
  Supervisor(const Options& options, std::function<void()> allEnded);
  // Every process has ended by then.
  ~Supervisor();
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  // Instances 0 to count-1 run; those above are ended.
  void start(const std::string& service, long count);
  void stop(const std::string& service, double limit);
  // Ends the instances that run and brings the service to `count` instances again.
  void restart(const std::string& service, long count, double limit);
  void stopAll(double limit);

  // Whether the service has an instance that is wanted.
  bool runs(const std::string& service) const;
  // The services that have an instance, in whatever state.
  std::set<std::string> services() const;
  // Whether no instance has a process.
  bool isIdle() const;

  // A task with this address has announced its end. Addresses of other processes' tasks do no harm.
  void taskEnded(std::uintptr_t address);

 private:
  static void timerFired(CFRunLoopTimerRef timer, void* supervisor);
  Instance* find(const std::string& service, long index);
  void step();

  const Options options_;
  const std::function<void()> allEnded_;
  std::vector<std::unique_ptr<Instance>> instances_;
  plinth::CSharedCFRef<CFRunLoopTimerRef> timer_;
};

}  // namespace mervaned
