// The changes of a run loop that its callbacks do not take part in, and its end.
#include "platform/corefoundation/run_loop_state.h"

#include <cerrno>
#include <utility>

namespace cf {

constinit std::mutex runLoopMutex;
constinit unsigned forkGeneration = 0;

constinit RunLoop* RunLoop::first_ = nullptr;

RunLoop::RunLoop(CFRunLoopRef object) : object_(object), descriptors_(poller_) {
  const std::lock_guard lock(runLoopMutex);
  next_ = first_;
  if (next_ != nullptr) next_->previous_ = this;
  first_ = this;
}

RunLoop::~RunLoop() {
  const std::lock_guard lock(runLoopMutex);
  if (first_ == this) first_ = next_;
  if (next_ != nullptr) next_->previous_ = previous_;
  if (previous_ != nullptr) previous_->next_ = next_;
}

void RunLoop::keepInChild(RunLoop* survivor) noexcept {
  for (RunLoop* loop = first_; loop != nullptr;) {
    loop->poller_.close();
    loop->previous_ = nullptr;
    loop = std::exchange(loop->next_, nullptr);
  }
  first_ = survivor;
  ++forkGeneration;
}

RunLoop::Run::Run(RunLoop& itsLoop, CFStringRef itsMode)
    : loop(itsLoop), mode(CFStringCreateCopy(nullptr, itsMode)), outer(itsLoop.innermost_) {
  const std::lock_guard lock(runLoopMutex);
  loop.innermost_ = this;
}

RunLoop::Run::~Run() {
  const std::lock_guard lock(runLoopMutex);
  loop.innermost_ = outer;
}

void RunLoop::stop() noexcept {
  if (innermost_ == nullptr) return;
  innermost_->isStopped = true;
  changed();
}

void RunLoop::wakeUp() noexcept {
  isWakePending_ = true;
  if (isWaiting_) poller_.wake();
}

bool RunLoop::isEmpty(CFStringRef name) noexcept {
  const Mode* const mode = modes_.find(name);
  if (mode == nullptr) return true;
  return mode->timers.empty() && mode->sources.empty() && !(mode->isCommon && descriptors_.keepsAlive());
}

void RunLoop::forgetInherited() noexcept {
  if (std::exchange(generation_, forkGeneration) != forkGeneration) descriptors_.clear();
}

int RunLoop::watch(const std::shared_ptr<DescriptorSource::Entry>& entry) {
  forgetInherited();
  {
    const std::lock_guard lock(runLoopMutex);
    if (isEnded_) return ESRCH;
    if (!poller_.open()) return errno;
  }
  return descriptors_.add(entry);
}

void RunLoop::end() {
  std::vector<Owned<CFRunLoopTimerRef>> timers;
  SourceList sources;
  {
    const std::lock_guard lock(runLoopMutex);
    isEnded_ = true;
    timers = modes_.allTimers();
    sources = modes_.allSources();
  }
  descriptors_.clear();
  for (const auto& timer : timers) CFRunLoopTimerInvalidate(timer.get());
  for (const auto& source : sources) removeFromLoop(*this, source.get());
  const std::lock_guard lock(runLoopMutex);
  poller_.close();
}

}  // namespace cf
