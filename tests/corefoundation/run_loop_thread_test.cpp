// Run loops and threads: what other threads may do to a loop, what is left of it, and what a fork does.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "tests/corefoundation/run_loop_support.h"

namespace {

using namespace run_loops;

int openDescriptors() {
  int count = 0;
  DIR* const folder = ::opendir("/proc/self/fd");
  while (::readdir(folder) != nullptr) ++count;
  ::closedir(folder);
  return count;
}

int runningThreads() {
  int count = -2;  // "." and ".."
  DIR* const folder = ::opendir("/proc/self/task");
  while (::readdir(folder) != nullptr) ++count;
  ::closedir(folder);
  return count;
}

// Once threads that have ended are gone, and those of a sanitizer, which come with the first thread, are there.
int settledThreads() {
  std::thread([] {}).join();
  int count = runningThreads();
  for (int same = 0; same < 20; ++same) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (const int seen = runningThreads(); seen != count) {
      count = seen;
      same = 0;
    }
  }
  return count;
}

// A thread that runs its loop in the default mode, with an idle timer, until it is stopped.
class Looper {
 public:
  Looper() {
    std::promise<CFRunLoopRef> ready;
    auto loop = ready.get_future();
    thread_ = std::thread([this, &ready] {
      const Installed idle(timer(now() + kFarAway, kFarAway, [] {}));
      ready.set_value(CFRunLoopGetCurrent());
      result_ = run(kFarAway);
    });
    loop_ = loop.get();
    isAsleep_ = awaited([this] { return CFRunLoopIsWaiting(loop_); });
  }
  CFRunLoopRunResult join() {
    thread_.join();
    return result_;
  }
  CFRunLoopRunResult stop() {
    CFRunLoopStop(loop_);
    return join();
  }
  CFRunLoopRef loop() const { return loop_; }
  bool isAsleep() const { return isAsleep_; }

 private:
  std::thread thread_;
  CFRunLoopRef loop_ = nullptr;
  bool isAsleep_ = false;
  CFRunLoopRunResult result_{};
};

TEST(CFRunLoopThreadTest, AStopFromAnotherThreadEndsAWait) {
  Looper looper;
  EXPECT_TRUE(looper.isAsleep());
  EXPECT_EQ(values::textOfOwned(CFRunLoopCopyCurrentMode(looper.loop())), "kCFRunLoopDefaultMode");
  EXPECT_EQ(looper.stop(), kCFRunLoopRunStopped);
}

TEST(CFRunLoopThreadTest, AWakeUpMakesTheLoopLookAtItsSources) {
  Looper looper;
  std::promise<std::thread::id> calledOn;
  const auto signalled = source([&] { calledOn.set_value(std::this_thread::get_id()); });
  CFRunLoopAddSource(looper.loop(), signalled, kCFRunLoopDefaultMode);
  ASSERT_TRUE(awaited([&] { return CFRunLoopIsWaiting(looper.loop()); }));
  CFRunLoopSourceSignal(signalled);
  CFRunLoopWakeUp(looper.loop());
  EXPECT_NE(calledOn.get_future().get(), std::this_thread::get_id());
  EXPECT_EQ(looper.stop(), kCFRunLoopRunStopped) << "a wake-up alone ends no run";
}

TEST(CFRunLoopThreadTest, AWakeUpBeforeTheWaitIsNotLost) {
  const Installed idle(timer(now() + kFarAway, kFarAway, [] {}));
  std::atomic<bool> isCalled{false};
  const auto signalled = source([&] { isCalled = true; });
  const Installed installed(signalled);
  // Signalled by a timer, hence after this pass has looked at its sources.
  const Installed signalling(timer(now(), 0, [&] {
    CFRunLoopSourceSignal(signalled);
    CFRunLoopWakeUp(CFRunLoopGetCurrent());
  }));
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  EXPECT_TRUE(isCalled);
}

