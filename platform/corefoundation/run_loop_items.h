// run_loop_items.h: timers and sources, as run loops see them.
//
// One lock guards the run loops of the process and all that is in them. It is held for moments, never while a callback
// runs, and across a fork, so that the child finds everything in order.
#pragma once

#include "platform/corefoundation/run_loop_schedule.h"
#include "platform/corefoundation/runtime.h"

#include <mutex>
#include <utility>
#include <vector>

namespace cf {

extern std::mutex runLoopMutex;

extern const CFRuntimeClass kRunLoopTimerClass;
extern const CFRuntimeClass kRunLoopSourceClass;

// Whether something can be called back, and whether it is: what decides about the context's info, which is released
// when the thing is not valid any more and no callback uses it. Guarded by the lock.
class Callable {
 public:
  bool isValid() const noexcept { return isValid_; }
  bool isUnderWay() const noexcept { return underWay_ > 0; }
  void begin() noexcept { ++underWay_; }
  // These two answer whether the info is to be released now; it is to be but once.
  [[nodiscard]] bool end() noexcept {
    --underWay_;
    return takeRelease();
  }
  [[nodiscard]] bool invalidate() noexcept {
    isValid_ = false;
    return takeRelease();
  }

 private:
  bool takeRelease() noexcept { return !isValid_ && underWay_ == 0 && !std::exchange(isReleased_, true); }

  bool isValid_ = true;
  bool isReleased_ = false;
  int underWay_ = 0;
};

// A context's info, retained. `Context` is CFRunLoopTimerContext or CFRunLoopSourceContext.
template <class Context>
void retainInfo(Context& context) {
  if (context.retain != nullptr) context.info = const_cast<void*>(context.retain(context.info));
}
template <class Context>
void releaseInfo(const Context& context) {
  if (context.release != nullptr) context.release(context.info);
}

}  // namespace cf

struct CFRunLoopTimerStorage {
  CFObjectHead head;
  CFRunLoopTimerCallBack callout;
  CFIndex order;
  std::uint64_t sequence;  // in which timers were made
  cf::TimerSchedule schedule;
  CFRunLoopTimerContext context{};
  // The rest, and the schedule, is guarded by the lock.
  cf::Callable call{};
  cf::MonotonicTime queuedFor = cf::kNever;  // its place in its modes: when due, never while its callback runs
  bool wasMoved = false;                     // to another date, by or during its callback
  cf::RunLoop* loop = nullptr;
};

struct CFRunLoopSourceStorage {
  CFObjectHead head;
  CFIndex order;
  CFRunLoopSourceContext context;
  // The rest is guarded by the lock.
  cf::Callable call{};
  bool isSignalled = false;
  std::vector<cf::RunLoop*> loops{};
};
