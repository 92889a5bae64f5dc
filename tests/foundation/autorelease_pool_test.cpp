#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <plinth/autorelease_pool.h>
#include <plinth/exception.h>
#include <plinth/shared_cf_ref.h>

#include <optional>
#include <string>
#include <thread>

#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;

CSharedCFRef<CFMutableArrayRef> newObject() {
  return CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
}
CFIndex count(const CSharedCFRef<CFMutableArrayRef>& object) { return CFGetRetainCount(object.get()); }

TEST(CNSAutoReleasePoolTest, ReleasesAtItsEndWhatWasPutAside) {
  const auto object = newObject();
  {
    const CNSAutoReleasePool pool;
    EXPECT_EQ(CNSAutoReleasePool::autorelease(object.copy()), object.get());
    CNSAutoReleasePool::autorelease(object.copy());
    EXPECT_EQ(count(object), 3) << "not before its end";
  }
  EXPECT_EQ(count(object), 1);
}

TEST(CNSAutoReleasePoolTest, TheInnermostPoolTakesTheObject) {
  const auto object = newObject();
  const CNSAutoReleasePool outer;
  CNSAutoReleasePool::autorelease(object.copy());
  {
    const CNSAutoReleasePool inner;
    CNSAutoReleasePool::autorelease(object.copy());
    EXPECT_EQ(count(object), 3);
  }
  EXPECT_EQ(count(object), 2);
  CNSAutoReleasePool::autorelease(object.copy());
  EXPECT_EQ(count(object), 3) << "the outer pool is the innermost again";
}

TEST(CNSAutoReleasePoolTest, EachThreadHasPoolsOfItsOwn) {
  const auto object = newObject();
  const CNSAutoReleasePool pool;
  std::thread([&] {
    EXPECT_THROW(CNSAutoReleasePool::autorelease(object.get()), CParamException);
    {
      const CNSAutoReleasePool own;
      CNSAutoReleasePool::autorelease(object.copy());
      EXPECT_EQ(count(object), 2);
    }
    EXPECT_EQ(count(object), 1);
  }).join();
}

TEST(CNSAutoReleasePoolTest, WithoutAPoolTheReferenceStaysTheCallers) {
  const auto object = newObject();
  EXPECT_EQ(test::messageOf<CParamException>([&] { CNSAutoReleasePool::autorelease(object.get()); }),
            "CNSAutoReleasePool::autorelease failed: the thread has no pool");
  EXPECT_EQ(count(object), 1);
}

TEST(CNSAutoReleasePoolTest, NullIsAllowed) {
  const CNSAutoReleasePool pool;
  EXPECT_EQ(CNSAutoReleasePool::autorelease(nullptr), nullptr);
}

TEST(CNSAutoReleasePoolTest, APoolThatEndsTakesThoseInsideAlong) {
  const auto object = newObject();
  std::optional<CNSAutoReleasePool> outer(std::in_place);
  std::optional<CNSAutoReleasePool> inner(std::in_place);
  CNSAutoReleasePool::autorelease(object.copy());
  outer.reset();
  EXPECT_EQ(count(object), 1);
  EXPECT_THROW(CNSAutoReleasePool::autorelease(object.get()), CParamException);
  inner.reset();
  EXPECT_EQ(count(object), 1);
}

TEST(CNSAutoReleasePoolTest, WhatAReleasePutsAsideIsReleasedToo) {
  // An object whose release puts another one aside.
  static CFTypeRef another = nullptr;
  const auto object = newObject();
  another = object.copy();
  CFRunLoopTimerContext context{};
  context.release = [](const void*) { CNSAutoReleasePool::autorelease(another); };
  const CFRunLoopTimerRef releasing = CFRunLoopTimerCreate(
      kCFAllocatorDefault, 0, 0, 0, 0, [](CFRunLoopTimerRef, void*) {}, &context);
  {
    const CNSAutoReleasePool pool;
    CNSAutoReleasePool::autorelease(releasing);
    EXPECT_EQ(count(object), 2);
  }
  EXPECT_EQ(count(object), 1);
}

TEST(CNSAutoReleasePoolTest, AnExceptionDrainsThePoolOnItsWay) {
  const auto object = newObject();
  try {
    const CNSAutoReleasePool pool;
    CNSAutoReleasePool::autorelease(object.copy());
    throw CParamException("on its way");
  } catch (const CException&) {
  }
  EXPECT_EQ(count(object), 1);
}

TEST(CNSAutoReleasePoolTest, ManyObjectsAreHeldUntilTheEnd) {
  const auto object = newObject();
  {
    const CNSAutoReleasePool pool;
    for (int number = 0; number < 100'000; ++number) CNSAutoReleasePool::autorelease(object.copy());
    EXPECT_EQ(count(object), 100'001);
  }
  EXPECT_EQ(count(object), 1);
}

}  // namespace
