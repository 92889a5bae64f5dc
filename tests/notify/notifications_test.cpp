// The exported functions that post and observe.
#include <CoreFoundation/CFNumber.h>
#include <gtest/gtest.h>
#include <tovan/cf_util.h>
#include <tovan/notifications.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/support/notification_log.h"
#include "tests/support/private_bus.h"

extern "C" int postAndObserveInC(void);

namespace {

using plinth::CSharedCFRef;
using test::NotificationLog;
using tovan::CFUtil;
using namespace tovan::TovanNotification;

std::string textAt(CFDictionaryRef dictionary, CFStringRef key) {
  CFStringRef value = nullptr;
  if (!CFUtil::CFDictGetString(dictionary, key, value)) return "(absent)";
  const char* const text = CFStringGetCStringPtr(value, kCFStringEncodingUTF8);
  return text == nullptr ? "(odd)" : text;
}

class NotificationsTest : public ::testing::Test {
 protected:
  NotificationsTest() { CFUtil::CFDictSetString(info_.get(), CFSTR("key"), CFSTR("value")); }
  void SetUp() override { all_.observe(nullptr, nullptr); }

  // What the posting delivers: "NAME OBJECT", and whether the user info came along.
  void expectPosted(const std::function<void()>& posting, const std::string& text, bool withInfo) {
    all_.all.clear();
    posting();
    ASSERT_TRUE(all_.await(1)) << text << " did not arrive";
    EXPECT_EQ(all_.text(), text + "\n");
    const CFDictionaryRef info = all_.all[0].userInfo.get();
    EXPECT_EQ(withInfo, info != nullptr && CFEqual(info, info_.get()));
    EXPECT_EQ(withInfo, info != nullptr);
  }

