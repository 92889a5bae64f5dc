// CDNSharedStorageClient: how its waits share the run loops of their threads with everybody else.
#include <tovan/dn_shared_storage_client.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include "tests/storage/protocol_support.h"
#include "tests/storage/server_process.h"
#include "tests/storage/storage_support.h"
#include "tests/support/private_bus.h"

namespace {

using namespace test;
using tovan::CDNSharedStorageClient;
using tovan::CDNSharedStorageClientRef;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

// The best of many rounds says what the code does; the others say what else the machine does. A wait that polled would
// never be better than its period, a hundredth of a second.
constexpr int kRounds = 40;
constexpr double kAtOnce = 0.007;

template <class Round>
double bestOf(Round&& round) {
  double best = 1e9;
  for (int i = 0; i < kRounds; ++i) best = std::min(best, round());
  return best;
}

// Calls back on the current run loop.
class Timer {
 public:
  Timer(double seconds, double interval, std::function<void()> callback) : callback_(std::move(callback)) {
    CFRunLoopTimerContext context{0, this, nullptr, nullptr, nullptr};
    timer_ = CFRunLoopTimerCreate(
        nullptr, CFAbsoluteTimeGetCurrent() + seconds, interval, 0, 0,
        [](CFRunLoopTimerRef, void* info) { static_cast<Timer*>(info)->callback_(); }, &context);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer_.get(), kCFRunLoopDefaultMode);
  }
  ~Timer() { CFRunLoopTimerInvalidate(timer_.get()); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

 private:
  std::function<void()> callback_;
  plinth::CSharedCFRef<CFRunLoopTimerRef> timer_;
};

// Requests are for the server process, unless a test stops it and answers by itself.
class StorageWaitTest : public ::testing::Test {
 protected:
  static OSStatus publish(CDNSharedStorageClient& client, const std::string& path = "/srv/films") {
    return client.publish(folderURL(path), CSTR("app"), 1);
  }
  static CStringRef asyncPublish(CDNSharedStorageClient& client) {
    return client.asyncPublish(folderURL("/srv/films"), CSTR("app"), 1);
  }
  static void answer(const CStringRef& requestID) {
    const Dictionary reply = tovan::CFUtil::CFDictMakeMutable();
    set(reply, "requestID", requestID->str());
    set(reply, "result", 0);
    post(name("publish result"), CFSTR("app"), reply.get());
  }
  CDNSharedStorageClient& client() {
    if (client_.isNull()) client_ = plinth::makeShared<CDNSharedStorageClient>();
    return *client_;
  }

  PrivateBus bus_;
  CDNSharedStorageClientRef client_;
};

TEST_F(StorageWaitTest, AReplyEndsTheWaitAtOnce) {
  const ServerProcess server;
  EXPECT_LT(bestOf([&] {
              const auto begin = Clock::now();
              publish(client());
              return secondsSince(begin);
            }),
            kAtOnce);
}

// Serves its run loop until told to end, with a client that was made there.
class Owner {
 public:
  Owner() : thread_([this] { run(); }) {
    while (!isReady_) std::this_thread::yield();
  }
  ~Owner() {
    isOver_ = true;
    CFRunLoopWakeUp(loop_);
    thread_.join();
  }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;
  CDNSharedStorageClientRef client;

 private:
  void run() {
    client = plinth::makeShared<CDNSharedStorageClient>();
    loop_ = CFRunLoopGetCurrent();
    isReady_ = true;
    while (!isOver_) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, true);
  }

  std::atomic<bool> isReady_ = false;
  std::atomic<bool> isOver_ = false;
  CFRunLoopRef loop_ = nullptr;
  std::thread thread_;
};

TEST_F(StorageWaitTest, AThreadThatDidNotMakeTheClientGetsItsReplyAtOnceToo) {
  const ServerProcess server;
  Owner owner;
  EXPECT_LT(bestOf([&] {
              const auto begin = Clock::now();
              publish(*owner.client);
              return secondsSince(begin);
            }),
            kAtOnce);
}

TEST_F(StorageWaitTest, AThreadThatDidNotMakeTheClientIsServedByTheWaitOfTheOneThatDid) {
  const CStringRef own = asyncPublish(client());
  std::thread other([&] {
    const CStringRef id = asyncPublish(*client_);
    answer(id);
    EXPECT_TRUE(client_->asyncWaitForReply(id, 20));
    answer(own);
  });
  EXPECT_TRUE(client_->asyncWaitForReply(own, 20));
  other.join();
}

