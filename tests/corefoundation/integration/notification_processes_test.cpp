// The distributed centre between processes, and what becomes of it when the bus does not behave.
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPropertyList.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/notification_log.h"
#include "tests/support/private_bus.h"
#include "tests/support/scratch_home.h"

namespace {

using plinth::CSharedCFRef;
using test::inChild;
using test::NotificationLog;
using test::post;

template <class T>
CSharedCFRef<CFTypeRef> number(CFNumberType type, T value) {
  return CSharedCFRef<CFTypeRef>(CFNumberCreate(nullptr, type, &value));
}

CSharedCFRef<CFMutableDictionaryRef> dictionary() {
  return CSharedCFRef<CFMutableDictionaryRef>(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

CSharedCFRef<CFMutableArrayRef> array() {
  return CSharedCFRef<CFMutableArrayRef>(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
}

CSharedCFRef<CFTypeRef> units(std::vector<UniChar> text) {
  return CSharedCFRef<CFTypeRef>(CFStringCreateWithCharacters(nullptr, text.data(), static_cast<CFIndex>(text.size())));
}

// Every kind of value that a property list can hold, each kind of number at its limits.
CSharedCFRef<CFMutableArrayRef> everyLeaf() {
  const auto all = array();
  const auto add = [&](const CSharedCFRef<CFTypeRef>& value) { CFArrayAppendValue(all.get(), value.get()); };
  CFArrayAppendValue(all.get(), kCFBooleanTrue);
  CFArrayAppendValue(all.get(), kCFBooleanFalse);
  for (const int value : {-128, -1, 0, 127}) add(number(kCFNumberSInt8Type, static_cast<std::int8_t>(value)));
  for (const int value : {-32768, 7, 32767}) add(number(kCFNumberSInt16Type, static_cast<std::int16_t>(value)));
  for (const std::int32_t value : {INT32_MIN, -1, 0, 1, 127, 128, INT32_MAX}) add(number(kCFNumberSInt32Type, value));
  for (const std::int64_t value : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1} << 40, INT64_MAX}) {
    add(number(kCFNumberSInt64Type, value));
  }
  for (const float value : {0.0F, -0.0F, 0.1F, 3.4e38F, 1e-45F}) add(number(kCFNumberFloat32Type, value));
  for (const double value : {0.0, -0.0, 0.1, 1.0, 1.7e308, 5e-324, HUGE_VAL, -HUGE_VAL}) {
    add(number(kCFNumberFloat64Type, value));
  }
  add(number(kCFNumberFloat64Type, std::numeric_limits<double>::quiet_NaN()));
  const char large[] = "<plist version=\"1.0\"><integer>18446744073709551615</integer></plist>";
  const CSharedCFRef<CFDataRef> largeData(
      CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(large), static_cast<CFIndex>(sizeof large - 1)));
  add(CSharedCFRef<CFTypeRef>(
      CFPropertyListCreateWithData(nullptr, largeData.get(), kCFPropertyListImmutable, nullptr, nullptr)));
  for (const char* const text : {"", "plain", "grüße 日本 🎬", "line\nend\ttab", "\x1a"}) {
    add(CSharedCFRef<CFTypeRef>(CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8)));
  }
  add(units({'n', 'u', 'l', 0, 'l'}));
  add(units({0xD800}));
  add(units({'x', 0xDFFF, 0xFFFE, 0xFDD0}));
  for (const std::string& bytes : {std::string(), std::string("\0\xff\x80", 3), std::string(70000, 'd')}) {
    add(CSharedCFRef<CFTypeRef>(
        CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size()))));
  }
  for (const double moment : {0.0, 785000000.123456, -63113904000.0, 1e300}) {
    add(CSharedCFRef<CFTypeRef>(CFDateCreate(nullptr, moment)));
  }
  CFArrayAppendValue(all.get(), array().get());
  CFArrayAppendValue(all.get(), dictionary().get());
  return all;
}

