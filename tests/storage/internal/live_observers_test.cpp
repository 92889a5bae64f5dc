// Objects that are called back by plain pointer.
#include "storage/live_observers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using plinth::CSharedObjectRef;
using tovan::liveObserver;

class Observer : public plinth::CSharedObject {
 public:
  explicit Observer(std::atomic<int>& alive) : alive_(alive) {
    ++alive_;
    tovan::addLiveObserver(this, *this);
  }
  ~Observer() override {
    // The last reference is given back, though the object is still known.
    wasRetainedWhileGoing = liveObserver<Observer>(this).get() != nullptr;
    tovan::removeLiveObserver(this);
    --alive_;
  }
  void touch() { ++touched_; }
  static inline bool wasRetainedWhileGoing = false;

 private:
  std::atomic<int>& alive_;
  std::atomic<int> touched_ = 0;
};

TEST(LiveObserversTest, GivesAReferenceToAnObjectThatLives) {
  std::atomic<int> alive = 0;
  auto owner = plinth::makeShared<Observer>(alive);
  void* const observer = owner.get();
  CSharedObjectRef<Observer> held = liveObserver<Observer>(observer);
  ASSERT_TRUE(held);
  owner = nullptr;
  EXPECT_EQ(alive, 1);
  held = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(LiveObserversTest, GivesNoneToOneThatIsGoneOrGoingOrWasNeverThere) {
  std::atomic<int> alive = 0;
  auto owner = plinth::makeShared<Observer>(alive);
  void* const observer = owner.get();
  Observer::wasRetainedWhileGoing = true;
  owner = nullptr;
  EXPECT_FALSE(Observer::wasRetainedWhileGoing);
  EXPECT_FALSE(liveObserver<Observer>(observer));
  EXPECT_FALSE(liveObserver<Observer>(nullptr));
}

TEST(LiveObserversTest, ManyThreadsMayAskWhileTheLastReferenceGoes) {
  constexpr int kRounds = 300;
  std::atomic<int> alive = 0;
  for (int round = 0; round < kRounds; ++round) {
    auto owner = plinth::makeShared<Observer>(alive);
    void* const observer = owner.get();
    std::vector<std::thread> askers;
    for (int i = 0; i < 3; ++i) {
      askers.emplace_back([observer] {
        for (int n = 0; n < 50; ++n) {
          if (const CSharedObjectRef<Observer> held = liveObserver<Observer>(observer)) held->touch();
        }
      });
    }
    owner = nullptr;
    for (std::thread& asker : askers) asker.join();
    ASSERT_EQ(alive, 0);
  }
}

}  // namespace
