// The wire form, with a client of the bus that knows nothing of the centre at the other end.
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPropertyList.h>
#include <CoreFoundation/CFRunLoop.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "platform/corefoundation/notification_center_thread.h"
#include "platform/corefoundation/notification_center_wire.h"
#include "tests/support/notification_log.h"
#include "tests/support/private_bus.h"

namespace {

using test::NotificationLog;
using test::post;

// A plain client of the bus.
class RawClient {
 public:
  explicit RawClient(const std::string& address) {
    EXPECT_GE(sd_bus_new(&bus_), 0);
    EXPECT_GE(sd_bus_set_address(bus_, address.c_str()), 0);
    EXPECT_GE(sd_bus_set_bus_client(bus_, 1), 0);
    EXPECT_GE(sd_bus_start(bus_), 0);
    const char* name = nullptr;
    EXPECT_GE(sd_bus_get_unique_name(bus_, &name), 0);
  }
  ~RawClient() { sd_bus_flush_close_unref(bus_); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;
  sd_bus* get() { return bus_; }

  struct Head {
    const char* path = cf::kNotificationPath;
    const char* interface = cf::kNotificationInterface;
    const char* member = cf::kNotificationMember;
  };
  template <class... Arguments>
  void emit(const Head& head, const char* types, Arguments... arguments) {
    ASSERT_GE(sd_bus_emit_signal(bus_, head.path, head.interface, head.member, types, arguments...), 0) << types;
    ASSERT_GE(sd_bus_flush(bus_), 0);
  }
  // The next signal of the centre's that arrives; empty when none does.
  cf::BusMessage next() {
    const cf::MonotonicTime end = cf::monotonicNow() + 20000000000;
    while (cf::monotonicNow() < end) {
      sd_bus_message* message = nullptr;
      const int result = sd_bus_process(bus_, &message);
      cf::BusMessage taken(message);
      if (result < 0) return {};
      if (message != nullptr && sd_bus_message_is_signal(message, cf::kNotificationInterface, nullptr) > 0)
        return taken;
      if (result == 0) sd_bus_wait(bus_, 100000);
    }
    return {};
  }

 private:
  sd_bus* bus_ = nullptr;
};

class NotificationWireTest : public ::testing::Test {
 protected:
  test::PrivateBus bus_;
  RawClient raw_{bus_.address()};
};

TEST_F(NotificationWireTest, ANotificationIsOneReadableSignal) {
  const std::string rule = "type='signal',interface='com.brant.mervane.DistributedNotifications1'";
  ASSERT_GE(sd_bus_add_match(raw_.get(), nullptr, rule.c_str(), nullptr, nullptr), 0);
  const plinth::CSharedCFRef<CFMutableDictionaryRef> info(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(info.get(), CFSTR("message"), CFSTR("hello"));
  CFDictionarySetValue(info.get(), CFSTR("enabled"), kCFBooleanTrue);
  post(CFSTR("Status2"), CFSTR("me"), info.get());
  const cf::BusMessage message = raw_.next();
  ASSERT_TRUE(message);
  EXPECT_STREQ(sd_bus_message_get_path(message.get()), "/com/brant/mervane/DistributedNotifications1");
  EXPECT_STREQ(sd_bus_message_get_member(message.get()), "Posted");
  EXPECT_STREQ(sd_bus_message_get_signature(message.get(), 1), "ssua{sv}");
  EXPECT_EQ(sd_bus_message_get_destination(message.get()), nullptr);
  const char *name, *object, *firstKey, *text, *secondKey;
  std::uint32_t flags;
  int enabled;
  ASSERT_GE(sd_bus_message_read(message.get(), "ssua{sv}", &name, &object, &flags, 2, &firstKey, "s", &text, &secondKey,
                                "b", &enabled),
            0);
  EXPECT_STREQ(name, "Status2");
  EXPECT_STREQ(object, "me");
  EXPECT_EQ(flags, 3U);
  EXPECT_STREQ(firstKey, "message");
  EXPECT_STREQ(text, "hello");
  EXPECT_STREQ(secondKey, "enabled");
  EXPECT_EQ(enabled, 1);
}

TEST_F(NotificationWireTest, ASignalOfAnyClientIsANotification) {
  NotificationLog log;
  log.observe(CFSTR("Raw2"), CFSTR("raw"));
  raw_.emit({}, "ssua{sv}", "Raw2", "raw", 3U, 5, "small", "n", -7, "count", "u", 4000000000U, "byte", "y", 200, "word",
            "q", 60000, "text", "s", "hello");
  ASSERT_TRUE(log.await(1));
  const CFDictionaryRef info = log.all[0].userInfo.get();
  const auto number = [&](CFStringRef key) {
    std::int64_t value = 0;
    const auto found = static_cast<CFNumberRef>(CFDictionaryGetValue(info, key));
    if (found != nullptr) CFNumberGetValue(found, kCFNumberSInt64Type, &value);
    return value;
  };
  EXPECT_EQ(number(CFSTR("small")), -7);
  EXPECT_EQ(number(CFSTR("count")), 4000000000);
  EXPECT_EQ(number(CFSTR("byte")), 200);
  EXPECT_EQ(number(CFSTR("word")), 60000);
  EXPECT_TRUE(CFEqual(CFDictionaryGetValue(info, CFSTR("text")), CFSTR("hello")));
}

// Sends what is not a notification, then one that is, and looks at what arrived and what was counted.
class NotificationRefusalTest : public NotificationWireTest {
 protected:
  void SetUp() override {
    log_.observe(nullptr, nullptr);
    before_ = cf::droppedMessages();
  }
  void expectDropped(std::uint64_t malformed, std::uint64_t foreign, const char* what) {
    const std::size_t count = log_.all.size();
    raw_.emit({}, "ssua{sv}", "End2", "", 0U, 0);
    ASSERT_TRUE(log_.await(count + 1)) << what << ": the centre is deaf";
    EXPECT_EQ(log_.all.size(), count + 1) << what << " was delivered";
    EXPECT_EQ(log_.all.back().name, "End2") << what << " was delivered";
    const cf::DroppedMessages now = cf::droppedMessages();
    EXPECT_EQ(now.malformed - before_.malformed, malformed) << what;
    EXPECT_EQ(now.foreign - before_.foreign, foreign) << what;
    before_ = now;
  }
  // The connection on which the centre observes: the only one on the bus besides the raw client's.
  std::string uniqueName() {
    char** names = nullptr;
    EXPECT_GE(sd_bus_list_names(raw_.get(), &names, nullptr), 0);
    const char* own = nullptr;
    EXPECT_GE(sd_bus_get_unique_name(raw_.get(), &own), 0);
    std::vector<std::string> others;
    for (char** name = names; *name != nullptr; ++name) {
      if ((*name)[0] == ':' && std::string(*name) != own) others.push_back(*name);
      std::free(*name);
    }
    std::free(names);
    EXPECT_EQ(others.size(), 1U);
    return others.empty() ? "" : others[0];
  }

  NotificationLog log_;
  cf::DroppedMessages before_{};
};

TEST_F(NotificationRefusalTest, WrongSignaturesAreDropped) {
  raw_.emit({}, "");
  expectDropped(1, 0, "a signal without arguments");
  raw_.emit({}, "ss", "A2", "x");
  expectDropped(1, 0, "a signal without user info");
  raw_.emit({}, "ssua{sv}s", "A2", "x", 1U, 0, "more");
  expectDropped(1, 0, "a signal with an argument too many");
  raw_.emit({}, "ssua{ss}", "A2", "x", 1U, 1, "key", "value");
  expectDropped(1, 0, "a signal with plain strings");
  raw_.emit({}, "ssia{sv}", "A2", "x", 1, 0);
  expectDropped(1, 0, "a signal with signed flags");
}

TEST_F(NotificationRefusalTest, ValuesThatNobodyWritesAreDropped) {
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "o", "/path");
  expectDropped(1, 0, "an object path");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "as", 1, "text");
  expectDropped(1, 0, "an array of strings");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sd)", "moment", 1.0);
  expectDropped(1, 0, "an unknown word before a real");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sn)", "int8", 128);
  expectDropped(1, 0, "a byte out of range");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(yu)", 'a', 0U);
  expectDropped(1, 0, "the opening of a flat container outside of one");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "v", "v", "s", "twice");
  expectDropped(1, 0, "a variant of a variant");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "s",
            "\x1a"
            "zzzzzz");
  expectDropped(1, 0, "an escape that is none");
  raw_.emit({}, "ssua{sv}", "A\x1a", "x", 3U, 0);
  expectDropped(1, 0, "an escape that is none in the name");
  raw_.emit({}, "ssua{sv}", "A2", "x", 0U, 0);
  expectDropped(1, 0, "an object that the flags deny");
  raw_.emit({}, "ssua{sv}", "A2", "", 0U, 1, "k", "s", "x");
  expectDropped(1, 0, "user info that the flags deny");
}