  test::PrivateBus bus_;
  NotificationLog all_;
  const CSharedCFRef<CFMutableDictionaryRef> info_{CFUtil::CFDictMakeMutable()};
};

TEST_F(NotificationsTest, SendingAndSignallingPostWhatTheyAreGiven) {
  expectPosted([&] { sendNotification(CFSTR("N2"), CFSTR("o"), info_.get()); }, "N2 o", true);
  expectPosted([&] { sendNotification(CFSTR("N2"), nullptr, nullptr); }, "N2 (null)", false);
  expectPosted([&] { signalFrom(CFSTR("N2"), CFSTR("mervaneprefs"), info_.get()); }, "N2 mervaneprefs", true);
  expectPosted([&] { signalFrom(CFSTR("N2"), nullptr, nullptr); }, "N2 (null)", false);
}

TEST_F(NotificationsTest, DaemonAndPaneSpeakInTheirOwnNames) {
  expectPosted([&] { signalPrefsPane(CFSTR("N2"), info_.get()); }, "N2 com.brant.mervane.mervaned", true);
  expectPosted([&] { signalDaemon(CFSTR("N2"), info_.get()); }, "N2 com.brant.mervane.prefpane", true);
  expectPosted([&] { signalPrefsPane(CFSTR("N2"), nullptr); }, "N2 com.brant.mervane.mervaned", false);
  expectPosted([&] { signalDaemon(CFSTR("N2"), nullptr); }, "N2 com.brant.mervane.prefpane", false);
}

TEST_F(NotificationsTest, PingAsksTheDaemonFromThePane) {
  expectPosted([] { pingDaemon(); }, "MervaneDaemonRunningNotification2 com.brant.mervane.prefpane", false);
}

TEST_F(NotificationsTest, TheNullNamePostsNothing) {
  sendNotification(nullptr, CFSTR("o"), nullptr);
  expectPosted([] { pingDaemon(); }, "MervaneDaemonRunningNotification2 com.brant.mervane.prefpane", false);
}

using Report = void (*)(CFStringRef, CFStringRef, CFStringRef, CFTypeRef);

class ReportTest : public NotificationsTest, public ::testing::WithParamInterface<std::pair<Report, const char*>> {
 protected:
  CFDictionaryRef report(CFStringRef from, CFStringRef message, CFTypeRef info) {
    all_.all.clear();
    GetParam().first(CFSTR("Report2"), from, message, info);
    EXPECT_TRUE(all_.await(1));
    return all_.all.empty() ? nullptr : all_.all[0].userInfo.get();
  }
  std::vector<std::string> keys(CFDictionaryRef dictionary) {
    std::vector<const void*> found(static_cast<std::size_t>(CFDictionaryGetCount(dictionary)));
    CFDictionaryGetKeysAndValues(dictionary, found.data(), nullptr);
    std::vector<std::string> texts;
    for (const void* const key : found) {
      texts.push_back(CFStringGetCStringPtr(static_cast<CFStringRef>(key), kCFStringEncodingUTF8));
    }
    return texts;
  }
};

TEST_P(ReportTest, HoldsWhoWhenAndWhat) {
  const CFDictionaryRef status = report(CFSTR("sender"), CFSTR("all is well"), info_.get());
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(keys(status), (std::vector<std::string>{"time", "type", "from", "pid", "message", "userInfo"}));
  EXPECT_EQ(all_.all[0].objectText(), "sender");
  EXPECT_EQ(textAt(status, CFSTR("type")), GetParam().second);
  EXPECT_EQ(textAt(status, CFSTR("from")), "sender");
  EXPECT_EQ(textAt(status, CFSTR("message")), "all is well");
  const std::string time = textAt(status, CFSTR("time"));
  EXPECT_TRUE(std::regex_match(time, std::regex(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3})"))) << time;
  std::int32_t pid = 0;
  EXPECT_TRUE(CFUtil::CFDictGetInt(status, CFSTR("pid"), pid));
  EXPECT_EQ(pid, ::getpid());
  EXPECT_TRUE(CFEqual(CFDictionaryGetValue(status, CFSTR("userInfo")), info_.get()));
}

// The object stays null while the dictionary holds "".
TEST_P(ReportTest, NullSenderAndMessageReadEmptyAndNullInfoIsAbsent) {
  const CFDictionaryRef status = report(nullptr, nullptr, nullptr);
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(keys(status), (std::vector<std::string>{"time", "type", "from", "pid", "message"}));
  EXPECT_EQ(all_.all[0].object.get(), nullptr);
  EXPECT_EQ(textAt(status, CFSTR("from")), "");
  EXPECT_EQ(textAt(status, CFSTR("message")), "");
}

TEST_P(ReportTest, UserInfoMayBeAnyPropertyListValue) {
  for (const CFTypeRef value : {static_cast<CFTypeRef>(CFSTR("text")), static_cast<CFTypeRef>(kCFBooleanTrue)}) {
    const CFDictionaryRef status = report(CFSTR("sender"), CFSTR(""), value);
    ASSERT_NE(status, nullptr);
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(status, CFSTR("userInfo")), value));
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReportTest,
                         ::testing::Values(std::pair<Report, const char*>(sendStatusNotification, "status"),
                                           std::pair<Report, const char*>(sendWarningNotification, "warning"),
                                           std::pair<Report, const char*>(sendErrorNotification, "error")),
                         [](const auto& kind) { return std::string(kind.param.second); });

// Posts one notification of each object and the end; what the log holds then is what its registrations select.
class ObservingTest : public ::testing::Test {
 protected:
  void SetUp() override { end_.observe(CFSTR("End2"), nullptr); }
  std::string selected() {
    log_.all.clear();
    end_.all.clear();
    for (const CFStringRef object : {kPrefPaneBundleID, kTovanDaemonID, CFSTR("other")}) {
      sendNotification(CFSTR("A2"), object, nullptr);
    }
    sendNotification(CFSTR("B2"), kTovanDaemonID, nullptr);
    sendNotification(CFSTR("A2"), nullptr, nullptr);
    sendNotification(CFSTR("End2"), nullptr, nullptr);
    EXPECT_TRUE(end_.await(1));
    return log_.text();
  }
  test::PrivateBus bus_;
  NotificationLog log_, end_;
};

TEST_F(ObservingTest, RegisteringSelectsByNameAndObject) {
  registerForNotification(&log_, NotificationLog::callback, CFSTR("A2"), CFSTR("other"));
  EXPECT_EQ(selected(), "A2 other\n");
  unregisterForNotifications(&log_);
  EXPECT_EQ(selected(), "");
  registerForNotification(&log_, NotificationLog::callback, CFSTR("A2"), nullptr);
  EXPECT_EQ(selected(), "A2 com.brant.mervane.prefpane\nA2 com.brant.mervane.mervaned\nA2 other\nA2 (null)\n");
  unregisterForNotifications(&log_);
  registerForNotification(&log_, NotificationLog::callback, nullptr, kTovanDaemonID);
  EXPECT_EQ(selected(), "A2 com.brant.mervane.mervaned\nB2 com.brant.mervane.mervaned\n");
}

TEST_F(ObservingTest, AddObserverDoesTheSame) {
  addObserver(&log_, NotificationLog::callback, CFSTR("B2"), nullptr);
  EXPECT_EQ(selected(), "B2 com.brant.mervane.mervaned\n");
}

TEST_F(ObservingTest, PaneAndDaemonAreObservedBySender) {
  addPrefsPaneObserver(&log_, NotificationLog::callback, CFSTR("A2"));
  EXPECT_EQ(selected(), "A2 com.brant.mervane.prefpane\n");
  addDaemonObserver(&log_, NotificationLog::callback, CFSTR("A2"));
  EXPECT_EQ(selected(), "A2 com.brant.mervane.prefpane\nA2 com.brant.mervane.mervaned\n");
}

TEST_F(ObservingTest, RemovingForOneObjectLeavesTheOthers) {
  const auto addAll = [&] {
    addPrefsPaneObserver(&log_, NotificationLog::callback, CFSTR("A2"));
    addDaemonObserver(&log_, NotificationLog::callback, CFSTR("A2"));
    addDaemonObserver(&log_, NotificationLog::callback, CFSTR("B2"));
    addObserver(&log_, NotificationLog::callback, CFSTR("A2"), CFSTR("other"));
  };
  addAll();
  removePrefsPaneObserver(&log_);
  EXPECT_EQ(selected(), "A2 com.brant.mervane.mervaned\nA2 other\nB2 com.brant.mervane.mervaned\n");
  removeDaemonObserver(&log_);
  EXPECT_EQ(selected(), "A2 other\n");
  removeObserver(&log_, CFSTR("other"));
  EXPECT_EQ(selected(), "");
  addAll();
  removeObserver(&log_, nullptr);
  EXPECT_EQ(selected(), "");
  addAll();
  unregisterForNotifications(&log_);
  EXPECT_EQ(selected(), "");
}

TEST_F(ObservingTest, AnotherObserversRegistrationsStay) {
  NotificationLog other;
  addDaemonObserver(&log_, NotificationLog::callback, CFSTR("B2"));
  addDaemonObserver(&other, NotificationLog::callback, CFSTR("B2"));
  unregisterForNotifications(&log_);
  EXPECT_EQ(selected(), "");
  EXPECT_EQ(other.all.size(), 1U);
}

TEST(NotificationsInCTest, CompilesAndRunsAsC) {
  const test::PrivateBus bus;
  EXPECT_EQ(postAndObserveInC(), 1);
}

}  // namespace
