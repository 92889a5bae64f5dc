#include <gtest/gtest.h>
#include <plinth/conditional_mutex.h>
#include <plinth/exception.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <future>
#include <limits>
#include <thread>
#include <vector>

#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;
using std::chrono::steady_clock;
using test::messageOf;

constexpr double kLong = 60;  // seconds; a time-out that no test waits for

double secondsOf(const std::function<void()>& action) {
  const auto start = steady_clock::now();
  action();
  return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// Runs an action to its end on a thread of its own.
template <class Action>
auto elsewhere(Action action) {
  return std::async(std::launch::async, action).get();
}

TEST(CConditionalMutexTest, BeginsFreeWithItsValue) {
  CConditionalMutex mutex;
  EXPECT_EQ(mutex.value(), 0);
  CConditionalMutex seven(7);
  EXPECT_EQ(seven.value(), 7);
  seven.lockWhenValueSet(7);
  seven.unlock();
  EXPECT_EQ(seven.value(), 7);
}

TEST(CConditionalMutexTest, ExcludesOtherThreadsWhileItIsHeld) {
  CConditionalMutex mutex;
  mutex.lockWithBlocking();
  EXPECT_FALSE(elsewhere([&] { return mutex.lockWithTimeoutWhenValueSet(0, 0); }));
  mutex.unlock();
  EXPECT_TRUE(elsewhere([&] {
    const bool isLocked = mutex.lockWithTimeoutWhenValueSet(0, 0);
    mutex.unlock();
    return isLocked;
  }));
}

TEST(CConditionalMutexTest, UnlockAndSetValueWakesTheWaiterForThatValue) {
  CConditionalMutex mutex;
  std::promise<void> started;
  std::thread waiter([&] {
    started.set_value();
    mutex.lockWhenValueSet(1);
    EXPECT_EQ(mutex.value(), 1);
    mutex.unlock();
  });
  started.get_future().wait();
  mutex.lockWithBlocking();
  mutex.unlockAndSetValue(1);
  waiter.join();
  EXPECT_EQ(mutex.value(), 1);
}

TEST(CConditionalMutexTest, WakesEveryWaiterOfAValue) {
  CConditionalMutex mutex;
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 5; ++i) {
    waiters.emplace_back([&, i] {
      if (i % 2 == 0) {
        mutex.lockWhenValueSet(1);
      } else {
        EXPECT_TRUE(mutex.lockWithTimeoutWhenValueSet(1, kLong));
      }
      ++woken;
      mutex.unlock();
    });
  }
  mutex.lockWithBlocking();
  mutex.unlockAndSetValue(1);
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(woken, 5);
}

