// Which thread has which run loop, and the public functions on loops themselves.
#include "platform/corefoundation/run_loop.h"

#include <pthread.h>
#include <unistd.h>

#include <memory>
#include <new>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/run_loop_state.h"

namespace cf {
namespace {

void finalizeRunLoop(void* object) noexcept {
  const std::unique_ptr<RunLoop> state(static_cast<CFRunLoopRef>(object)->state);
  std::free(object);
}

constinit const CFRuntimeClass kRunLoopClass{"CFRunLoop", finalizeRunLoop, nullptr, nullptr, nullptr};

// Guarded by the lock.
constinit CFRunLoopRef mainLoop = nullptr;  // holds a reference
constinit bool isMainThreadForking = false;

constinit thread_local CFRunLoopRef currentLoop = nullptr;  // holds a reference

bool isMainThread() noexcept { return ::gettid() == ::getpid(); }

// The lock is held across a fork, so that the child finds everything in order.

void beforeFork() {
  runLoopMutex.lock();
  isMainThreadForking = isMainThread();
}

void afterForkInParent() { runLoopMutex.unlock(); }

// The thread that forked is the main one here, and the only one.
void afterForkInChild() {
  if (!isMainThreadForking) {
    mainLoop = currentLoop;
    if (mainLoop != nullptr) retain(mainLoop);
  }
  RunLoop::keepInChild(mainLoop == nullptr ? nullptr : mainLoop->state);
  runLoopMutex.unlock();
}

void endLoopOfThread(void* object) {
  const Owned<CFRunLoopRef> loop(static_cast<CFRunLoopRef>(object));
  loop.get()->state->end();
  currentLoop = nullptr;  // what ends after this, and asks for a loop, gets another one
}

struct ThreadHooks {
  pthread_key_t loopOfThread{};
  bool areSet = false;
};
constinit ThreadHooks hooks;

void setHooks() {
  hooks.areSet = ::pthread_key_create(&hooks.loopOfThread, endLoopOfThread) == 0 &&
                 ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild) == 0;
}

Owned<CFRunLoopRef> createLoop() {
  static constinit pthread_once_t once = PTHREAD_ONCE_INIT;
  ::pthread_once(&once, setHooks);
  if (!hooks.areSet) throw std::bad_alloc();
  Owned<CFRunLoopRef> loop(create<CFRunLoopStorage>(kRunLoopClass, 0));
  loop.get()->state = std::make_unique<RunLoop>(loop.get()).release();
  return loop;
}

// The main thread's loop, which may be made before that thread asks for it, and is kept for ever.
Owned<CFRunLoopRef> copyMainLoop() {
  const auto known = [] { return Owned<CFRunLoopRef>::retaining(mainLoop); };
  {
    const std::lock_guard lock(runLoopMutex);
    if (auto loop = known()) return loop;
  }
  Owned<CFRunLoopRef> made = createLoop();  // which goes without the lock, when another thread was faster
  const std::lock_guard lock(runLoopMutex);
  if (mainLoop == nullptr) mainLoop = made.take();
  return known();
}

CFRunLoopRef makeCurrent() {
  Owned<CFRunLoopRef> loop = isMainThread() ? copyMainLoop() : createLoop();
  if (loop.get()->state->isEnded()) loop = createLoop();  // for what the main thread still does while it ends
  if (::pthread_setspecific(hooks.loopOfThread, loop.get()) != 0) throw std::bad_alloc();
  currentLoop = loop.take();
  return currentLoop;
}

}  // namespace
}  // namespace cf

using cf::runLoopMutex;

constinit const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");
constinit const CFRunLoopMode kCFRunLoopCommonModes = CFSTR("kCFRunLoopCommonModes");

CFTypeID CFRunLoopGetTypeID() { return cf::typeID(cf::kRunLoopClass); }

CFRunLoopRef CFRunLoopGetCurrent() { return cf::currentLoop != nullptr ? cf::currentLoop : cf::makeCurrent(); }

CFRunLoopRef CFRunLoopGetMain() {
  return cf::copyMainLoop().get();  // valid for ever
}

void CFRunLoopRun() {
  while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, cf::kSecondsWithoutLimit, false) == kCFRunLoopRunTimedOut) continue;
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds, Boolean returnAfterSourceHandled) {
  return cf::RunLoop::current().run(mode, seconds, returnAfterSourceHandled);
}

void CFRunLoopStop(CFRunLoopRef loop) {
  if (loop == nullptr) return;
  const std::lock_guard lock(runLoopMutex);
  loop->state->stop();
}

void CFRunLoopWakeUp(CFRunLoopRef loop) {
  if (loop == nullptr) return;
  const std::lock_guard lock(runLoopMutex);
  loop->state->wakeUp();
}

Boolean CFRunLoopIsWaiting(CFRunLoopRef loop) {
  if (loop == nullptr) return false;
  const std::lock_guard lock(runLoopMutex);
  return loop->state->isWaiting();
}

CFRunLoopMode CFRunLoopCopyCurrentMode(CFRunLoopRef loop) {
  if (loop == nullptr) return nullptr;
  const std::lock_guard lock(runLoopMutex);
  return cf::Owned<CFStringRef>::retaining(loop->state->currentMode()).take();
}
