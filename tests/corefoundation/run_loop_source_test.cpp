// Sources that a program signals by itself.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/corefoundation/run_loop_support.h"

namespace {

using namespace run_loops;
using Log = std::vector<std::string>;

// A source whose every callback is written down.
struct Logged {
  explicit Logged(CFIndex order = kAnyOrder) {
    CFRunLoopSourceContext context{};
    context.info = this;
    context.retain = [](const void* info) { return note(info, "retain"); };
    context.release = [](const void* info) { note(info, "release"); };
    context.equal = [](const void*, const void*) -> Boolean { return true; };
    context.hash = [](const void*) -> CFHashCode { return 4711; };
    context.schedule = [](void* info, CFRunLoopRef loop, CFRunLoopMode mode) {
      EXPECT_EQ(loop, CFRunLoopGetCurrent());
      note(info, "schedule " + values::textOf(mode));
    };
    context.cancel = [](void* info, CFRunLoopRef loop, CFRunLoopMode mode) {
      EXPECT_EQ(loop, CFRunLoopGetCurrent());
      note(info, "cancel " + values::textOf(mode));
    };
    context.perform = [](void* info) { note(info, "perform"); };
    source = CFRunLoopSourceCreate(kCFAllocatorDefault, order, &context);
  }

  static const void* note(const void* info, const std::string& word) {
    static_cast<Logged*>(const_cast<void*>(info))->log.push_back(word);
    return info;
  }
  Log taken() { return std::exchange(log, {}); }