// Equal in kind, in the type of every number, in the bits of every real, in the order of every dictionary.
void expectSame(CFTypeRef left, CFTypeRef right, const std::string& where) {
  ASSERT_EQ(CFGetTypeID(left), CFGetTypeID(right)) << where;
  if (CFGetTypeID(left) == CFNumberGetTypeID()) {
    const auto a = static_cast<CFNumberRef>(left);
    const auto b = static_cast<CFNumberRef>(right);
    EXPECT_EQ(CFNumberGetType(a), CFNumberGetType(b)) << where;
    if (CFNumberIsFloatType(a) != 0) {
      double first = 0, second = 0;
      CFNumberGetValue(a, kCFNumberFloat64Type, &first);
      CFNumberGetValue(b, kCFNumberFloat64Type, &second);
      EXPECT_EQ(std::memcmp(&first, &second, sizeof first), 0) << where << ": " << first << " and " << second;
      return;
    }
  }
  if (CFGetTypeID(left) == CFArrayGetTypeID()) {
    const auto a = static_cast<CFArrayRef>(left);
    const auto b = static_cast<CFArrayRef>(right);
    ASSERT_EQ(CFArrayGetCount(a), CFArrayGetCount(b)) << where;
    for (CFIndex i = 0; i < CFArrayGetCount(a); ++i) {
      expectSame(CFArrayGetValueAtIndex(a, i), CFArrayGetValueAtIndex(b, i), where + "[" + std::to_string(i) + "]");
    }
  } else if (CFGetTypeID(left) == CFDictionaryGetTypeID()) {
    const auto a = static_cast<CFDictionaryRef>(left);
    const auto b = static_cast<CFDictionaryRef>(right);
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(a));
    ASSERT_EQ(static_cast<std::size_t>(CFDictionaryGetCount(b)), count) << where;
    std::vector<const void*> keys(count), otherKeys(count), values(count), otherValues(count);
    CFDictionaryGetKeysAndValues(a, keys.data(), values.data());
    CFDictionaryGetKeysAndValues(b, otherKeys.data(), otherValues.data());
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_TRUE(CFEqual(keys[i], otherKeys[i])) << where << " key " << i;
      expectSame(values[i], otherValues[i], where + "{" + std::to_string(i) + "}");
    }
  } else {
    EXPECT_TRUE(CFEqual(left, right)) << where;
  }
}

CSharedCFRef<CFMutableDictionaryRef> everyValue() {
  const auto info = dictionary();
  const auto leaves = everyLeaf();
  const auto inner = dictionary();
  CFDictionarySetValue(inner.get(), CFSTR("z"), leaves.get());
  CFDictionarySetValue(inner.get(), CFSTR("a"), leaves.get());
  CFDictionarySetValue(inner.get(), units({'k', 0, 'e', 'y'}).get(), CFSTR("odd key"));
  CFDictionarySetValue(inner.get(), CFSTR(""), CFSTR("empty key"));
  const auto outer = array();
  CFArrayAppendValue(outer.get(), inner.get());
  CFArrayAppendValue(outer.get(), leaves.get());
  CFDictionarySetValue(info.get(), CFSTR("leaves"), leaves.get());
  CFDictionarySetValue(info.get(), CFSTR("nested"), outer.get());
  return info;
}

class NotificationProcessesTest : public ::testing::Test {
 protected:
  test::PrivateBus bus_;
};

TEST_F(NotificationProcessesTest, EveryPropertyListValueArrivesAsItWasPosted) {
  NotificationLog log;
  log.observe(CFSTR("Values2"), nullptr);
  ASSERT_EQ(inChild([] {
              post(CFSTR("Values2"), CFSTR("child"), everyValue().get());
              return 0;
            }),
            0);
  ASSERT_TRUE(log.await(1));
  expectSame(everyValue().get(), log.all[0].userInfo.get(), "userInfo");
}

// Arrays and dictionaries in turn, with something to the left and to the right of every level.
CSharedCFRef<CFTypeRef> nested(int levels) {
  CSharedCFRef<CFTypeRef> value(CFRetain(CFSTR("core")));
  for (int i = 0; i < levels; ++i) {
    if (i % 2 == 0) {
      const auto outer = array();
      CFArrayAppendValue(outer.get(), number(kCFNumberSInt32Type, i).get());
      CFArrayAppendValue(outer.get(), value.get());
      CFArrayAppendValue(outer.get(), kCFBooleanTrue);
      value = CSharedCFRef<CFTypeRef>(CFRetain(outer.get()));
    } else {
      const auto outer = dictionary();
      CFDictionarySetValue(outer.get(), CFSTR("left"), number(kCFNumberFloat64Type, 0.5 * i).get());
      CFDictionarySetValue(outer.get(), CFSTR("inner"), value.get());
      CFDictionarySetValue(outer.get(), CFSTR("right"), array().get());
      value = CSharedCFRef<CFTypeRef>(CFRetain(outer.get()));
    }
  }
  return value;
}

