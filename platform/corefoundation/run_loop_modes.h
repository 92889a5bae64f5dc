// run_loop_modes.h: the modes of one run loop, and the timers and sources in them. Everything is guarded by the run
// loops' lock.
//
// Whoever takes something out holds a reference to it until the lock is free: the last one to go may call a context's
// release function.
#pragma once

#include "platform/corefoundation/run_loop_items.h"

#include <list>
#include <set>
#include <tuple>
#include <vector>

namespace cf {

struct FiresEarlier {
  using is_transparent = void;
  static CFRunLoopTimerRef timerOf(CFRunLoopTimerRef timer) noexcept { return timer; }
  static CFRunLoopTimerRef timerOf(const Owned<CFRunLoopTimerRef>& timer) noexcept { return timer.get(); }
  static auto place(CFRunLoopTimerRef timer) noexcept {
    return std::tie(timer->queuedFor, timer->order, timer->sequence);
  }

  template <class Left, class Right>
  bool operator()(const Left& left, const Right& right) const noexcept {
    return place(timerOf(left)) < place(timerOf(right));
  }
};

using TimerQueue = std::set<Owned<CFRunLoopTimerRef>, FiresEarlier>;
using SourceList = std::vector<Owned<CFRunLoopSourceRef>>;  // by order

struct Mode {
  explicit Mode(CFStringRef nameOfMode, bool isCommonMode)
      : name(CFStringCreateCopy(nullptr, nameOfMode)), isCommon(isCommonMode) {}

  Owned<CFStringRef> name;
  bool isCommon;
  TimerQueue timers;
  SourceList sources;
  TimerQueue::node_type moving;  // a timer on its way from one place of the queue to another
};

// The names of the modes into which, or out of which, a source has come.
using ModeNames = std::vector<Owned<CFStringRef>>;

class Modes {
 public:
  // The default mode is there, and common.
  Modes();

  // Null when there is no such mode.
  Mode* find(CFStringRef name) noexcept;
  bool isCommon(CFStringRef name) noexcept;
  // The common sources, which have come into the mode.
  SourceList addCommon(CFStringRef name);

  // For one mode, or kCFRunLoopCommonModes. The names are those of the modes that did change.
  void add(CFRunLoopTimerRef timer, CFStringRef name);
  void remove(CFRunLoopTimerRef timer, CFStringRef name) noexcept;
  bool contains(CFRunLoopTimerRef timer, CFStringRef name) noexcept;
  ModeNames add(CFRunLoopSourceRef source, CFStringRef name);
  ModeNames remove(CFRunLoopSourceRef source, CFStringRef name);
  bool contains(CFRunLoopSourceRef source, CFStringRef name) noexcept;

  // In any mode at all.
  bool contains(CFRunLoopTimerRef timer) noexcept;
  bool contains(CFRunLoopSourceRef source) noexcept;
  void removeEverywhere(CFRunLoopTimerRef timer) noexcept;
  ModeNames removeEverywhere(CFRunLoopSourceRef source);

  // Moves a timer to the place in its modes that belongs to a time.
  void requeue(CFRunLoopTimerRef timer, MonotonicTime queuedFor) noexcept;

  // A timer may come more than once, a source comes once.
  std::vector<Owned<CFRunLoopTimerRef>> allTimers() const;
  SourceList allSources() const;

 private:
  Mode& findOrAdd(CFStringRef name);
  void forgetIfEmpty(CFStringRef name) noexcept;

  std::list<Mode> modes_;
  std::vector<Owned<CFRunLoopTimerRef>> commonTimers_;
  SourceList commonSources_;
};

}  // namespace cf
