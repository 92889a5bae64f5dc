// Descriptors that a run loop watches.
#include "platform/corefoundation/run_loop.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "tests/corefoundation/run_loop_support.h"

namespace {

using namespace run_loops;
using cf::DescriptorSource;
using KeepsAlive = DescriptorSource::KeepsAlive;
using Interest = DescriptorSource::Interest;

class Pipe {
 public:
  Pipe() { EXPECT_EQ(::pipe2(ends_, O_CLOEXEC | O_NONBLOCK), 0); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    ::close(ends_[0]);
    closeWriting();
  }
  int reading() const { return ends_[0]; }
  void put() const { EXPECT_EQ(::write(ends_[1], "x", 1), 1); }
  bool take() const {
    char byte;
    return ::read(ends_[0], &byte, 1) == 1;
  }
  void closeWriting() {
    if (ends_[1] >= 0) ::close(ends_[1]);
    ends_[1] = -1;
  }

 private:
  int ends_[2] = {-1, -1};
};

TEST(DescriptorSourceTest, IsCalledWhenItsDescriptorIsReady) {
  const Pipe pipe;
  int calls = 0;
  const auto source = DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t events) {
    EXPECT_EQ(events, static_cast<std::uint32_t>(EPOLLIN));
    ++calls;
    return pipe.take();
  });
  ASSERT_NE(source, nullptr);
  EXPECT_TRUE(source->isWatched());
  EXPECT_EQ(run(0.01, true), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, 0);
  pipe.put();
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  EXPECT_EQ(calls, 1);
}

TEST(DescriptorSourceTest, WakesAWaitUnderWay) {
  const Pipe pipe;
  const auto source =
      DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) { return pipe.take(); });
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  std::thread writer([&] {
    EXPECT_TRUE(awaited([&] { return CFRunLoopIsWaiting(loop); }));
    pipe.put();
  });
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  writer.join();
}

TEST(DescriptorSourceTest, CountsAsHandledOnlyWhenItSaysSo) {
  const Pipe pipe;
  int calls = 0;
  const auto source = DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) {
    pipe.take();
    return ++calls == 3;
  });
  for (int byte = 0; byte < 3; ++byte) pipe.put();
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  EXPECT_EQ(calls, 3);
}

TEST(DescriptorSourceTest, KeepsTheLoopAliveOnlyWhenItIsMeantTo) {
  const Pipe pipe;
  const auto source =
      DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::no, [&](std::uint32_t) { return pipe.take(); });
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  source->setKeepsAlive(KeepsAlive::yes);
  EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut);
  source->setKeepsAlive(KeepsAlive::no);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  // With something else to do it is served all the same.
  const Installed idle(timer(now() + kFarAway, 0, [] {}));
  pipe.put();
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
}

TEST(DescriptorSourceTest, IsServedInTheCommonModesOnly) {
  onAFreshLoop([] {
    const Pipe pipe;
    const auto source =
        DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) { return pipe.take(); });
    const CFStringRef mode = CFSTR("a mode for descriptors");
    pipe.put();
    EXPECT_EQ(run(kLong, true, mode), kCFRunLoopRunFinished);
    int ticks = 0;
    const Installed ticking(timer(now(), 0.001, [&] { ++ticks; }), mode);
    EXPECT_EQ(run(0.02, true, mode), kCFRunLoopRunTimedOut);
    EXPECT_GT(ticks, 0);
    CFRunLoopAddCommonMode(CFRunLoopGetCurrent(), mode);
    EXPECT_EQ(run(kLong, true, mode), kCFRunLoopRunHandledSource);
  });
}

TEST(DescriptorSourceTest, WaitsForWhatItsHookSaysEachTime) {
  const Pipe pipe;
  pipe.put();
  Interest interest{0, cf::kNever};
  int calls = 0;
  int prepared = 0;
  const auto source = DescriptorSource::add(
      pipe.reading(), EPOLLIN, KeepsAlive::yes,
      [&](std::uint32_t) {
        ++calls;
        return true;
      },
      [&] {
        ++prepared;
        return interest;
      });
  EXPECT_EQ(run(0.01, true), kCFRunLoopRunTimedOut) << "it asks for no events";
  EXPECT_GT(prepared, 0);
  interest.events = EPOLLIN;
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  EXPECT_EQ(calls, 1);
}

