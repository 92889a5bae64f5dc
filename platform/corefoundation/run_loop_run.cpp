// Running a loop: passes of sources, a wait, timers and descriptors.
#include "platform/corefoundation/run_loop_state.h"

#include <algorithm>
#include <tuple>

namespace cf {
namespace {

// How many descriptors one pass serves; the kernel gives the others their turn in the next one.
constexpr std::size_t kDescriptorsOfAPass = 16;

auto placeByDate(CFRunLoopTimerRef timer) noexcept {
  return std::make_tuple(timer->schedule.date(), timer->order, timer->sequence);
}

}  // namespace

CFRunLoopRunResult RunLoop::run(CFStringRef mode, CFTimeInterval seconds, bool returnsAfterSource) {
  if (mode == nullptr || CFEqual(mode, kCFRunLoopCommonModes)) return kCFRunLoopRunFinished;
  Run run(*this, mode);
  run.deadline = timeAfter(monotonicNow(), seconds);
  run.callsOneSource = returnsAfterSource;
  if (hasNothingFor(run)) return kCFRunLoopRunFinished;
  for (;;) {
    epoll_event room[kDescriptorsOfAPass];
    bool hasCalled = performSources(run);
    if (!run.isStopped) {
      const Events ready = wait(run, !hasCalled, room);
      fireTimers(run);
      hasCalled = serveDescriptors(run, ready) || hasCalled;
    }
    if (run.isStopped) return kCFRunLoopRunStopped;
    if (hasCalled && returnsAfterSource) return kCFRunLoopRunHandledSource;
    if (run.deadline != kNever && monotonicNow() >= run.deadline) return kCFRunLoopRunTimedOut;
    if (hasNothingFor(run)) return kCFRunLoopRunFinished;
  }
}

bool RunLoop::hasNothingFor(const Run& run) noexcept {
  forgetInherited();
  const std::lock_guard lock(runLoopMutex);
  return isEmpty(run.mode.get());
}

bool RunLoop::performSources(const Run& run) {
  SourceList signalled;
  {
    const std::lock_guard lock(runLoopMutex);
    const Mode* const mode = modes_.find(run.mode.get());
    if (mode == nullptr) return false;
    for (const auto& source : mode->sources) {
      if (source.get()->isSignalled) signalled.push_back(Owned<CFRunLoopSourceRef>::retaining(source.get()));
    }
  }
  bool hasCalled = false;
  for (const auto& source : signalled) {
    if (run.isStopped || (hasCalled && run.callsOneSource)) break;
    hasCalled = performSource(*this, source.get(), run.mode.get()) || hasCalled;
  }
  return hasCalled;
}

MonotonicTime RunLoop::prepareDescriptors(Run& run) {
  {
    const std::lock_guard lock(runLoopMutex);
    run.servesDescriptors = modes_.isCommon(run.mode.get()) && !descriptors_.isEmpty();
  }
  return run.servesDescriptors ? descriptors_.prepare() : kNever;
}

// Decides how long to wait, in one step with saying that the loop waits: what changes from now on wakes it.
MonotonicTime RunLoop::beginWaiting(const Run& run, MonotonicTime descriptorsDeadline) {
  const std::lock_guard lock(runLoopMutex);
  if (run.isStopped || isWakePending_ || isEmpty(run.mode.get())) return 0;
  const Mode* const mode = modes_.find(run.mode.get());
  const MonotonicTime firstTimer = mode->timers.empty() ? kNever : mode->timers.begin()->get()->queuedFor;
  const MonotonicTime until = std::min({run.deadline, descriptorsDeadline, firstTimer});
  if (until <= monotonicNow()) return 0;
  isWaiting_ = true;
  poller_.open();  // or the wait makes do without
  return until;
}

void RunLoop::endWaiting() noexcept {
  const std::lock_guard lock(runLoopMutex);
  isWaiting_ = false;
  isWakePending_ = false;
  poller_.takeWake();
}

RunLoop::Events RunLoop::wait(Run& run, bool mayWait, Events room) {
  ++waits_;
  const MonotonicTime descriptorsDeadline = prepareDescriptors(run);
  const MonotonicTime until = mayWait ? beginWaiting(run, descriptorsDeadline) : 0;
  const Events ready = poller_.wait(until, run.servesDescriptors, room.first(run.callsOneSource ? 1 : room.size()));
  endWaiting();
  return ready;
}

void RunLoop::fireTimers(const Run& run) {
  const MonotonicTime now = monotonicNow();
  std::vector<Owned<CFRunLoopTimerRef>> due;
  {
    const std::lock_guard lock(runLoopMutex);
    const Mode* const mode = modes_.find(run.mode.get());
    if (mode == nullptr) return;
    for (const auto& timer : mode->timers) {
      if (timer.get()->queuedFor > now) break;
      due.push_back(Owned<CFRunLoopTimerRef>::retaining(timer.get()));
    }
    // Equal dates are not quite equal times, since each was turned into one by a reading of the clocks of its own.
    std::sort(due.begin(), due.end(),
              [](const auto& left, const auto& right) { return placeByDate(left.get()) < placeByDate(right.get()); });
  }
  for (const auto& timer : due) {
    if (run.isStopped) break;
    fireTimer(*this, timer.get(), run.mode.get(), now);
  }
}

bool RunLoop::serveDescriptors(const Run& run, Events ready) {
  const std::uint64_t wait = waits_;
  bool hasCalled = false;
  // After the wait of an inner run the events are old; what they were about is found anew.
  const auto isOver = [&] { return run.isStopped || waits_ != wait || (hasCalled && run.callsOneSource); };
  for (const epoll_event& event : ready) {
    if (isOver()) return hasCalled;
    const auto entry = descriptors_.find(event.data.u64);
    if (entry == nullptr) continue;
    entry->interest.deadline = kNever;
    hasCalled = entry->ready(event.events) || hasCalled;
  }
  if (!run.servesDescriptors) return hasCalled;
  for (const MonotonicTime now = monotonicNow(); !isOver();) {
    const auto entry = descriptors_.takeOverdue(now);
    if (entry == nullptr) break;
    hasCalled = entry->ready(0) || hasCalled;
  }
  return hasCalled;
}

}  // namespace cf