TEST_F(NotificationRefusalTest, FlatContainersThatDoNotAddUpAreDropped) {
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "round", 0);
  expectDropped(1, 0, "an unknown word before a list");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "flat", 0);
  expectDropped(1, 0, "an empty flat list");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "flat", 1, "s", "leaf");
  expectDropped(1, 0, "a flat list without a container");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "flat", 1, "(yu)", 'a', 1U);
  expectDropped(1, 0, "a flat list that ends too early");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "flat", 2, "(yu)", 'a', 4000000000U, "s", "x");
  expectDropped(1, 0, "a flat list that promises too much");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "flat", 2, "(yu)", 'a', 0U, "s", "more");
  expectDropped(1, 0, "a flat list that goes on");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "flat", 1, "(yu)", 'z', 0U);
  expectDropped(1, 0, "an unknown kind of flat container");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "flat", 3, "(yu)", 'd', 1U, "i", 5, "s", "value");
  expectDropped(1, 0, "a flat dictionary with a number for a key");
  raw_.emit({}, "ssua{sv}", "A2", "x", 3U, 1, "k", "(sav)", "flat", 2, "(yu)", 'a', 1U, "av", 0);
  expectDropped(1, 0, "a plain container in a flat one");
}

// A notification whose user info holds arrays within one another, written flat.
void emitDeep(sd_bus* bus, int levels) {
  sd_bus_message* made = nullptr;
  ASSERT_GE(
      sd_bus_message_new_signal(bus, &made, cf::kNotificationPath, cf::kNotificationInterface, cf::kNotificationMember),
      0);
  const cf::BusMessage message(made);
  ASSERT_GE(sd_bus_message_append(made, "ssu", "Deep2", "", 2U), 0);
  sd_bus_message_open_container(made, 'a', "{sv}");
  sd_bus_message_open_container(made, 'e', "sv");
  sd_bus_message_append(made, "s", "k");
  sd_bus_message_open_container(made, 'v', "(sav)");
  sd_bus_message_open_container(made, 'r', "sav");
  sd_bus_message_append(made, "s", "flat");
  sd_bus_message_open_container(made, 'a', "v");
  for (int i = 0; i < levels; ++i) sd_bus_message_append(made, "v", "(yu)", 'a', 1U);
  sd_bus_message_append(made, "v", "s", "core");
  for (int i = 0; i < 5; ++i) ASSERT_GE(sd_bus_message_close_container(made), 0);
  ASSERT_GE(sd_bus_send(bus, made, nullptr), 0);
  ASSERT_GE(sd_bus_flush(bus), 0);
}