TEST(CFRunLoopThreadTest, ATimerAddedByAnotherThreadFires) {
  Looper looper;
  std::promise<std::thread::id> calledOn;
  const auto added = timer(now(), 0, [&] { calledOn.set_value(std::this_thread::get_id()); });
  CFRunLoopAddTimer(looper.loop(), added, kCFRunLoopDefaultMode);
  EXPECT_NE(calledOn.get_future().get(), std::this_thread::get_id());
  looper.stop();
}

TEST(CFRunLoopThreadTest, ATimerMovedByAnotherThreadFiresAtItsNewDate) {
  Looper looper;
  std::promise<void> called;
  const auto moved = timer(now() + kFarAway, 0, [&] { called.set_value(); });
  CFRunLoopAddTimer(looper.loop(), moved, kCFRunLoopDefaultMode);
  ASSERT_TRUE(awaited([&] { return CFRunLoopIsWaiting(looper.loop()); }));
  CFRunLoopTimerSetNextFireDate(moved, now());
  called.get_future().wait();
  looper.stop();
}

TEST(CFRunLoopThreadTest, ARunFinishesWhenAnotherThreadTakesTheLastTimerOut) {
  const auto last = timer(now() + kFarAway, kFarAway, [] {});
  std::promise<CFRunLoopRef> ready;
  std::thread thread([&] {
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), last, kCFRunLoopDefaultMode);
    ready.set_value(CFRunLoopGetCurrent());
    EXPECT_EQ(run(kFarAway), kCFRunLoopRunFinished);
  });
  const CFRunLoopRef loop = ready.get_future().get();
  ASSERT_TRUE(awaited([&] { return CFRunLoopIsWaiting(loop); }));
  CFRunLoopTimerInvalidate(last);
  thread.join();
}

