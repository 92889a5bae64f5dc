// conditional_mutex.h: CConditionalMutex, a mutex that holds an integer and can be locked when that has a given value.
//
// A thread that waits for an event locks when the value says so; the thread that reports the event sets the value while
// it holds the lock. The object may be destroyed by a waiter as soon as its lock has returned and it has unlocked, even
// while the thread that woke it is still on its way out of unlockAndSetValue(): that call touches nothing of the object
// once a waiter can run.
//
// The mutex is not recursive and knows its holder. All waiting uses the monotonic clock.
#pragma once

#include <plinth/export.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace plinth {

class PLINTH_EXPORT CConditionalMutex {
 public:
  explicit CConditionalMutex(int value = 0);
  CConditionalMutex(const CConditionalMutex&) = delete;
  CConditionalMutex& operator=(const CConditionalMutex&) = delete;
  // Nobody may hold the mutex or wait for it.
  ~CConditionalMutex();

  // The three ways to lock throw CParamException when the calling thread holds the mutex already.

  // Waits until the mutex is free and holds `value`, then locks it.
  void lockWhenValueSet(int value);
  // The same for at most `seconds`; true when it locked. When the mutex is free and holds the value it is locked
  // whatever the time. Zero, negative times and NaN do not wait; times of a billion seconds and more (infinity
  // included) wait without limit.
  bool lockWithTimeoutWhenValueSet(int value, double seconds);
  // Waits until the mutex is free, whatever it holds, then locks it.
  void lockWithBlocking();

  // Both throw CParamException, and change nothing, when the calling thread does not hold the mutex.
  void unlock();
  // Sets the value, wakes every waiter and unlocks.
  void unlockAndSetValue(int value);

  // The value at this moment; it may change at any time unless the caller holds the mutex.
  int value() const noexcept { return value_.load(std::memory_order_acquire); }

 private:
  void checkNotHolder(const char* operation) const;
  void release(const char* operation, const int* newValue);

  // Guards the fields below; held only for moments, so time-outs hold however long the mutex itself is kept.
  std::mutex guard_;
  std::condition_variable changed_;
  bool held_ = false;
  std::thread::id holder_;  // meaningful while held_
  std::atomic<int> value_;  // changed under guard_
};

}  // namespace plinth