TEST(CConditionalMutexTest, ThreadsTakeTurnsByTheValue) {
  CConditionalMutex mutex;
  std::vector<int> order;  // guarded by the mutex
  std::vector<std::thread> threads;
  for (int turn = 2; turn >= 0; --turn) {
    threads.emplace_back([&, turn] {
      for (int round = 0; round < 100; ++round) {
        mutex.lockWhenValueSet(turn);
        order.push_back(turn);
        mutex.unlockAndSetValue((turn + 1) % 3);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(order.size(), 300u);
  for (std::size_t i = 0; i < order.size(); ++i) ASSERT_EQ(order[i], static_cast<int>(i % 3)) << "at " << i;
}

TEST(CConditionalMutexTest, ATimeoutEndsTheWaitForAValue) {
  CConditionalMutex mutex;
  bool isLocked = true;
  const double waited = secondsOf([&] { isLocked = mutex.lockWithTimeoutWhenValueSet(1, 0.05); });
  EXPECT_FALSE(isLocked);
  EXPECT_GE(waited, 0.05);
  EXPECT_LT(waited, 30);
  // It is free: nothing is held by the thread that gave up.
  mutex.lockWithBlocking();
  mutex.unlock();
}

TEST(CConditionalMutexTest, ATimeoutHoldsAlsoWhileAnotherThreadKeepsTheMutex) {
  CConditionalMutex mutex(1);
  mutex.lockWithBlocking();
  elsewhere([&] {
    bool isLocked = true;
    EXPECT_GE(secondsOf([&] { isLocked = mutex.lockWithTimeoutWhenValueSet(1, 0.05); }), 0.05);
    EXPECT_FALSE(isLocked);
  });
  mutex.unlock();
}

TEST(CConditionalMutexTest, TimesThatAreNoWaitTryOnce) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double seconds : {0.0, -0.0, -1.0, -1e300, -infinity, std::nan(""), 1e-300}) {
    CConditionalMutex mutex;
    EXPECT_LT(secondsOf([&] { EXPECT_FALSE(mutex.lockWithTimeoutWhenValueSet(1, seconds)) << seconds; }), 30);
    EXPECT_TRUE(mutex.lockWithTimeoutWhenValueSet(0, seconds)) << seconds;
    mutex.unlock();
  }
}

TEST(CConditionalMutexTest, HugeTimesWaitForTheValue) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double seconds : {1e8, 1e9, 1e18, 1e300, infinity}) {
    CConditionalMutex mutex;
    std::promise<void> started;
    std::thread waiter([&] {
      started.set_value();
      EXPECT_TRUE(mutex.lockWithTimeoutWhenValueSet(1, seconds)) << seconds;
      mutex.unlock();
    });
    started.get_future().wait();
    mutex.lockWithBlocking();
    mutex.unlockAndSetValue(1);
    waiter.join();
  }
}

TEST(CConditionalMutexTest, UnlockKeepsTheValue) {
  CConditionalMutex mutex(5);
  mutex.lockWithBlocking();
  mutex.unlock();
  EXPECT_EQ(mutex.value(), 5);
  mutex.lockWithBlocking();
  mutex.unlockAndSetValue(-1);
  EXPECT_EQ(mutex.value(), -1);
}

TEST(CConditionalMutexTest, UnlockingWhatOneDoesNotHoldIsAnErrorThatChangesNothing) {
  CConditionalMutex mutex(3);
  EXPECT_EQ(messageOf<CParamException>([&] { mutex.unlock(); }),
            "CConditionalMutex::unlock failed: the calling thread does not hold the mutex");
  mutex.lockWithBlocking();
  elsewhere([&] {
    EXPECT_EQ(messageOf<CParamException>([&] { mutex.unlockAndSetValue(4); }),
              "CConditionalMutex::unlockAndSetValue failed: the calling thread does not hold the mutex");
  });
  EXPECT_EQ(mutex.value(), 3);
  EXPECT_FALSE(elsewhere([&] { return mutex.lockWithTimeoutWhenValueSet(3, 0); }));
  mutex.unlock();
}

TEST(CConditionalMutexTest, LockingItAgainIsAnErrorAndNoDeadlock) {
  CConditionalMutex mutex(1);
  mutex.lockWhenValueSet(1);
  EXPECT_EQ(messageOf<CParamException>([&] { mutex.lockWhenValueSet(1); }),
            "CConditionalMutex::lockWhenValueSet failed: the calling thread holds the mutex already");
  EXPECT_EQ(messageOf<CParamException>([&] { mutex.lockWithTimeoutWhenValueSet(1, kLong); }),
            "CConditionalMutex::lockWithTimeoutWhenValueSet failed: the calling thread holds the mutex already");
  EXPECT_EQ(messageOf<CParamException>([&] { mutex.lockWithTimeoutWhenValueSet(1, 1e12); }),
            "CConditionalMutex::lockWhenValueSet failed: the calling thread holds the mutex already");
  EXPECT_EQ(messageOf<CParamException>([&] { mutex.lockWithBlocking(); }),
            "CConditionalMutex::lockWithBlocking failed: the calling thread holds the mutex already");
  mutex.unlock();
}

}  // namespace