// Between the pass's look at its sources and its wait.
TEST(DescriptorSourceTest, AWakeUpFromItsHookIsNotSleptThrough) {
  const Pipe pipe;
  const auto signalled = source([] {});
  const Installed installed(signalled);
  bool isFirst = true;
  const auto watched = DescriptorSource::add(
      pipe.reading(), 0, KeepsAlive::yes, [](std::uint32_t) { return false; },
      [&] {
        if (std::exchange(isFirst, false)) {
          CFRunLoopSourceSignal(signalled);
          CFRunLoopWakeUp(CFRunLoopGetCurrent());
        }
        return Interest{};
      });
  EXPECT_EQ(run(5, true), kCFRunLoopRunHandledSource);
}

TEST(DescriptorSourceTest, IsCalledAtItsDeadlineWithoutEvents) {
  const Pipe pipe;
  for (const cf::MonotonicTime ahead : {-1'000'000'000, 0, 20'000'000}) {
    const cf::MonotonicTime deadline = cf::monotonicNow() + ahead;
    std::vector<std::uint32_t> calls;
    bool isOver = false;
    const auto source = DescriptorSource::add(
        pipe.reading(), EPOLLIN, KeepsAlive::yes,
        [&](std::uint32_t events) {
          EXPECT_GE(cf::monotonicNow(), deadline);
          calls.push_back(events);
          isOver = true;
          return true;
        },
        [&] {
          return Interest{EPOLLIN, isOver ? cf::kNever : deadline};
        });
    EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
    EXPECT_EQ(calls, std::vector<std::uint32_t>({0}));
  }
}

TEST(DescriptorSourceTest, MayEndInItsOwnCallbacks) {
  const Pipe pipe;
  pipe.put();
  std::unique_ptr<DescriptorSource> source;
  auto kept = std::make_shared<int>(0);
  source = DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&source, kept](std::uint32_t) {
    source.reset();
    ++*kept;  // what the function holds is still there
    return true;
  });
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(*kept, 1);
  EXPECT_EQ(kept.use_count(), 1);
  source = DescriptorSource::add(
      pipe.reading(), EPOLLIN, KeepsAlive::yes,
      [](std::uint32_t) {
        ADD_FAILURE() << "it has ended";
        return true;
      },
      [&source] {
        source.reset();
        return Interest{EPOLLIN, 0};
      });
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
}

TEST(DescriptorSourceTest, AllThatAreReadyAreServedAndMayEndOneAnother) {
  constexpr std::size_t kCount = 40;
  std::vector<Pipe> pipes(kCount);
  std::vector<std::unique_ptr<DescriptorSource>> sources;
  std::vector<int> calls(kCount);
  for (std::size_t index = 0; index < kCount; ++index) {
    pipes[index].put();
    sources.push_back(
        DescriptorSource::add(pipes[index].reading(), EPOLLIN, KeepsAlive::yes, [&, index](std::uint32_t) {
          ++calls[index];
          sources[kCount - 1 - index].reset();  // its partner
          return pipes[index].take();
        }));
  }
  EXPECT_EQ(run(0.05), kCFRunLoopRunTimedOut);
  for (std::size_t index = 0; index < kCount / 2; ++index) {
    EXPECT_EQ(calls[index] + calls[kCount - 1 - index], 1) << "pair " << index;
  }
}

TEST(DescriptorSourceTest, AnInnerRunTakesWhatTheOuterOneHasSeen) {
  const Pipe one, two;
  int calls = 0;
  const auto serve = [&](const Pipe& pipe) {
    EXPECT_TRUE(pipe.take()) << "called for an event that is over";
    if (++calls == 1) {
      EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
    }
    return true;
  };
  const auto first =
      DescriptorSource::add(one.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) { return serve(one); });
  const auto second =
      DescriptorSource::add(two.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) { return serve(two); });
  one.put();
  two.put();
  EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, 2);
}