  Log log;
  Held<CFRunLoopSourceRef> source;
};

const std::string kDefault = "kCFRunLoopDefaultMode";

TEST(CFRunLoopSourceTest, TellsItsContextWhatHappensToIt) {
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  Logged logged;
  EXPECT_EQ(logged.taken(), Log({"retain"}));
  CFRunLoopAddSource(loop, logged.source, kCFRunLoopDefaultMode);
  EXPECT_EQ(logged.taken(), Log({"schedule " + kDefault}));
  CFRunLoopAddSource(loop, logged.source, kCFRunLoopDefaultMode);
  EXPECT_EQ(logged.taken(), Log()) << "it is there already";
  CFRunLoopAddSource(loop, logged.source, CFSTR("other"));
  EXPECT_EQ(logged.taken(), Log({"schedule other"}));
  CFRunLoopSourceSignal(logged.source);
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(logged.taken(), Log({"perform"}));
  CFRunLoopRemoveSource(loop, logged.source, CFSTR("other"));
  EXPECT_EQ(logged.taken(), Log({"cancel other"}));
  CFRunLoopRemoveSource(loop, logged.source, CFSTR("other"));
  EXPECT_EQ(logged.taken(), Log());
  CFRunLoopSourceInvalidate(logged.source);
  EXPECT_EQ(logged.taken(), Log({"cancel " + kDefault, "release"}));
  CFRunLoopSourceInvalidate(logged.source);
  EXPECT_EQ(logged.taken(), Log());
}

TEST(CFRunLoopSourceTest, CommonModesScheduleAndCancelItModeByMode) {
  onAFreshLoop([] {
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    Logged logged;
    logged.taken();
    CFRunLoopAddSource(loop, logged.source, kCFRunLoopCommonModes);
    EXPECT_EQ(logged.taken(), Log({"schedule " + kDefault}));
    EXPECT_TRUE(CFRunLoopContainsSource(loop, logged.source, kCFRunLoopCommonModes));
    EXPECT_TRUE(CFRunLoopContainsSource(loop, logged.source, kCFRunLoopDefaultMode));
    CFRunLoopAddCommonMode(loop, CFSTR("panel"));
    EXPECT_EQ(logged.taken(), Log({"schedule panel"}));
    CFRunLoopAddCommonMode(loop, CFSTR("panel"));
    EXPECT_EQ(logged.taken(), Log());
    CFRunLoopSourceSignal(logged.source);
    EXPECT_EQ(run(kLong, true, CFSTR("panel")), kCFRunLoopRunHandledSource);
    EXPECT_EQ(logged.taken(), Log({"perform"}));
    CFRunLoopRemoveSource(loop, logged.source, kCFRunLoopCommonModes);
    EXPECT_EQ(logged.taken(), Log({"cancel " + kDefault, "cancel panel"}));
    EXPECT_FALSE(CFRunLoopContainsSource(loop, logged.source, kCFRunLoopCommonModes));
    EXPECT_FALSE(CFRunLoopContainsSource(loop, logged.source, CFSTR("panel")));
  });
}

TEST(CFRunLoopSourceTest, ReleasesItsInfoWithItsLastReference) {
  Logged logged;
  logged.source = {};
  EXPECT_EQ(logged.taken(), Log({"retain", "release"}));
}

TEST(CFRunLoopSourceTest, SignalsThatComeTogetherMakeOneCall) {
  Logged logged;
  const Installed installed(logged.source);
  logged.taken();
  CFRunLoopSourceSignal(logged.source);
  CFRunLoopSourceSignal(logged.source);
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(logged.taken(), Log({"perform"}));
}

TEST(CFRunLoopSourceTest, ASignalBeforeItIsAddedIsKept) {
  Logged logged;
  CFRunLoopSourceSignal(logged.source);
  const Installed installed(logged.source);
  logged.taken();
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(logged.taken(), Log({"perform"}));
}

TEST(CFRunLoopSourceTest, SourcesAreCalledByOrderThenAsTheyWereAdded) {
  Log calls;
  std::vector<Held<CFRunLoopSourceRef>> sources;
  for (const auto& [name, order] :
       std::vector<std::pair<std::string, CFIndex>>{{"late", 5}, {"middle 1", 0}, {"early", -5}, {"middle 2", 0}}) {
    sources.push_back(source([&calls, name = name] { calls.push_back(name); }, order));
  }
  for (const auto& each : sources) {
    CFRunLoopAddSource(CFRunLoopGetCurrent(), each, kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(each);
  }
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, Log({"early", "middle 1", "middle 2", "late"}));
  for (const auto& each : sources) {
    CFRunLoopSourceSignal(each);
  }
  calls.clear();
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  EXPECT_EQ(calls, Log({"early"})) << "a run that returns after a source calls one";
  for (const auto& each : sources) CFRunLoopSourceInvalidate(each);
}

TEST(CFRunLoopSourceTest, ASourceThatSignalsItselfLetsTimersAndTheEndOfTheRunComeThrough) {
  CFRunLoopSourceRef self = nullptr;
  int calls = 0;
  const auto busy = source([&] {
    ++calls;
    CFRunLoopSourceSignal(self);
  });
  self = busy;
  const Installed installed(busy);
  CFRunLoopSourceSignal(busy);
  int fired = 0;
  const Installed ticking(timer(now(), 0.001, [&] { ++fired; }));
  EXPECT_EQ(run(0.05), kCFRunLoopRunTimedOut);
  EXPECT_GT(calls, fired);
  EXPECT_GT(fired, 1);
}

TEST(CFRunLoopSourceTest, ASourceMayInvalidateItselfAndOthersInItsCallback) {
  int calls = 0;
  CFRunLoopSourceRef all[2] = {};
  const auto action = [&] {
    ++calls;
    for (const CFRunLoopSourceRef each : all) CFRunLoopSourceInvalidate(each);
  };
  {
    const auto one = source(action);
    const auto two = source(action);
    all[0] = one;
    all[1] = two;
    for (const CFRunLoopSourceRef each : all) {
      CFRunLoopAddSource(CFRunLoopGetCurrent(), each, kCFRunLoopDefaultMode);
      CFRunLoopSourceSignal(each);
    }
    EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(CFRunLoopSourceIsValid(one));
    EXPECT_FALSE(CFRunLoopSourceIsValid(two));
  }
}

TEST(CFRunLoopSourceTest, ItsInfoOutlivesACallbackThatInvalidatesIt) {
  Log log;
  struct Info {
    Log& log;
    CFRunLoopSourceRef source;
  } info{log, nullptr};
  CFRunLoopSourceContext context{};
  context.info = &info;
  context.release = [](const void* given) { static_cast<const Info*>(given)->log.push_back("release"); };
  context.perform = [](void* given) {
    const Info& seen = *static_cast<Info*>(given);
    CFRunLoopSourceInvalidate(seen.source);
    CFRelease(seen.source);
    seen.log.push_back("performed");
  };
  info.source = CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), info.source, kCFRunLoopDefaultMode);
  CFRunLoopSourceSignal(info.source);
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(log, Log({"performed", "release"}));
}