TEST(CFRunLoopThreadTest, ManyThreadsPullAtOneLoop) {
  Looper looper;
  constexpr int kThreads = 4;
  constexpr int kTimes = 200;
  std::atomic<int> performed{0};
  std::atomic<int> fired{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&] {
      for (int time = 0; time < kTimes; ++time) {
        const auto signalled = source([&] { ++performed; });
        CFRunLoopAddSource(looper.loop(), signalled, kCFRunLoopCommonModes);
        const auto once = timer(now(), 0, [&] { ++fired; });
        CFRunLoopAddTimer(looper.loop(), once, kCFRunLoopDefaultMode);
        const auto dropped = timer(now(), 0.0001, [] {});
        CFRunLoopAddTimer(looper.loop(), dropped, kCFRunLoopDefaultMode);
        const int before = performed;
        CFRunLoopSourceSignal(signalled);
        CFRunLoopWakeUp(looper.loop());
        EXPECT_TRUE(awaited([&] { return performed > before; }));
        CFRunLoopTimerInvalidate(dropped);
        CFRunLoopSourceInvalidate(signalled);
        EXPECT_FALSE(CFRunLoopContainsSource(looper.loop(), signalled, kCFRunLoopCommonModes));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(awaited([&] { return fired == kThreads * kTimes; })) << fired << " timers fired";
  EXPECT_EQ(looper.stop(), kCFRunLoopRunStopped);
}

TEST(CFRunLoopThreadTest, AnInfoOutlivesACallbackThatAnotherThreadInvalidates) {
  Looper looper;
  std::promise<void> entered;
  std::promise<void> goOn;
  std::atomic<bool> isReleased{false};
  struct Info {
    std::promise<void>& entered;
    std::promise<void>& goOn;
    std::atomic<bool>& isReleased;
  } info{entered, goOn, isReleased};
  CFRunLoopTimerContext context{};
  context.info = &info;
  context.release = [](const void* given) { static_cast<const Info*>(given)->isReleased = true; };
  const Held<CFRunLoopTimerRef> blocking = CFRunLoopTimerCreate(
      kCFAllocatorDefault, now(), 1, 0, 0,
      [](CFRunLoopTimerRef, void* given) {
        const Info& seen = *static_cast<Info*>(given);
        seen.entered.set_value();
        seen.goOn.get_future().wait();
        EXPECT_FALSE(seen.isReleased);
      },
      &context);
  CFRunLoopAddTimer(looper.loop(), blocking, kCFRunLoopDefaultMode);
  entered.get_future().wait();
  CFRunLoopTimerInvalidate(blocking);
  EXPECT_FALSE(isReleased) << "the callback still uses it";
  goOn.set_value();
  looper.stop();
  EXPECT_TRUE(isReleased);
}

TEST(CFRunLoopThreadTest, NoThreadIsStartedAndNoDescriptorIsLeft) {
  const int threads = settledThreads();
  const int descriptors = openDescriptors();
  for (int round = 0; round < 50; ++round) {
    std::thread([&] {
      const auto tick = timer(now(), 0.0005, [] {});
      CFRunLoopAddTimer(CFRunLoopGetCurrent(), tick, kCFRunLoopCommonModes);
      EXPECT_EQ(run(0.002), kCFRunLoopRunTimedOut);
      EXPECT_TRUE(awaited([&] { return runningThreads() == threads + 1; })) << runningThreads();
    }).join();
  }
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_TRUE(awaited([&] { return runningThreads() == threads; }));
}

TEST(CFRunLoopThreadTest, TheEndOfAThreadLetsGoOfEverything) {
  struct Seen {
    std::atomic<int> cancelled{0};
    std::atomic<int> released{0};
  } seen;
  CFRunLoopSourceContext context{};
  context.info = &seen;
  context.release = [](const void* info) { ++static_cast<Seen*>(const_cast<void*>(info))->released; };
  context.cancel = [](void* info, CFRunLoopRef loop, CFRunLoopMode) {
    EXPECT_EQ(loop, CFRunLoopGetCurrent());
    ++static_cast<Seen*>(info)->cancelled;
  };
  Held<CFRunLoopTimerRef> kept;
  Held<CFRunLoopRef> loop;
  std::thread([&] {
    loop = static_cast<CFRunLoopRef>(const_cast<void*>(CFRetain(CFRunLoopGetCurrent())));
    kept = timer(now() + kFarAway, 1, [] {});
    CFRunLoopAddTimer(loop, kept, kCFRunLoopCommonModes);
    const Held<CFRunLoopSourceRef> source = CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
    CFRunLoopAddSource(loop, source, kCFRunLoopDefaultMode);
    CFRunLoopAddSource(loop, source, CFSTR("other"));
  }).join();
  EXPECT_EQ(seen.cancelled, 2);
  EXPECT_EQ(seen.released, 1);
  EXPECT_FALSE(CFRunLoopTimerIsValid(kept));
  EXPECT_EQ(CFGetRetainCount(kept), 1);
  // The loop that is still held does nothing any more.
  CFRunLoopStop(loop);
  CFRunLoopWakeUp(loop);
  EXPECT_FALSE(CFRunLoopIsWaiting(loop));
  const auto late = timer(now(), 0, [] {});
  CFRunLoopAddTimer(loop, late, kCFRunLoopDefaultMode);
  EXPECT_FALSE(CFRunLoopContainsTimer(loop, late, kCFRunLoopDefaultMode));
  EXPECT_EQ(CFGetRetainCount(loop), 1);
}

TEST(CFRunLoopThreadTest, ACallbackMayEndItsThread) {
  const int descriptors = openDescriptors();
  std::promise<CFRunLoopRef> ended;
  std::thread thread([&] {
    const auto ending = timer(now(), 0, [&] {
      ended.set_value(static_cast<CFRunLoopRef>(const_cast<void*>(CFRetain(CFRunLoopGetCurrent()))));
      ::pthread_exit(nullptr);
    });
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), ending, kCFRunLoopDefaultMode);
    CFRunLoopRun();
  });
  thread.join();
  const Held<CFRunLoopRef> loop = ended.get_future().get();
  EXPECT_EQ(CFRunLoopCopyCurrentMode(loop), nullptr);
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(CFRunLoopThreadTest, WithoutDescriptorsTheLoopStillRuns) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  std::atomic<CFRunLoopRef> loop{nullptr};
  std::thread thread([&] {
    int fired = 0;
    const Installed ticking(timer(now(), 0.001, [&] { ++fired; }));
    const rlimit none{0, before.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const CFRunLoopRunResult timed = run(0.05);
    loop = CFRunLoopGetCurrent();
    const CFRunLoopRunResult stopped = run(kFarAway);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(timed, kCFRunLoopRunTimedOut);
    EXPECT_EQ(stopped, kCFRunLoopRunStopped);
    EXPECT_GT(fired, 0);
  });
  EXPECT_TRUE(awaited([&] { return loop != nullptr && CFRunLoopIsWaiting(loop); }));
  CFRunLoopStop(loop);
  thread.join();
}

// The child's answer, by its exit status.
int statusOf(pid_t child) {
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + status;
}

TEST(CFRunLoopForkTest, AChildHasTimersOfItsOwnAndLeavesItsParentAlone) {
  // Another thread waits, and more come and go, so that the lock is often held.
  Looper looper;
  std::atomic<bool> isOver{false};
  std::thread busy([&] {
    while (!isOver) CFRunLoopWakeUp(looper.loop());
  });
  int fired = 0;
  const Installed ticking(timer(now(), 0.001, [&] { ++fired; }));
  EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut);
  for (int round = 0; round < 20; ++round) {
    const pid_t child = ::fork();
    if (child == 0) {
      const int before = fired;
      const bool isTimedOut = run(0.02) == kCFRunLoopRunTimedOut;
      const bool isMain = CFRunLoopGetMain() == CFRunLoopGetCurrent();
      ::_exit(isTimedOut && isMain && fired > before ? 0 : 1);
    }
    const int before = fired;
    EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut);
    EXPECT_GT(fired, before);
    EXPECT_EQ(statusOf(child), 0);
  }
  isOver = true;
  busy.join();
  EXPECT_EQ(looper.stop(), kCFRunLoopRunStopped);
}

