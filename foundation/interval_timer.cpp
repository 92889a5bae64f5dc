#include <plinth/interval_timer.h>
#include <plinth/shared_object.h>

#include <utility>

namespace plinth {
namespace {

// What the timer calls; the run loop keeps it while a callback is under way.
class Callback : public CSharedObject {
 public:
  explicit Callback(std::function<void()> function) : function_(std::move(function)) {}
  void call() const {
    if (function_) function_();
  }

 private:
  const std::function<void()> function_;
};

const void* retainCallback(const void* info) {
  static_cast<const Callback*>(info)->Retain();
  return info;
}

void releaseCallback(const void* info) { static_cast<const Callback*>(info)->Release(); }

void callBack(CFRunLoopTimerRef, void* info) { static_cast<const Callback*>(info)->call(); }

CFRunLoopTimerRef createTimer(double seconds, CFAbsoluteTime firstFire, std::function<void()> function) {
  const auto callback = makeShared<Callback>(std::move(function));
  CFRunLoopTimerContext context{0, callback.get(), retainCallback, releaseCallback, nullptr};
  return CFRunLoopTimerCreate(kCFAllocatorDefault, firstFire, seconds, 0, 0, callBack, &context);
}

}  // namespace

CIntervalTimer::CIntervalTimer(double periodInMilliseconds, CFAbsoluteTime firstFire, std::function<void()> callback)
    : timer_(createTimer(periodInMilliseconds / 1000, firstFire, std::move(callback))) {}

CIntervalTimer::~CIntervalTimer() { CFRunLoopTimerInvalidate(timer_.get()); }

void CIntervalTimer::start() {
  if (loop_) return;
  loop_ = CSharedCFRef<CFRunLoopRef>::retaining(CFRunLoopGetCurrent());
  CFRunLoopAddTimer(loop_.get(), timer_.get(), kCFRunLoopCommonModes);
}

bool CIntervalTimer::isInstalled() const noexcept { return loop_ && CFRunLoopTimerIsValid(timer_.get()); }

}  // namespace plinth