TEST_F(StorageWaitTest, AThreadThatDidNotMakeTheClientWaitsInVainWhileThatOneTurnsNoRunLoop) {
  client();
  bool hasReply = true;
  std::thread other([&] {
    const CStringRef id = asyncPublish(*client_);
    answer(id);
    hasReply = client_->asyncWaitForReply(id, 1);
  });
  other.join();
  EXPECT_FALSE(hasReply);
}

TEST_F(StorageWaitTest, SixteenThreadsAskThroughOneClientAtOnce) {
  constexpr int kThreads = 16;
  constexpr int kEach = 25;
  const ServerProcess server([](const std::string& line) {
    if (line.find("/refused") != std::string::npos) throw plinth::CParamException("%s", line.c_str());
  });
  std::atomic<int> done = 0;
  std::vector<std::thread> threads;
  client();
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kEach; ++i) {
        const std::string path = (i % 2 == 0 ? "/srv/" : "/refused/") + std::to_string(thread * kEach + i);
        const std::string failure = thrown([&] { publish(*client_, path); });
        EXPECT_EQ(failure, i % 2 == 0 ? "nothing" : "code 1 publish " + path + " app 1");
      }
      ++done;
    });
  }
  EXPECT_TRUE(runLoopUntil([&] { return done == kThreads; }, 60));
  for (std::thread& thread : threads) thread.join();
}

TEST_F(StorageWaitTest, SixteenThreadsHaveAClientEach) {
  constexpr int kThreads = 16;
  const ServerProcess server;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([] {
      const auto own = plinth::makeShared<CDNSharedStorageClient>();
      for (int i = 0; i < 10; ++i) EXPECT_EQ(publish(*own), 0);
      EXPECT_EQ(own->getServerPort(), 2049);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(StorageWaitTest, SeveralProcessesAskAtOnce) {
  const ServerProcess server;
  std::vector<std::unique_ptr<ChildProcess>> clients;
  for (int i = 0; i < 6; ++i) {
    clients.push_back(std::make_unique<ChildProcess>([](const std::function<void()>& ready) {
      const auto own = plinth::makeShared<CDNSharedStorageClient>();
      ready();
      for (int n = 0; n < 30; ++n) publish(*own);
    }));
  }
  for (const auto& child : clients) EXPECT_EQ(child->wait(), 0);
}

// ---- One run loop for many

TEST_F(StorageWaitTest, ServesTheTimersOfTheThread) {
  const CStringRef id = asyncPublish(client());
  int fired = 0;
  const Timer timer(0.001, 0.002, [&] {
    if (++fired == 5) answer(id);
  });
  EXPECT_TRUE(client().asyncWaitForReply(id, 20));
  EXPECT_GE(fired, 5);
}

TEST_F(StorageWaitTest, WaitsMayNestAndEachGetsItsOwnReply) {
  const CStringRef outer = asyncPublish(client());
  const CStringRef inner = asyncPublish(client());
  bool hasInner = false;
  const Timer timer(0.001, 0, [&] {
    answer(inner);
    answer(outer);
    hasInner = client().asyncWaitForReply(inner, 20);
  });
  EXPECT_TRUE(client().asyncWaitForReply(outer, 20));
  EXPECT_TRUE(hasInner);
}

// The inner wait's run loop takes the outer one's reply in: the outer must not sleep on it when the inner is over.
TEST_F(StorageWaitTest, AReplyThatAnInnerWaitTookInEndsTheOuterOneAtOnce) {
  EXPECT_LT(bestOf([&] {
              const CStringRef outer = asyncPublish(client());
              const CStringRef inner = asyncPublish(client());
              Clock::time_point innerOver;
              const Timer timer(0, 0, [&] {
                answer(outer);
                answer(inner);
                client().asyncWaitForReply(inner, 20);
                innerOver = Clock::now();
              });
              EXPECT_TRUE(client().asyncWaitForReply(outer, 20));
              return secondsSince(innerOver);
            }),
            0.002);
}

TEST_F(StorageWaitTest, WaitsOfTwoClientsNestToo) {
  const auto other = plinth::makeShared<CDNSharedStorageClient>();
  const CStringRef outer = asyncPublish(client());
  bool hasInner = false;
  const Timer timer(0.001, 0, [&] {
    const CStringRef inner = asyncPublish(*other);
    answer(outer);
    answer(inner);
    hasInner = other->asyncWaitForReply(inner, 20);
  });
  EXPECT_TRUE(client().asyncWaitForReply(outer, 20));
  EXPECT_TRUE(hasInner);
}

TEST_F(StorageWaitTest, AnInnerWaitForTheSameReplyTakesItFromTheOuterOneWhichEndsWithoutIt) {
  const CStringRef id = asyncPublish(client());
  bool hasInner = false;
  const Timer timer(0.001, 0, [&] {
    answer(id);
    hasInner = client().asyncWaitForReply(id, 20);
  });
  const auto begin = Clock::now();
  EXPECT_FALSE(client().asyncWaitForReply(id, 20));
  EXPECT_TRUE(hasInner);
  EXPECT_LT(secondsSince(begin), 15) << "there was nothing to wait for any more";
}

TEST_F(StorageWaitTest, TheRunLoopAroundAWaitGoesOn) {
  const ServerProcess server;
  int later = 0;
  const Timer asks(0.001, 0, [&] { publish(client()); });
  const Timer ticks(0.002, 0.002, [&] {
    if (++later == 40) CFRunLoopStop(CFRunLoopGetCurrent());
  });
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 60, false), kCFRunLoopRunStopped);
  EXPECT_EQ(later, 40) << "a run that was not the wait's own was ended";
}

TEST_F(StorageWaitTest, AStopThatComesDuringAWaitReachesTheRunAroundItWhenTheWaitIsOver) {
  bool wasAnswered = false;
  const CStringRef id = asyncPublish(client());
  const Timer asks(0.001, 0, [&] { wasAnswered = client().asyncWaitForReply(id, 20); });
  const Timer stops(0.01, 0, [&] { CFRunLoopStop(CFRunLoopGetCurrent()); });
  const Timer answers(0.03, 0, [&] { answer(id); });
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 60, false), kCFRunLoopRunStopped);
  EXPECT_TRUE(wasAnswered) << "the stop ended the wait";
}