TEST(CFRunLoopForkTest, AChildOfAnotherThreadIsMainThere) {
  const CFRunLoopRef parentsMain = CFRunLoopGetMain();
  std::thread([&] {
    const CFRunLoopRef own = CFRunLoopGetCurrent();
    const pid_t child = ::fork();
    if (child == 0) {
      const bool isRight = CFRunLoopGetMain() == own && own != parentsMain && CFRunLoopGetCurrent() == own;
      ::_exit(isRight ? 0 : 1);
    }
    EXPECT_EQ(statusOf(child), 0);
  }).join();
}

TEST(CFRunLoopForkTest, AForkInsideACallbackLeavesBothRunsInOrder) {
  pid_t child = -1;
  int fired = 0;
  const Installed ticking(timer(now(), 0.001, [&] { ++fired; }));
  const Installed forking(timer(now() + 0.005, 0, [&] { child = ::fork(); }));
  EXPECT_EQ(run(0.03), kCFRunLoopRunTimedOut);
  if (child == 0) ::_exit(fired > 1 ? 0 : 1);
  ASSERT_GT(child, 0);
  EXPECT_GT(fired, 1);
  EXPECT_EQ(statusOf(child), 0);
}

TEST(CFRunLoopForkTest, AChildKeepsNoneOfTheParentsDescriptors) {
  Looper looper;  // a second loop, whose descriptors are in the child as well
  const Installed idle(timer(now() + kFarAway, kFarAway, [] {}));
  const int without = openDescriptors();
  EXPECT_EQ(run(0.001), kCFRunLoopRunTimedOut);  // opens what this loop waits with
  const int with = openDescriptors();
  EXPECT_EQ(with - without <= 3, true) << with << " descriptors, " << without << " before";
  const pid_t child = ::fork();
  if (child == 0) ::_exit(openDescriptors() <= with - 6 ? 0 : 1);
  EXPECT_EQ(statusOf(child), 0);
  looper.stop();
}

}  // namespace
