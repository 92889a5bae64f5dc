// run_loop_support.h: timers and sources that call a function of the test.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "tests/corefoundation/value_support.h"

namespace run_loops {

using values::Held;
using Function = std::function<void()>;

inline constexpr double kLong = 60;      // seconds; a time that no test waits for
inline constexpr double kFarAway = 1e8;  // the same for fire dates and intervals
inline constexpr CFIndex kAnyOrder = 0;

inline CFAbsoluteTime now() { return CFAbsoluteTimeGetCurrent(); }

// Seconds of the monotonic clock that something takes.
inline double secondsOf(const Function& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Waits for a condition that another thread brings about.
inline bool awaited(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

// Runs a test on a thread, hence on a run loop, of its own.
inline void onAFreshLoop(const Function& test) { std::thread(test).join(); }

// The functions that the contexts hold: copied by retain, deleted by release.
inline const void* retainFunction(const void* info) {
  return std::make_unique<Function>(*static_cast<const Function*>(info)).release();
}
inline void releaseFunction(const void* info) {
  std::unique_ptr<const Function>(static_cast<const Function*>(info)).reset();
}

inline Held<CFRunLoopTimerRef> timer(CFAbsoluteTime date, CFTimeInterval interval, Function function,
                                     CFIndex order = kAnyOrder) {
  CFRunLoopTimerContext context{0, &function, retainFunction, releaseFunction, nullptr};
  return CFRunLoopTimerCreate(
      kCFAllocatorDefault, date, interval, 0, order,
      [](CFRunLoopTimerRef, void* info) { (*static_cast<const Function*>(info))(); }, &context);
}

inline Held<CFRunLoopSourceRef> source(Function function, CFIndex order = kAnyOrder) {
  CFRunLoopSourceContext context{};
  context.info = &function;
  context.retain = retainFunction;
  context.release = releaseFunction;
  context.perform = [](void* info) { (*static_cast<const Function*>(info))(); };
  return CFRunLoopSourceCreate(kCFAllocatorDefault, order, &context);
}

// In the calling thread's loop until the end of the scope.
class Installed {
 public:
  explicit Installed(CFRunLoopTimerRef timer, CFStringRef mode = kCFRunLoopDefaultMode) : timer_(timer) {
    CFRetain(timer);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, mode);
  }
  explicit Installed(CFRunLoopSourceRef source, CFStringRef mode = kCFRunLoopDefaultMode) : source_(source) {
    CFRetain(source);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, mode);
  }
  Installed(const Installed&) = delete;
  Installed& operator=(const Installed&) = delete;
  ~Installed() {
    CFRunLoopTimerInvalidate(timer_);
    CFRunLoopSourceInvalidate(source_);
    CFRelease(timer_);
    CFRelease(source_);
  }

 private:
  CFRunLoopTimerRef timer_ = nullptr;
  CFRunLoopSourceRef source_ = nullptr;
};

inline CFRunLoopRunResult run(double seconds, bool returnsAfterSource = false,
                              CFStringRef mode = kCFRunLoopDefaultMode) {
  return CFRunLoopRunInMode(mode, seconds, returnsAfterSource);
}

}  // namespace run_loops
