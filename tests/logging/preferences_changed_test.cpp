// The level follows the preferences-changed notification.
#include <tovan/notifications.h>

#include <thread>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/service_log.h"
#include "tests/support/notification_log.h"

namespace {

using namespace test;
using tovan::TovanNotification::kPrefExternalID;
using tovan::TovanNotification::kPrefPaneBundleID;
using tovan::TovanNotification::kTovanPrefsChangedNotification;
using tovan::TovanNotification::kTovanServiceConfigChangedNotification;

// A dictionary of the keys "headless" and "logging"; null values are left out.
plinth::CSharedCFRef<CFDictionaryRef> info(CFTypeRef headless, CFTypeRef logging = nullptr) {
  const plinth::CSharedCFRef<CFMutableDictionaryRef> made(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  if (headless != nullptr) CFDictionarySetValue(made.get(), CFSTR("headless"), headless);
  if (logging != nullptr) CFDictionarySetValue(made.get(), CFSTR("logging"), logging);
  return plinth::CSharedCFRef<CFDictionaryRef>::retaining(made.get());
}

class PreferencesChangedTest : public ServiceLogTest {
 protected:
  static void changed(CTovanLogger* observer, CFDictionaryRef userInfo) {
    CTovanLogger::tovanPrefsChanged(nullptr, observer, kTovanPrefsChangedNotification, kPrefExternalID, userInfo);
  }
  // The level of a service at level 5 after its entry has gone to 7 and the notification has come.
  unsigned int levelAfter(CFDictionaryRef userInfo) {
    configureLevel("s", 5);
    const CTovanLoggerRef logger = started("s");
    EXPECT_EQ(logger->logLevel(), 5u);
    configureLevel("s", 7);
    changed(logger.get(), userInfo);
    return logger->logLevel();
  }
  FixedClock clock_{kMoment, kQuarter};
};

TEST_F(PreferencesChangedTest, AnyChangeReloadsTheLevel) {
  EXPECT_EQ(levelAfter(nullptr), 7u);
  EXPECT_EQ(levelAfter(info(nullptr).get()), 7u);
  EXPECT_EQ(levelAfter(info(kCFBooleanFalse).get()), 7u);
  EXPECT_EQ(levelAfter(info(nullptr, kCFBooleanTrue).get()), 7u);
}

TEST_F(PreferencesChangedTest, AHeadlessChangeWithoutLoggingIsIgnored) {
  EXPECT_EQ(levelAfter(info(kCFBooleanTrue).get()), 5u);
}

TEST_F(PreferencesChangedTest, AHeadlessChangeOfLoggingReloads) {
  EXPECT_EQ(levelAfter(info(kCFBooleanTrue, kCFBooleanTrue).get()), 7u);
  EXPECT_EQ(levelAfter(info(kCFBooleanTrue, kCFBooleanFalse).get()), 7u) << "whatever its value is";
  EXPECT_EQ(levelAfter(info(kCFBooleanTrue, CFSTR("text")).get()), 7u);
}

TEST_F(PreferencesChangedTest, TheNewLevelIsWritten) {
  configureLevel("s", 5);
  const CTovanLoggerRef logger = started("s");
  changed(logger.get(), nullptr);
  configureLevel("s", 7);
  changed(logger.get(), nullptr);
  EXPECT_EQ(log("s.log"), header("logging_tests") + sessionMark("begin") + record("Setting log level = 7", "7"));
}

TEST_F(PreferencesChangedTest, TheUsersLevelGoesBeforeTheEntrys) {
  const CTovanLoggerRef logger = started("s");
  configureLevel("s", 5, 6);
  changed(logger.get(), nullptr);
  EXPECT_EQ(logger->logLevel(), 6u);
}

TEST_F(PreferencesChangedTest, NoEntryIsNoChange) {
  const CTovanLoggerRef logger = started("s");
  configureLevel("other", 5);
  changed(logger.get(), nullptr);
  EXPECT_EQ(logger->logLevel(), 3u) << "the first entry counts at the start-up only";
}

TEST_F(PreferencesChangedTest, ALoggerWithoutAServiceNameDoesNotChange) {
  configureLevel("", 5);
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(CSTR(home_ + "/plain.log"), false);
  changed(logger.get(), nullptr);
  EXPECT_EQ(logger->logLevel(), 3u);
  configureLevel("s", 6);
  const CTovanLoggerRef console = [&] {
    CTovanLoggerRef made;
    standardErrorOf([&] { made = started("s", 0, false); });
    return made;
  }();
  configureLevel("s", 7);
  standardErrorOf([&] { changed(console.get(), nullptr); });
  EXPECT_EQ(console->logLevel(), 6u);
}

TEST_F(PreferencesChangedTest, ANullObserverDoesNothing) {
  changed(nullptr, nullptr);
  changed(nullptr, info(kCFBooleanTrue, kCFBooleanTrue).get());
}

TEST_F(PreferencesChangedTest, AServiceFollowsTheNotification) {
  const CTovanLoggerRef logger = started("s");
  configureLevel("s", 6);
  sendNotification(kTovanPrefsChangedNotification, kPrefExternalID, info(kCFBooleanTrue, kCFBooleanTrue).get());
  EXPECT_TRUE(runLoopUntil([&] { return logger->logLevel() == 6; }));
}

TEST_F(PreferencesChangedTest, OtherSendersAndNamesAreNotHeard) {
  const CTovanLoggerRef logger = started("s");
  NotificationLog all;
  all.observe(CFSTR("End2"), nullptr);
  configureLevel("s", 6);
  sendNotification(kTovanPrefsChangedNotification, kPrefPaneBundleID, nullptr);
  sendNotification(kTovanServiceConfigChangedNotification, kPrefExternalID, nullptr);
  sendNotification(CFSTR("End2"), nullptr, nullptr);
  ASSERT_TRUE(all.await(1));
  EXPECT_EQ(logger->logLevel(), 3u);
}

TEST_F(PreferencesChangedTest, TheHandlerCanBeRemovedAndAddedAgain) {
  const CTovanLoggerRef logger = started("s");
  NotificationLog all;
  all.observe(kTovanPrefsChangedNotification, nullptr);
  logger->setPrefsChangedHandler(false);
  configureLevel("s", 6);
  sendNotification(kTovanPrefsChangedNotification, kPrefExternalID, nullptr);
  ASSERT_TRUE(all.await(1));
  EXPECT_EQ(logger->logLevel(), 3u);
  logger->setPrefsChangedHandler(true);
  sendNotification(kTovanPrefsChangedNotification, kPrefExternalID, nullptr);
  EXPECT_TRUE(runLoopUntil([&] { return logger->logLevel() == 6; }));
}

TEST_F(PreferencesChangedTest, ALoggerThatIsGoneIsNotCalled) {
  configureLevel("s", 6);
  { started("s"); }
  const std::string before = log("s.log");
  NotificationLog all;
  all.observe(kTovanPrefsChangedNotification, nullptr);
  configureLevel("s", 7);
  sendNotification(kTovanPrefsChangedNotification, kPrefExternalID, nullptr);
  ASSERT_TRUE(all.await(1));
  EXPECT_EQ(log("s.log"), before);
}

TEST_F(PreferencesChangedTest, ALoggerMayGoInAnotherThreadThanItWasStartedIn) {
  CTovanLoggerRef logger = started("s");
  std::thread([moved = std::move(logger)]() mutable { moved = nullptr; }).join();
  NotificationLog all;
  all.observe(kTovanPrefsChangedNotification, nullptr);
  sendNotification(kTovanPrefsChangedNotification, kPrefExternalID, nullptr);
  EXPECT_TRUE(all.await(1));
}

TEST_F(PreferencesChangedTest, ACacheThatCannotBeReadLeavesTheLevelAndTheProcess) {
  configureLevel("s", 5);
  const CTovanLoggerRef logger = started("s");
  writeFile(home_ + "/Library/Application Support/Lumisphere/LumisphereConfig.plist", "<plist><dict><key>");
  standardErrorOf([&] { changed(logger.get(), nullptr); });
  EXPECT_EQ(logger->logLevel(), 5u);
}

}  // namespace