// The bus itself takes 64 levels of its own.
TEST_F(NotificationProcessesTest, AnyDepthOfAPropertyListArrives) {
  NotificationLog log;
  log.observe(CFSTR("Deep2"), nullptr);
  std::size_t count = 0;
  for (const int levels : {1, 10, 11, 12, 13, 14, 20, 64, 100, 500}) {
    const auto info = dictionary();
    CFDictionarySetValue(info.get(), CFSTR("deep"), nested(levels).get());
    post(CFSTR("Deep2"), nullptr, info.get());
    ASSERT_TRUE(log.await(++count)) << levels << " levels did not arrive";
    expectSame(info.get(), log.all.back().userInfo.get(), std::to_string(levels) + " levels: ");
  }
  // What no property list may be.
  const auto tooDeep = dictionary();
  CFDictionarySetValue(tooDeep.get(), CFSTR("deep"), nested(600).get());
  ::testing::internal::CaptureStderr();
  post(CFSTR("Deep2"), nullptr, tooDeep.get());
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("not a property list"), std::string::npos);
}

TEST_F(NotificationProcessesTest, NamesAndObjectsThatTheBusCannotCarryArrive) {
  const auto odd = units({'a', 0, 0xD800, 0xFFFF});
  const auto text = static_cast<CFStringRef>(odd.get());
  NotificationLog log;
  log.observe(text, text);
  post(text, text);
  ASSERT_TRUE(log.await(1));
  EXPECT_TRUE(CFEqual(log.all[0].object.get(), text));
}

TEST_F(NotificationProcessesTest, NothingIsLostOfProcessesThatPostAndExitAtOnce) {
  NotificationLog log;
  log.observe(CFSTR("Exit2"), nullptr);
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(inChild([] {
                post(CFSTR("Exit2"), CFSTR("going"));
                return 0;
              }),
              0);
  }
  EXPECT_TRUE(log.await(100)) << log.all.size() << " of 100 arrived";
}

// The same when they observe what they post themselves, so that their sockets are closed with something unread.
TEST_F(NotificationProcessesTest, NothingIsLostOfObserversThatPostMuchAndExitAtOnce) {
  constexpr std::size_t kEach = 50;
  NotificationLog log;
  log.observe(CFSTR("Exit2"), nullptr);
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(inChild([] {
                auto* const own = new NotificationLog;  // observes until the very end
                own->observe(CFSTR("Exit2"), nullptr);
                const auto info = dictionary();
                CFDictionarySetValue(info.get(), CFSTR("text"), CFSTR("some more bytes, so that they queue up"));
                for (std::size_t k = 0; k < kEach; ++k) post(CFSTR("Exit2"), CFSTR("going"), info.get());
                return 0;
              }),
              0);
  }
  EXPECT_TRUE(log.await(20 * kEach, 5)) << log.all.size() << " of " << 20 * kEach << " arrived";
}

TEST_F(NotificationProcessesTest, AForkedChildHasAConnectionOfItsOwnAndNoObservers) {
  NotificationLog log;
  log.observe(CFSTR("Fork2"), nullptr);
  ASSERT_EQ(inChild([&] {
              NotificationLog own;
              own.observe(CFSTR("Child2"), nullptr);
              post(CFSTR("Fork2"), CFSTR("1"));
              post(CFSTR("Child2"), nullptr);
              return own.await(1) && log.all.empty() ? 0 : 1;
            }),
            0);
  post(CFSTR("Fork2"), CFSTR("2"));
  ASSERT_TRUE(log.await(2));
  EXPECT_EQ(log.text(), "Fork2 1\nFork2 2\n");
}