TEST(CFRunLoopSourceTest, AnInvalidSourceIsNeitherAddedNorCalled) {
  int calls = 0;
  const auto dead = source([&] { ++calls; });
  CFRunLoopSourceInvalidate(dead);
  CFRunLoopSourceSignal(dead);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), dead, kCFRunLoopDefaultMode);
  EXPECT_FALSE(CFRunLoopContainsSource(CFRunLoopGetCurrent(), dead, kCFRunLoopDefaultMode));
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
  EXPECT_EQ(calls, 0);
}

TEST(CFRunLoopSourceTest, ASourceOfSeveralLoopsIsPerformedByOneOfThem) {
  int calls = 0;
  const auto shared = source([&] { ++calls; });
  const Installed installed(shared);
  std::thread([&] {
    CFRunLoopAddSource(CFRunLoopGetCurrent(), shared, kCFRunLoopDefaultMode);
    EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
    CFRunLoopSourceSignal(shared);
    EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
  }).join();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(run(0), kCFRunLoopRunTimedOut);
  EXPECT_EQ(calls, 1) << "the other loop has taken the signal";
  EXPECT_TRUE(CFRunLoopSourceIsValid(shared)) << "it outlives one of its loops";
}

TEST(CFRunLoopSourceTest, EqualityAndHashAreTheContexts) {
  Logged one, two;
  EXPECT_TRUE(CFEqual(one.source, two.source));
  EXPECT_EQ(CFHash(one.source), 4711U);
  const auto plain = source([] {});
  EXPECT_FALSE(CFEqual(one.source, plain));
  EXPECT_TRUE(CFEqual(plain, plain));
  EXPECT_FALSE(CFEqual(plain, source([] {})));
}

TEST(CFRunLoopSourceTest, AContextMayHaveNoFunctionsAtAll) {
  CFRunLoopSourceContext context{};
  const Held<CFRunLoopSourceRef> bare = CFRunLoopSourceCreate(kCFAllocatorDefault, 7, &context);
  EXPECT_EQ(CFRunLoopSourceGetOrder(bare), 7);
  EXPECT_EQ(CFGetTypeID(bare.get()), CFRunLoopSourceGetTypeID());
  const Installed installed(bare, kCFRunLoopCommonModes);
  CFRunLoopSourceSignal(bare);
  EXPECT_EQ(run(kLong, true), kCFRunLoopRunHandledSource);
}

TEST(CFRunLoopSourceTest, RefusesWhatItCannotBeMadeFrom) {
  EXPECT_EQ(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, nullptr), nullptr);
  CFRunLoopSourceContext context{};
  context.version = 1;
  EXPECT_EQ(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context), nullptr);
}

TEST(CFRunLoopSourceTest, NullDoesNothing) {
  CFRunLoopSourceSignal(nullptr);
  CFRunLoopSourceInvalidate(nullptr);
  EXPECT_FALSE(CFRunLoopSourceIsValid(nullptr));
  EXPECT_EQ(CFRunLoopSourceGetOrder(nullptr), 0);
  const auto some = source([] {});
  CFRunLoopAddSource(nullptr, some, kCFRunLoopDefaultMode);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), some, nullptr);
  CFRunLoopAddSource(CFRunLoopGetCurrent(), nullptr, kCFRunLoopDefaultMode);
  CFRunLoopRemoveSource(nullptr, some, kCFRunLoopDefaultMode);
  EXPECT_FALSE(CFRunLoopContainsSource(nullptr, some, kCFRunLoopDefaultMode));
  EXPECT_EQ(run(kLong), kCFRunLoopRunFinished);
}

}  // namespace
