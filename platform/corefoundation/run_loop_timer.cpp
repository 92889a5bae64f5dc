// Timers.
#include <atomic>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/run_loop_state.h"

namespace cf {
namespace {

void finalizeTimer(void* object) noexcept {
  const CFRunLoopTimerRef timer = static_cast<CFRunLoopTimerRef>(object);
  // Nobody else sees it any more. Once it is invalid the info has gone.
  if (timer->call.isValid()) releaseInfo(timer->context);
  timer->~CFRunLoopTimerStorage();
  std::free(object);
}

// With the lock held.
void takeOut(CFRunLoopTimerRef timer) noexcept {
  if (timer->loop == nullptr) return;
  timer->loop->modes().removeEverywhere(timer);
  timer->loop->changed();
  timer->loop = nullptr;
}

// With the lock held.
void requeue(CFRunLoopTimerRef timer, MonotonicTime queuedFor) noexcept {
  if (timer->loop == nullptr) {
    timer->queuedFor = queuedFor;
  } else {
    timer->loop->modes().requeue(timer, queuedFor);
    timer->loop->changed();
  }
}

// A callback under way. At its end a timer that repeats gets its next time, whichever way the callback is left.
class Firing {
 public:
  // Empty when the timer is not due any more.
  Firing(RunLoop& loop, CFRunLoopTimerRef timer, CFStringRef mode, MonotonicTime now) {
    const std::lock_guard lock(runLoopMutex);
    if (timer->loop != &loop || timer->queuedFor > now || !loop.modes().contains(timer, mode)) return;
    timer_ = timer;
    timer->call.begin();
    timer->wasMoved = false;
    requeue(timer, kNever);
    if (timer->schedule.repeats()) return;
    static_cast<void>(timer->call.invalidate());  // the info goes when the callback has ended
    takeOut(timer);
  }
  Firing(const Firing&) = delete;
  Firing& operator=(const Firing&) = delete;
  ~Firing() {
    if (timer_ != nullptr && end()) releaseInfo(timer_->context);
  }
  explicit operator bool() const noexcept { return timer_ != nullptr; }

 private:
  bool end() noexcept {
    const std::lock_guard lock(runLoopMutex);
    if (timer_->call.isValid()) {
      if (!timer_->wasMoved) timer_->schedule.advance(monotonicNow());
      requeue(timer_, timer_->schedule.due());
    }
    return timer_->call.end();
  }

  CFRunLoopTimerRef timer_ = nullptr;
};

}  // namespace

constinit const CFRuntimeClass kRunLoopTimerClass{"CFRunLoopTimer", finalizeTimer, nullptr, nullptr, nullptr};

void fireTimer(RunLoop& loop, CFRunLoopTimerRef timer, CFStringRef mode, MonotonicTime now) {
  if (const Firing firing(loop, timer, mode, now); firing) timer->callout(timer, timer->context.info);
}

}  // namespace cf

using cf::Owned;
using cf::runLoopMutex;

CFTypeID CFRunLoopTimerGetTypeID() { return cf::typeID(cf::kRunLoopTimerClass); }

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime fireDate, CFTimeInterval interval, CFOptionFlags,
                                       CFIndex order, CFRunLoopTimerCallBack callout, CFRunLoopTimerContext* context) {
  static constinit std::atomic<std::uint64_t> made{0};
  if (callout == nullptr) return nullptr;
  const cf::TimerSchedule schedule(fireDate, interval, cf::ClockReading::now());
  const CFRunLoopTimerRef timer =
      cf::create<CFRunLoopTimerStorage>(cf::kRunLoopTimerClass, 0, callout, order, made.fetch_add(1), schedule);
  timer->queuedFor = schedule.due();
  if (context != nullptr) timer->context = *context;
  cf::retainInfo(timer->context);
  return timer;
}

CFAbsoluteTime CFRunLoopTimerGetNextFireDate(CFRunLoopTimerRef timer) {
  if (timer == nullptr) return 0;
  const std::lock_guard lock(runLoopMutex);
  return timer->call.isValid() ? timer->schedule.date() : 0;
}

void CFRunLoopTimerSetNextFireDate(CFRunLoopTimerRef timer, CFAbsoluteTime fireDate) {
  if (timer == nullptr) return;
  const std::lock_guard lock(runLoopMutex);
  if (!timer->call.isValid()) return;
  timer->schedule.moveTo(fireDate, cf::ClockReading::now());
  timer->wasMoved = true;
  if (!timer->call.isUnderWay()) cf::requeue(timer, timer->schedule.due());
}

CFTimeInterval CFRunLoopTimerGetInterval(CFRunLoopTimerRef timer) {
  return timer == nullptr ? 0 : timer->schedule.interval();
}

Boolean CFRunLoopTimerDoesRepeat(CFRunLoopTimerRef timer) { return timer != nullptr && timer->schedule.repeats(); }

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) {
  if (timer == nullptr) return;
  const auto kept = Owned<CFRunLoopTimerRef>::retaining(timer);
  bool releasesInfo;
  {
    const std::lock_guard lock(runLoopMutex);
    if (!timer->call.isValid()) return;
    releasesInfo = timer->call.invalidate();
    cf::takeOut(timer);
  }
  if (releasesInfo) cf::releaseInfo(timer->context);
}

Boolean CFRunLoopTimerIsValid(CFRunLoopTimerRef timer) {
  if (timer == nullptr) return false;
  const std::lock_guard lock(runLoopMutex);
  return timer->call.isValid();
}

void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
  if (loop == nullptr || timer == nullptr || mode == nullptr) return;
  const std::lock_guard lock(runLoopMutex);
  cf::RunLoop& state = *loop->state;
  const bool isElsewhere = timer->loop != nullptr && timer->loop != &state;
  if (state.isEnded() || isElsewhere || !timer->call.isValid()) return;
  state.modes().add(timer, mode);
  timer->loop = &state;
  state.changed();
}

void CFRunLoopRemoveTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
  if (loop == nullptr || timer == nullptr || mode == nullptr) return;
  const auto kept = Owned<CFRunLoopTimerRef>::retaining(timer);
  const std::lock_guard lock(runLoopMutex);
  cf::RunLoop& state = *loop->state;
  if (timer->loop != &state) return;
  state.modes().remove(timer, mode);
  if (!state.modes().contains(timer)) timer->loop = nullptr;
  state.changed();
}

Boolean CFRunLoopContainsTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
  if (loop == nullptr || timer == nullptr || mode == nullptr) return false;
  const std::lock_guard lock(runLoopMutex);
  return loop->state->modes().contains(timer, mode);
}
