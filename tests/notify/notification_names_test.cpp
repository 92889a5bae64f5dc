#include <gtest/gtest.h>
#include <plinth/string.h>
#include <tovan/notification_names.h>

#include <set>
#include <string>

namespace {

using namespace tovan::TovanNotification;

struct Row {
  const char* constant;
  CFStringRef value;
  const char* text;
};

const Row kRows[] = {
    {"kPrefExternalID", kPrefExternalID, "com.brant.mervane.prefexternal"},
    {"kPrefPaneBundleID", kPrefPaneBundleID, "com.brant.mervane.prefpane"},
    {"kTovanDaemonID", kTovanDaemonID, "com.brant.mervane.mervaned"},
    {"kTovanLocalServerID", kTovanLocalServerID, "com.brant.mervane.localserver"},
    {"kTovanAppID", kTovanAppID, "com.brant.mervane.app"},
    {"kTovanDaemonRestartNotification", kTovanDaemonRestartNotification, "MervaneDaemonRestartNotification2"},
    {"kTovanServiceRestartNotification", kTovanServiceRestartNotification, "MervaneServiceRestartNotification2"},
    {"kTovanDaemonRunningNotification", kTovanDaemonRunningNotification, "MervaneDaemonRunningNotification2"},
    {"kTovanDaemonStartedNotification", kTovanDaemonStartedNotification, "MervaneDaemonStartedNotification2"},
    {"kTovanDaemonScheduledShutdownNotification", kTovanDaemonScheduledShutdownNotification,
     "MervaneDaemonScheduledShutdownNotification2"},
    {"kTovanCancelShutdownNotification", kTovanCancelShutdownNotification, "MervaneCancelShutdownNotification2"},
    {"kTovanStatusNotification", kTovanStatusNotification, "MervaneStatusNotification2"},
    {"kTovanDumpStateNotification", kTovanDumpStateNotification, "MervaneDumpStateNotification2"},
    {"kTovanMgrServiceStartNotification", kTovanMgrServiceStartNotification, "MervaneMgrServiceStartNotification2"},
    {"kTovanMgrServiceStopNotification", kTovanMgrServiceStopNotification, "MervaneMgrServiceStopNotification2"},
    {"kTovanPrefsChangedNotification", kTovanPrefsChangedNotification, "MervanePrefsChangedNotification2"},
    {"kTovanResetStateNotification", kTovanResetStateNotification, "MervaneResetStateNotification2"},
    {"kTovanServiceConfigChangedNotification", kTovanServiceConfigChangedNotification,
     "MervaneServiceConfigChangedNotification2"},
    {"kTovanServiceStartupNotification", kTovanServiceStartupNotification, "MervaneServiceStartupNotification2"},
    {"kTovanServiceCaptureNotification", kTovanServiceCaptureNotification, "MervaneServiceCaptureNotification2"},
    {"kTovanServiceStartAdvertisingNotification", kTovanServiceStartAdvertisingNotification,
     "MervaneServiceStartAdvertisingNotification2"},
    {"kTovanServiceStopAdvertisingNotification", kTovanServiceStopAdvertisingNotification,
     "MervaneServiceStopAdvertisingNotification2"},
    {"kTovanServiceStoppedNotification", kTovanServiceStoppedNotification, "MervaneServiceStoppedNotification2"},
    {"kTovanServiceConfirmStopNotification", kTovanServiceConfirmStopNotification,
     "MervaneServiceConfirmStopNotification2"},
    {"kTovanServiceShutdownDelayNotification", kTovanServiceShutdownDelayNotification,
     "MervaneServiceShutdownDelayNotification2"},
    {"kTovanServiceConnectionFailedNotification", kTovanServiceConnectionFailedNotification,
     "MervaneServiceConnectionFailedNotification2"},
    {"kTovanServiceRequestStatusNotification", kTovanServiceRequestStatusNotification,
     "MervaneServiceRequestStatusNotification2"},
    {"kTovanServiceStatusNotification", kTovanServiceStatusNotification, "MervaneServiceStatusNotification2"},
    {"kTovanAppStartupNotification", kTovanAppStartupNotification, "MervaneAppStartupNotification2"},
    {"kTovanAppStoppingNotification", kTovanAppStoppingNotification, "MervaneAppTerminatedNotification2"},
    {"kTovanAppTerminateNotification", kTovanAppTerminateNotification, "MervaneAppTerminateNotification2"},
    {"kTovanTaskTerminatedNotification", kTovanTaskTerminatedNotification, "MervaneTaskTerminatedNotification2"},
    {"kTovanSetSystemWideVistrelParams", kTovanSetSystemWideVistrelParams, "MervaneSetSystemWideVistrelParams2"},
    {"kTovanHostNameChangeNotification", kTovanHostNameChangeNotification, "MervaneHostNameChangeNotification2"},
    {"kTovanLocalHostNameChangeNotification", kTovanLocalHostNameChangeNotification,
     "MervaneLocalHostNameChangeNotification2"},
};

TEST(NotificationNamesTest, EveryConstantHasItsValue) {
  for (const Row& row : kRows) EXPECT_EQ(plinth::CSTR(row.value)->str(), row.text) << row.constant;
}

TEST(NotificationNamesTest, NoTwoConstantsAreEqual) {
  std::set<std::string> values;
  for (const Row& row : kRows) EXPECT_TRUE(values.insert(plinth::CSTR(row.value)->str()).second) << row.constant;
}

TEST(NotificationNamesTest, StoppingAndTerminateDifferByOneLetter) {
  EXPECT_EQ(plinth::CSTR(kTovanAppStoppingNotification)->str(), "MervaneAppTerminatedNotification2");
  EXPECT_EQ(plinth::CSTR(kTovanAppTerminateNotification)->str(), "MervaneAppTerminateNotification2");
}

TEST(NotificationNamesTest, EveryNotificationEndsInTheDaemonsVersion) {
  for (const Row& row : kRows) {
    const std::string text = row.text;
    if (text.rfind("com.", 0) == 0) continue;  // a sender
    EXPECT_EQ(text.back(), '2') << row.constant;
  }
}

}  // namespace