// A child that lives on must not keep its parent's connection open.
TEST_F(NotificationProcessesTest, AForkedChildLetsGoOfItsParentsSocket) {
  NotificationLog log;
  log.observe(CFSTR("Fork2"), nullptr);
  const auto sockets = [] {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      if (std::stoi(entry.path().filename().string()) <= 2) continue;
      std::error_code error;
      count += std::filesystem::read_symlink(entry.path(), error).string().rfind("socket:", 0) == 0 ? 1 : 0;
    }
    return count;
  };
  post(CFSTR("Fork2"), nullptr);
  ASSERT_TRUE(log.await(1));
  EXPECT_EQ(sockets(), 2) << "one to post, one to observe";
  EXPECT_EQ(inChild(sockets), 0);
}

TEST_F(NotificationProcessesTest, AForkWhileOtherThreadsPostDoesNotHang) {
#ifdef TOVAN_SANITIZED
  GTEST_SKIP() << "the sanitizers' allocators leave their locks held in the child of a process with threads";
#endif
  std::vector<std::jthread> threads;  // which end, as does the test, when an assertion leaves it
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        NotificationLog log;
        log.observe(CFSTR("Busy2"), nullptr);
        post(CFSTR("Busy2"), nullptr);
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(inChild([] {
                ::alarm(20);
                post(CFSTR("Child2"), nullptr);
                return 0;
              }),
              0)
        << "child " << i;
  }
}

TEST_F(NotificationProcessesTest, ObserversAreBackWhenTheBusIs) {
  const std::string onDemand = test::scratchHome() + "/bus";
  ::setenv("TOVAN_BUS_FOLDER", onDemand.c_str(), 1);
  NotificationLog log, every;
  log.observe(CFSTR("Back2"), CFSTR("x"));
  every.observe(nullptr, nullptr);
  for (int round = 1; round <= 3; ++round) {
    bus_.kill();
    // Neither observing nor posting nor the run loop minds.
    post(CFSTR("Lost2"), nullptr);
    NotificationLog added;
    added.observe(CFSTR("Added2"), nullptr);
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, false);
    bus_.restart();
    const auto arrived = static_cast<std::size_t>(round);
    ASSERT_TRUE(test::runLoopUntil([&] {
      if (log.all.size() < arrived) {
        EXPECT_EQ(inChild([] {
                    post(CFSTR("Back2"), CFSTR("x"));
                    return 0;
                  }),
                  0);
        test::runLoopUntil([&] { return log.all.size() >= arrived; }, 0.1);
      }
      return log.all.size() >= arrived;
    })) << "round "
        << round;
    log.all.resize(arrived);
    post(CFSTR("Added2"), nullptr);
    EXPECT_TRUE(added.await(1));
  }
  EXPECT_FALSE(std::filesystem::exists(onDemand)) << "a bus that is being restarted scatters nobody";
  ::unsetenv("TOVAN_BUS_FOLDER");
}

TEST_F(NotificationProcessesTest, APosterFindsTheBusAgainWithItsNextPost) {
  NotificationLog log;
  std::thread([&] {
    post(CFSTR("Before2"), nullptr);
    bus_.restart();
    log.observe(CFSTR("After2"), nullptr);
    // This thread's connection is broken, and it has no run loop that would tell.
    post(CFSTR("After2"), nullptr);
    EXPECT_TRUE(log.await(1));
    CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), &log);
  }).join();
}

TEST_F(NotificationProcessesTest, ABusKilledAndRestartedUnderTrafficEndsNobody) {
  NotificationLog log;
  log.observe(CFSTR("Traffic2"), nullptr);
  const pid_t poster = ::fork();
  if (poster == 0) {
    ::alarm(60);
    for (;;) {
      post(CFSTR("Traffic2"), nullptr);
      ::usleep(200);
    }
  }
  for (int round = 0; round < 5; ++round) {
    const std::size_t before = log.all.size();
    ASSERT_TRUE(log.await(before + 50)) << "round " << round << ": " << log.all.size() - before;
    bus_.restart();
  }
  const std::size_t before = log.all.size();
  EXPECT_TRUE(log.await(before + 50)) << log.all.size() - before;
  int status = 0;
  EXPECT_EQ(::waitpid(poster, &status, WNOHANG), 0) << "the poster ended with status " << status;
  ::kill(poster, SIGKILL);
  ::waitpid(poster, &status, 0);
}