TEST(DescriptorSourceTest, ABusyDescriptorLetsTimersSourcesAndTheEndOfTheRunComeThrough) {
  Pipe pipe;
  pipe.put();
  int calls = 0;
  const auto busy = DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) {
    ++calls;
    return true;
  });
  int fired = 0;
  int performed = 0;
  const auto signalled = run_loops::source([&] { ++performed; });
  const Installed installed(signalled);
  const Installed ticking(timer(now(), 0.001, [&] {
    ++fired;
    CFRunLoopSourceSignal(signalled);
  }));
  EXPECT_EQ(run(0.03), kCFRunLoopRunTimedOut);
  EXPECT_GT(calls, fired);
  EXPECT_GT(fired, 1);
  EXPECT_GT(performed, 1);
}

TEST(DescriptorSourceTest, AStopComesBeforeTheNextOne) {
  const Pipe one, two;
  int calls = 0;
  const auto stop = [&](std::uint32_t) {
    ++calls;
    CFRunLoopStop(CFRunLoopGetCurrent());
    return true;
  };
  const auto first = DescriptorSource::add(one.reading(), EPOLLIN, KeepsAlive::yes, stop);
  const auto second = DescriptorSource::add(two.reading(), EPOLLIN, KeepsAlive::yes, stop);
  one.put();
  two.put();
  EXPECT_EQ(run(kLong), kCFRunLoopRunStopped);
  EXPECT_EQ(calls, 1);
}

TEST(DescriptorSourceTest, AnExceptionLeavesTheLoopInOrder) {
  const Pipe pipe;
  bool isThrowing = true;
  const auto source = DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) {
    if (isThrowing) throw std::runtime_error("from the callback");
    return pipe.take();
  });
  pipe.put();
  EXPECT_THROW(run(kLong), std::runtime_error);
  isThrowing = false;
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
}

TEST(DescriptorSourceTest, TellsOfAHangUpUnasked) {
  Pipe pipe;
  std::uint32_t seen = 0;
  const auto source = DescriptorSource::add(pipe.reading(), 0, KeepsAlive::yes, [&](std::uint32_t events) {
    seen = events;
    return true;
  });
  pipe.closeWriting();
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  EXPECT_TRUE(seen & EPOLLHUP);
}

TEST(DescriptorSourceTest, SaysWhatTheKernelRefuses) {
  const auto add = [](int descriptor) {
    errno = 0;
    return DescriptorSource::add(descriptor, EPOLLIN, KeepsAlive::yes, [](std::uint32_t) { return true; });
  };
  EXPECT_EQ(add(-1), nullptr);
  EXPECT_EQ(errno, EBADF);
  const int file = ::open("/etc/passwd", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  EXPECT_EQ(add(file), nullptr);
  EXPECT_EQ(errno, EPERM);
  ::close(file);
  const Pipe pipe;
  const auto first = add(pipe.reading());
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(add(pipe.reading()), nullptr);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(run(0.01), kCFRunLoopRunTimedOut) << "the first one is still watched";
}

TEST(DescriptorSourceTest, OutlivesItsLoop) {
  const Pipe pipe;
  std::unique_ptr<DescriptorSource> source;
  std::thread([&] {
    source = DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [](std::uint32_t) { return true; });
    EXPECT_TRUE(source->isWatched());
  }).join();
  EXPECT_FALSE(source->isWatched());
  source.reset();
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
}

TEST(DescriptorSourceTest, StaysBehindAtAFork) {
  const Pipe pipe;
  const auto source =
      DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) { return pipe.take(); });
  pipe.put();
  const pid_t child = ::fork();
  if (child == 0) {
    const bool isLeft = !source->isWatched() && run(kLong, true) == kCFRunLoopRunFinished;
    // A descriptor of the child's own, with the old source going after it came.
    auto old = DescriptorSource::add(pipe.reading(), EPOLLIN, KeepsAlive::yes, [&](std::uint32_t) { return true; });
    const bool isOwn = old != nullptr && old->isWatched() && run(kLong, true) == kCFRunLoopRunHandledSource;
    ::_exit(isLeft && isOwn ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_TRUE(source->isWatched());
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource) << "the parent's is not disturbed";
}

}  // namespace
