#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/mutex.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;
using test::messageOf;

// Whether another thread could lock it at this moment.
bool isFree(const CMutexRef& mutex) {
  return std::async(std::launch::async,
                    [&] {
                      if (!mutex->tryLock()) return false;
                      mutex->unlock();
                      return true;
                    })
      .get();
}

CMutexRef plain() { return makeShared<CMutex>(); }
CMutexRef recursive() { return CSharedObjectRef<CRecursiveMutex>(makeShared<CRecursiveMutex>()); }

TEST(CMutexTest, ExcludesOtherThreadsWhileItIsHeld) {
  for (const CMutexRef& mutex : {plain(), recursive()}) {
    EXPECT_TRUE(isFree(mutex));
    mutex->lock();
    EXPECT_FALSE(isFree(mutex));
    mutex->unlock();
    EXPECT_TRUE(isFree(mutex));
  }
}

TEST(CMutexTest, AWaiterGoesOnAfterTheUnlock) {
  const CMutexRef mutex = plain();
  std::vector<int> order;  // guarded by the mutex
  mutex->lock();
  std::promise<void> aboutToLock;
  std::thread waiter([&] {
    aboutToLock.set_value();
    mutex->lock();
    order.push_back(2);
    mutex->unlock();
  });
  aboutToLock.get_future().wait();
  order.push_back(1);
  mutex->unlock();
  waiter.join();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(CMutexTest, LockingItAgainIsAnErrorAndNoDeadlock) {
  const CMutexRef mutex = plain();
  mutex->lock();
  EXPECT_EQ(messageOf<CParamException>([&] { mutex->lock(); }),
            "CMutex::lock failed: the calling thread holds it already");
  EXPECT_FALSE(mutex->tryLock());
  mutex->unlock();
  EXPECT_TRUE(isFree(mutex));
}

TEST(CMutexTest, UnlockingWhatOneDoesNotHoldIsAnError) {
  const char* const expected = "CMutex::unlock failed: the calling thread does not hold it";
  for (const CMutexRef& mutex : {plain(), recursive()}) {
    EXPECT_EQ(messageOf<CParamException>([&] { mutex->unlock(); }), expected);
    mutex->lock();
    std::thread([&] { EXPECT_EQ(messageOf<CParamException>([&] { mutex->unlock(); }), expected); }).join();
    EXPECT_FALSE(isFree(mutex));
    mutex->unlock();
  }
}

TEST(CRecursiveMutexTest, IsFreeAfterAsManyUnlocks) {
  const CMutexRef mutex = recursive();
  mutex->lock();
  mutex->lock();
  EXPECT_TRUE(mutex->tryLock());
  mutex->unlock();
  mutex->unlock();
  EXPECT_FALSE(isFree(mutex));
  mutex->unlock();
  EXPECT_TRUE(isFree(mutex));
}

TEST(CAutoMutexTest, HoldsTheMutexForItsScope) {
  const CMutexRef mutex = plain();
  {
    const CAutoMutex guard(mutex);
    EXPECT_TRUE(guard.isLocked());
    EXPECT_FALSE(isFree(mutex));
  }
  EXPECT_TRUE(isFree(mutex));
}

TEST(CAutoMutexTest, ReleasesTheMutexWhenAnExceptionLeavesTheScope) {
  const CMutexRef mutex = plain();
  messageOf<CIOException>([&] {
    const CAutoMutex guard(mutex);
    throw CIOException("x");
  });
  EXPECT_TRUE(isFree(mutex));
}

TEST(CAutoMutexTest, MayUnlockAndLockAgain) {
  const CMutexRef mutex = plain();
  CAutoMutex guard(mutex);
  guard.unlock();
  EXPECT_FALSE(guard.isLocked());
  EXPECT_TRUE(isFree(mutex));
  guard.lock();
  EXPECT_FALSE(isFree(mutex));
}

TEST(CAutoMutexTest, AnUnlockedGuardUnlocksNothing) {
  const CMutexRef mutex = plain();
  {
    CAutoMutex guard(mutex);
    guard.unlock();
    mutex->lock();
  }
  EXPECT_FALSE(isFree(mutex));
  mutex->unlock();
}

TEST(CAutoMutexTest, DeferredLocksLater) {
  const CMutexRef mutex = plain();
  {
    CAutoMutex guard(mutex, CAutoMutex::Option::deferred);
    EXPECT_FALSE(guard.isLocked());
    EXPECT_TRUE(isFree(mutex));
    EXPECT_TRUE(guard.tryLock());
    EXPECT_FALSE(isFree(mutex));
  }
  EXPECT_TRUE(isFree(mutex));
}

TEST(CAutoMutexTest, TryLockTellsWhetherItGotTheMutex) {
  const CMutexRef mutex = plain();
  const CAutoMutex first(mutex, CAutoMutex::Option::tryLock);
  EXPECT_TRUE(first.isLocked());
  std::thread([&] {
    CAutoMutex second(mutex, CAutoMutex::Option::tryLock);
    EXPECT_FALSE(second.isLocked());
    EXPECT_FALSE(second.tryLock());
  }).join();
  EXPECT_FALSE(isFree(mutex));
}

TEST(CAutoMutexTest, NestsOnARecursiveMutex) {
  const CMutexRef mutex = recursive();
  const CAutoMutex outer(mutex);
  { const CAutoMutex inner(mutex); }
  EXPECT_FALSE(isFree(mutex));
}

TEST(CAutoMutexTest, ReportsMisuse) {
  EXPECT_EQ(messageOf<CNullPointerException>([] { CAutoMutex guard{CMutexRef()}; }), "Error: mutex is null!");
  const CMutexRef mutex = plain();
  CAutoMutex guard(mutex);
  EXPECT_EQ(messageOf<CParamException>([&] { guard.lock(); }),
            "CAutoMutex::lock failed: this guard holds its lock already");
  EXPECT_EQ(messageOf<CParamException>([&] { guard.tryLock(); }),
            "CAutoMutex::tryLock failed: this guard holds its lock already");
  EXPECT_EQ(messageOf<CParamException>([&] { CAutoMutex second(mutex); }),
            "CMutex::lock failed: the calling thread holds it already");
  guard.unlock();
  EXPECT_EQ(messageOf<CParamException>([&] { guard.unlock(); }), "CAutoMutex::unlock failed: this guard holds no lock");
}

TEST(CAutoMutexTest, AMutexUnlockedBehindItsBackIsAConsoleLine) {
  const CMutexRef mutex = plain();
  testing::internal::CaptureStderr();
  {
    const CAutoMutex guard(mutex);
    mutex->unlock();
  }
  const std::string written = testing::internal::GetCapturedStderr();
  EXPECT_NE(written.find("CMutex::unlock failed: the calling thread does not hold it\n"), std::string::npos) << written;
  EXPECT_TRUE(isFree(mutex));
}

TEST(CAutoMutexTest, KeepsTheMutexAlive) {
  CMutexRef mutex = plain();
  CMutex* const object = mutex.get();
  CAutoMutex guard(mutex);
  mutex = nullptr;
  EXPECT_EQ(object->GetRetainCount(), 1);
}

}  // namespace