// How long something takes, in seconds.
double secondsOf(const std::function<void()>& body) {
  const auto begin = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// In a thread of its own: a thread that has met a bus that hangs leaves it alone for a while.
TEST_F(NotificationProcessesTest, ABusThatHangsHoldsAPosterUpForAWhileOnly) {
  std::thread([&] {
    const auto info = dictionary();
    const CSharedCFRef<CFMutableDataRef> big(CFDataCreateMutable(nullptr, 0));
    CFDataSetLength(big.get(), 1 << 20);
    CFDictionarySetValue(info.get(), CFSTR("big"), big.get());
    post(CFSTR("Hang2"), nullptr);
    bus_.stop();
    ::testing::internal::CaptureStderr();
    // The socket takes some of them.
    double longest = 0;
    for (int i = 0; i < 200 && longest < 1; ++i) {
      longest = std::max(longest, secondsOf([&] { post(CFSTR("Hang2"), nullptr, info.get()); }));
    }
    const double later = secondsOf([&] {
      for (int i = 0; i < 100; ++i) post(CFSTR("Hang2"), nullptr, info.get());
    });
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_GT(longest, 1) << "the bus did not hang";
    EXPECT_LT(longest, 10);
    EXPECT_LT(later, 2) << "every post waited again";
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    EXPECT_NE(said.find("\"Hang2\" not posted: the message bus does not answer"), std::string::npos) << said;
    bus_.resume();
    NotificationLog log;
    log.observe(CFSTR("Hang2"), CFSTR("again"));
    ASSERT_TRUE(test::runLoopUntil(
        [&] {
          post(CFSTR("Hang2"), CFSTR("again"));
          return !log.all.empty();
        },
        40));
  }).join();
}

// A socket that takes calls and never greets.
TEST_F(NotificationProcessesTest, ABusThatHangsFromTheBeginningIsGivenUp) {
  bus_.stop();
  std::thread([&] {
    const double took = secondsOf([] { post(CFSTR("Mute2"), nullptr); });
    EXPECT_LT(took, 10);
    const double then = secondsOf([] { post(CFSTR("Mute2"), nullptr); });
    EXPECT_LT(then, 1);
  }).join();
  bus_.resume();
}

// A subscriber that stands still costs the others nothing.
TEST_F(NotificationProcessesTest, AStoppedSubscriberHoldsNobodyUp) {
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t subscriber = ::fork();
  if (subscriber == 0) {
    NotificationLog own;
    own.observe(nullptr, nullptr);
    if (::write(ready[1], "x", 1) != 1) ::_exit(1);
    own.await(100000000, 60);
    ::_exit(0);
  }
  char byte;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  ::kill(subscriber, SIGSTOP);
  NotificationLog log;
  log.observe(CFSTR("Flow2"), nullptr);
  for (std::size_t i = 1; i <= 5000; ++i) {
    post(CFSTR("Flow2"), nullptr);
    ASSERT_TRUE(i % 500 != 0 || log.await(i)) << i;
  }
  ::kill(subscriber, SIGKILL);
  ::waitpid(subscriber, nullptr, 0);
  ::close(ready[0]);
  ::close(ready[1]);
}

// Nothing at all to connect to and nothing that could be started.
TEST(NotificationWithoutBusTest, EverythingGoesOnWithoutDelivery) {
  const test::NoSessionBus none;
  ASSERT_EQ(::chmod(none.folder().c_str(), 0777), 0);  // refused for a bus on demand
  ::testing::internal::CaptureStderr();
  {
    NotificationLog log;
    log.observe(CFSTR("None2"), nullptr);
    for (int i = 0; i < 10; ++i) post(CFSTR("None2"), nullptr);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.3, false), kCFRunLoopRunTimedOut);
    EXPECT_EQ(log.all.size(), 0U);
  }
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  EXPECT_NE(said.find("distributed notifications: no message bus: "), std::string::npos) << said;
  // And when there is one, the next post and the observers find it.
  ASSERT_EQ(::chmod(none.folder().c_str(), 0700), 0);
  NotificationLog log;
  log.observe(CFSTR("Some2"), nullptr);
  ASSERT_TRUE(test::runLoopUntil([&] {
    post(CFSTR("Some2"), nullptr);
    return !log.all.empty();
  }));
}

}  // namespace