TEST_F(StorageWaitTest, AnExceptionThatLeavesACallbackLeavesTheWaitAndEndsTheRequest) {
  const CStringRef id = asyncPublish(client());
  {
    const Timer throws(0.001, 0, [] { throw std::runtime_error("the host's own"); });
    EXPECT_THROW(client().asyncWaitForReply(id, 20), std::runtime_error);
  }
  answer(id);
  EXPECT_FALSE(client().asyncWaitForReply(id, 20));
  const CStringRef next = asyncPublish(client());
  answer(next);
  EXPECT_TRUE(client().asyncWaitForReply(next, 20));
}

TEST_F(StorageWaitTest, ACallbackMayGiveBackTheLastReferenceToTheClient) {
  CDNSharedStorageClient& waiting = client();
  const CStringRef id = asyncPublish(waiting);
  const Timer timer(0.001, 0, [&] {
    client_ = nullptr;
    answer(id);
  });
  EXPECT_TRUE(waiting.asyncWaitForReply(id, 20));
}

// ---- The end of a client

TEST_F(StorageWaitTest, AReplyForAClientThatIsGoneIsNobodys) {
  answer(asyncPublish(client()));
  void* const gone = client_.get();
  const Dictionary reply = tovan::CFUtil::CFDictMakeMutable();
  set(reply, "requestID", "R1");
  client_ = nullptr;
  CDNSharedStorageClient::resultNotification(nullptr, gone, name("publish result"), nullptr, reply.get());
  CDNSharedStorageClient::resultNotification(nullptr, nullptr, name("publish result"), nullptr, reply.get());
  NotificationLog heard;
  heard.observe(CFSTR("Settled2"), nullptr);
  post(CFSTR("Settled2"), nullptr);
  EXPECT_TRUE(heard.await(1));
}

TEST_F(StorageWaitTest, AClientThatIsUnregisteredHearsNothing) {
  client().unregisterForNotifications();
  const CStringRef id = asyncPublish(client());
  answer(id);
  EXPECT_FALSE(client().asyncWaitForReply(id, 1));
}

TEST_F(StorageWaitTest, AClientMayGoOnAnyThreadWhileItsRepliesArrive) {
  NotificationLog replies;
  replies.observe(name("publish result"), nullptr);
  for (std::size_t round = 0; round < 100; ++round) {
    // Made on this thread, whose run loop delivers; given back on another.
    auto client = plinth::makeShared<CDNSharedStorageClient>();
    for (int i = 0; i < 5; ++i) answer(asyncPublish(*client));
    std::thread destroyer([client = std::exchange(client, nullptr)]() mutable { client = nullptr; });
    runLoopUntil([n = 0]() mutable { return ++n > 5; });
    destroyer.join();
    ASSERT_TRUE(replies.await(5 * (round + 1))) << "round " << round;
  }
  const CStringRef id = asyncPublish(this->client());
  answer(id);
  EXPECT_TRUE(this->client().asyncWaitForReply(id, 20)) << "who comes after them is not heard";
}

}  // namespace