// A flood of openings builds nothing deeper than a property list may be; the user info is the first of its levels.
TEST_F(NotificationRefusalTest, FlatContainersThatAreTooDeepAreDropped) {
  emitDeep(raw_.get(), 100000);
  expectDropped(1, 0, "a flat list of a hundred thousand levels");
  emitDeep(raw_.get(), kCFPropertyListMaximumDepth);
  expectDropped(1, 0, "a flat list of one level too many");
  emitDeep(raw_.get(), kCFPropertyListMaximumDepth - 1);
  ASSERT_TRUE(log_.await(log_.all.size() + 1));
  EXPECT_EQ(log_.all.back().name, "Deep2");
}

TEST_F(NotificationRefusalTest, WhatIsSentToOneAloneIsNoNotification) {
  const std::string target = uniqueName();
  ASSERT_FALSE(target.empty());
  const auto sendTo = [&](const RawClient::Head& head) {
    sd_bus_message* made = nullptr;
    ASSERT_GE(sd_bus_message_new_signal(raw_.get(), &made, head.path, head.interface, head.member), 0);
    const cf::BusMessage message(made);
    ASSERT_GE(sd_bus_message_append(made, "ssua{sv}", "Forged2", "com.brant.mervane.mervaned", 1U, 0), 0);
    ASSERT_GE(sd_bus_send_to(raw_.get(), made, target.c_str(), nullptr), 0);
    ASSERT_GE(sd_bus_flush(raw_.get()), 0);
  };
  sendTo({});
  expectDropped(1, 0, "a forged notification to one alone");
  sendTo({"/elsewhere"});
  expectDropped(0, 1, "a signal of another path");
  sendTo({cf::kNotificationPath, "com.example.Other"});
  expectDropped(0, 1, "a signal of another interface");
  sendTo({cf::kNotificationPath, cf::kNotificationInterface, "Withdrawn"});
  expectDropped(0, 1, "a signal of another name");
}

