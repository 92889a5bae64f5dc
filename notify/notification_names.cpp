#include <tovan/notification_names.h>

#include <CoreFoundation/CFString.h>

namespace tovan::TovanNotification {

extern "C" {

constinit const CFStringRef kPrefExternalID = CFSTR("com.brant.mervane.prefexternal");
constinit const CFStringRef kPrefPaneBundleID = CFSTR("com.brant.mervane.prefpane");
constinit const CFStringRef kTovanDaemonID = CFSTR("com.brant.mervane.mervaned");
constinit const CFStringRef kTovanLocalServerID = CFSTR("com.brant.mervane.localserver");
constinit const CFStringRef kTovanAppID = CFSTR("com.brant.mervane.app");
constinit const CFStringRef kTovanDaemonRestartNotification = CFSTR("MervaneDaemonRestartNotification2");
constinit const CFStringRef kTovanServiceRestartNotification = CFSTR("MervaneServiceRestartNotification2");
constinit const CFStringRef kTovanDaemonRunningNotification = CFSTR("MervaneDaemonRunningNotification2");
constinit const CFStringRef kTovanDaemonStartedNotification = CFSTR("MervaneDaemonStartedNotification2");
constinit const CFStringRef kTovanDaemonScheduledShutdownNotification =
    CFSTR("MervaneDaemonScheduledShutdownNotification2");
constinit const CFStringRef kTovanCancelShutdownNotification = CFSTR("MervaneCancelShutdownNotification2");
constinit const CFStringRef kTovanStatusNotification = CFSTR("MervaneStatusNotification2");
constinit const CFStringRef kTovanDumpStateNotification = CFSTR("MervaneDumpStateNotification2");
constinit const CFStringRef kTovanMgrServiceStartNotification = CFSTR("MervaneMgrServiceStartNotification2");
constinit const CFStringRef kTovanMgrServiceStopNotification = CFSTR("MervaneMgrServiceStopNotification2");
constinit const CFStringRef kTovanPrefsChangedNotification = CFSTR("MervanePrefsChangedNotification2");
constinit const CFStringRef kTovanResetStateNotification = CFSTR("MervaneResetStateNotification2");
constinit const CFStringRef kTovanServiceConfigChangedNotification = CFSTR("MervaneServiceConfigChangedNotification2");
constinit const CFStringRef kTovanServiceStartupNotification = CFSTR("MervaneServiceStartupNotification2");
constinit const CFStringRef kTovanServiceCaptureNotification = CFSTR("MervaneServiceCaptureNotification2");
constinit const CFStringRef kTovanServiceStartAdvertisingNotification =
    CFSTR("MervaneServiceStartAdvertisingNotification2");
constinit const CFStringRef kTovanServiceStopAdvertisingNotification =
    CFSTR("MervaneServiceStopAdvertisingNotification2");
constinit const CFStringRef kTovanServiceStoppedNotification = CFSTR("MervaneServiceStoppedNotification2");
constinit const CFStringRef kTovanServiceConfirmStopNotification = CFSTR("MervaneServiceConfirmStopNotification2");
constinit const CFStringRef kTovanServiceShutdownDelayNotification = CFSTR("MervaneServiceShutdownDelayNotification2");
constinit const CFStringRef kTovanServiceConnectionFailedNotification =
    CFSTR("MervaneServiceConnectionFailedNotification2");
constinit const CFStringRef kTovanServiceRequestStatusNotification = CFSTR("MervaneServiceRequestStatusNotification2");
constinit const CFStringRef kTovanServiceStatusNotification = CFSTR("MervaneServiceStatusNotification2");
constinit const CFStringRef kTovanAppStartupNotification = CFSTR("MervaneAppStartupNotification2");
constinit const CFStringRef kTovanAppStoppingNotification = CFSTR("MervaneAppTerminatedNotification2");
constinit const CFStringRef kTovanAppTerminateNotification = CFSTR("MervaneAppTerminateNotification2");
constinit const CFStringRef kTovanTaskTerminatedNotification = CFSTR("MervaneTaskTerminatedNotification2");
constinit const CFStringRef kTovanSetSystemWideVistrelParams = CFSTR("MervaneSetSystemWideVistrelParams2");
constinit const CFStringRef kTovanHostNameChangeNotification = CFSTR("MervaneHostNameChangeNotification2");
constinit const CFStringRef kTovanLocalHostNameChangeNotification = CFSTR("MervaneLocalHostNameChangeNotification2");

}  // extern "C"

}  // namespace tovan::TovanNotification
