// interval_timer.h: CIntervalTimer, a callback at regular times on a run loop.
#pragma once

#include <CoreFoundation/CFRunLoop.h>
#include <plinth/export.h>
#include <plinth/shared_cf_ref.h>

#include <functional>

namespace plinth {

// A timer of the run loop on which it is started, in the common modes (the default mode is always one of them). While
// it is installed, a run of that loop waits and does not return for want of something to do, with or without a
// callback.
//
// Times are kept as multiples of the period from the first firing, without drift; periods that go by while the thread
// does something else are made up for by one callback.
//
// Threads: the callback runs on the thread that called start(), while it runs its loop. The other operations belong to
// one thread at a time; destroying the timer on another thread does not wait for a callback that is under way, which
// may end after the destructor has. The callback may destroy its timer. An exception that leaves the callback leaves
// the run of the loop.
class PLINTH_EXPORT CIntervalTimer {
 public:
  // A period in milliseconds; one that is zero, negative or not a number makes a timer that fires once. The first
  // firing as an absolute time (seconds since 2001-01-01 GMT): a time in the past, and what is not a number, is due at
  // once; infinity, and anything a thousand million seconds or more away, is never reached. An empty callback is
  // allowed.
  CIntervalTimer(double periodInMilliseconds, CFAbsoluteTime firstFire, std::function<void()> callback = nullptr);
  CIntervalTimer(const CIntervalTimer&) = delete;
  CIntervalTimer& operator=(const CIntervalTimer&) = delete;
  // Removes the timer from its run loop.
  ~CIntervalTimer();

  // Installs the timer on the calling thread's run loop. Once installed it stays there: calling again, from any thread,
  // changes nothing. A timer that has fired for its only time is not installed again.
  void start();
  // Whether the timer is installed and will fire (again).
  bool isInstalled() const noexcept;

 private:
  CSharedCFRef<CFRunLoopTimerRef> timer_;
  CSharedCFRef<CFRunLoopRef> loop_;  // on which it was started
};

}  // namespace plinth