TEST_F(NotificationRefusalTest, ACallIsAnsweredWithAnError) {
  const std::string target = uniqueName();
  sd_bus_message* made = nullptr;
  ASSERT_GE(sd_bus_message_new_method_call(raw_.get(), &made, target.c_str(), cf::kNotificationPath,
                                           cf::kNotificationInterface, "Posted"),
            0);
  const cf::BusMessage call(made);
  ASSERT_GE(sd_bus_message_append(made, "ssua{sv}", "Forged2", "", 0U, 0), 0);
  std::string answer;
  const auto keep = [](sd_bus_message* reply, void* to, sd_bus_error*) {
    const sd_bus_error* const error = sd_bus_message_get_error(reply);
    *static_cast<std::string*>(to) = error == nullptr ? "an answer" : error->name;
    return 1;
  };
  ASSERT_GE(sd_bus_call_async(raw_.get(), nullptr, made, keep, &answer, 0), 0);
  ASSERT_GE(sd_bus_flush(raw_.get()), 0);
  expectDropped(0, 1, "a call");
  while (answer.empty()) {
    ASSERT_GE(sd_bus_process(raw_.get(), nullptr), 0);
    if (answer.empty()) sd_bus_wait(raw_.get(), 100000);
  }
  EXPECT_EQ(answer, SD_BUS_ERROR_UNKNOWN_METHOD);
}

// What is nobody's business does not keep the run loop from its other work.
TEST_F(NotificationRefusalTest, AFloodOfMalformedMessagesLeavesTimersTheirTurn) {
  constexpr std::uint64_t kFlood = 5000;
  constexpr std::uint64_t kAtOnce = 64;
  struct Watch {
    std::uint64_t last;
    std::uint64_t most = 0;
  } watch{before_.malformed};
  CFRunLoopTimerContext context{0, &watch, nullptr, nullptr, nullptr};
  const auto look = [](CFRunLoopTimerRef, void* info) {
    Watch& seen = *static_cast<Watch*>(info);
    const std::uint64_t now = cf::droppedMessages().malformed;
    seen.most = std::max(seen.most, now - std::exchange(seen.last, now));
  };
  const plinth::CSharedCFRef<CFRunLoopTimerRef> timer(
      CFRunLoopTimerCreate(nullptr, CFAbsoluteTimeGetCurrent(), 1e-9, 0, 0, look, &context));
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer.get(), kCFRunLoopDefaultMode);
  for (std::uint64_t i = 0; i < kFlood; ++i) raw_.emit({}, "ss", "A2", "x");
  expectDropped(kFlood, 0, "a flood");
  CFRunLoopTimerInvalidate(timer.get());
  EXPECT_GT(watch.most, 0U);
  EXPECT_LE(watch.most, kAtOnce) << "dropped between two calls of a timer that is always due";
}

// Bytes that are no message at all end the client that sends them, and nobody else.
TEST_F(NotificationRefusalTest, RubbishOnTheBusReachesNobody) {
  {
    RawClient other(bus_.address());
    const int socket = sd_bus_get_fd(other.get());
    const char rubbish[] = "l\4\1\1rubbish that is no header of any message at all";
    EXPECT_GT(::send(socket, rubbish, sizeof rubbish, MSG_NOSIGNAL), 0);
  }
  expectDropped(0, 0, "rubbish");
}

}  // namespace
