#include <gtest/gtest.h>
#include <plinth/conditional_mutex.h>
#include <plinth/mutex.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace plinth;

TEST(CMutexStressTest, NoUpdateIsLost) {
  for (const bool isRecursive : {false, true}) {
    const CMutexRef mutex = isRecursive ? CMutexRef(CSharedObjectRef<CRecursiveMutex>(makeShared<CRecursiveMutex>()))
                                        : makeShared<CMutex>();
    long count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        for (int round = 0; round < 20000; ++round) {
          const CAutoMutex guard(mutex);
          ++count;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(count, 160000);
  }
}

// Hands each mutex to one reporting thread, which sets the value 1 and must not touch the object any more, as the
// waiter destroys it at once.
class Reporter {
 public:
  Reporter() : thread_([this] { run(); }) {}
  ~Reporter() {
    report(nullptr);
    thread_.join();
  }
  void report(CConditionalMutex* mutex) {
    std::unique_lock lock(guard_);
    changed_.wait(lock, [&] { return !isFull_; });
    next_ = mutex;
    isFull_ = true;
    changed_.notify_all();
  }

 private:
  void run() {
    while (CConditionalMutex* const mutex = take()) {
      mutex->lockWithBlocking();
      mutex->unlockAndSetValue(1);
    }
  }
  CConditionalMutex* take() {
    std::unique_lock lock(guard_);
    changed_.wait(lock, [&] { return isFull_; });
    isFull_ = false;
    changed_.notify_all();
    return next_;
  }

  std::mutex guard_;
  std::condition_variable changed_;
  CConditionalMutex* next_ = nullptr;
  bool isFull_ = false;
  std::thread thread_;
};

TEST(CConditionalMutexStressTest, AWaiterDestroysTheMutexAsSoonAsItsWaitIsOver) {
  Reporter reporter;
  for (int cycle = 0; cycle < 100000; ++cycle) {
    auto mutex = std::make_unique<CConditionalMutex>(0);
    reporter.report(mutex.get());
    if (cycle % 2 == 0) {
      mutex->lockWhenValueSet(1);
    } else {
      ASSERT_TRUE(mutex->lockWithTimeoutWhenValueSet(1, 300)) << "in cycle " << cycle;
    }
    mutex->unlock();
    mutex.reset();
  }
}

// The same, each time with a thread of its own that lives no longer than its report: what a child's monitor does.
TEST(CConditionalMutexStressTest, AWaiterDestroysTheMutexOfADetachedThread) {
  constexpr int kCycles = 10000;
  CConditionalMutex ended(0);  // counts the threads that are gone from the mutex
  for (int cycle = 0; cycle < kCycles; ++cycle) {
    auto mutex = std::make_unique<CConditionalMutex>(0);
    std::thread([raw = mutex.get(), &ended] {
      raw->lockWithBlocking();
      raw->unlockAndSetValue(1);
      ended.lockWithBlocking();
      ended.unlockAndSetValue(ended.value() + 1);
    }).detach();
    mutex->lockWhenValueSet(1);
    mutex->unlock();
    mutex.reset();
  }
  EXPECT_TRUE(ended.lockWithTimeoutWhenValueSet(kCycles, 300)) << ended.value() << " threads ended";
  ended.unlock();
}

TEST(CConditionalMutexStressTest, ManyWaitersWithTimeoutsLoseNoTurn) {
  CConditionalMutex mutex(0);
  int turns = 0;  // guarded by the mutex
  std::vector<std::thread> threads;
  for (int self = 0; self < 6; ++self) {
    threads.emplace_back([&, self] {
      for (int round = 0; round < 2000; ++round) {
        // Short waits time out again and again in between.
        while (!mutex.lockWithTimeoutWhenValueSet(self, 0.0005)) {
        }
        ++turns;
        mutex.unlockAndSetValue((self + 1) % 6);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(turns, 12000);
  EXPECT_EQ(mutex.value(), 0);
}

}  // namespace
