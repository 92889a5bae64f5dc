/* notification_names.h: who sends distributed notifications, and what they are called. Usable from C and C++.
 *
 * In C++ each constant lives in tovan::TovanNotification; in C the same object goes by its plain name. All are
 * initialised statically; nobody retains or releases them. Every name ends in "2", the version of the daemon. */
#ifndef TOVAN_NOTIFICATION_NAMES_H
#define TOVAN_NOTIFICATION_NAMES_H

#include <tovan/export.h>

#include <CoreFoundation/CFBase.h>

#if defined(__cplusplus)
namespace tovan::TovanNotification {
extern "C" {
#endif

/* Senders: the object of a notification. */

TOVAN_EXPORT extern const CFStringRef kPrefExternalID;
TOVAN_EXPORT extern const CFStringRef kPrefPaneBundleID;
TOVAN_EXPORT extern const CFStringRef kTovanDaemonID;
TOVAN_EXPORT extern const CFStringRef kTovanLocalServerID;
TOVAN_EXPORT extern const CFStringRef kTovanAppID;

/* The daemon. */

TOVAN_EXPORT extern const CFStringRef kTovanDaemonRestartNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceRestartNotification;
TOVAN_EXPORT extern const CFStringRef kTovanDaemonRunningNotification;
TOVAN_EXPORT extern const CFStringRef kTovanDaemonStartedNotification;
TOVAN_EXPORT extern const CFStringRef kTovanDaemonScheduledShutdownNotification;
TOVAN_EXPORT extern const CFStringRef kTovanCancelShutdownNotification;
TOVAN_EXPORT extern const CFStringRef kTovanStatusNotification;
TOVAN_EXPORT extern const CFStringRef kTovanDumpStateNotification;
TOVAN_EXPORT extern const CFStringRef kTovanMgrServiceStartNotification;
TOVAN_EXPORT extern const CFStringRef kTovanMgrServiceStopNotification;
TOVAN_EXPORT extern const CFStringRef kTovanPrefsChangedNotification;
TOVAN_EXPORT extern const CFStringRef kTovanResetStateNotification;

/* Services. */

TOVAN_EXPORT extern const CFStringRef kTovanServiceConfigChangedNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceStartupNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceCaptureNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceStartAdvertisingNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceStopAdvertisingNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceStoppedNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceConfirmStopNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceShutdownDelayNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceConnectionFailedNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceRequestStatusNotification;
TOVAN_EXPORT extern const CFStringRef kTovanServiceStatusNotification;

/* The application and its tasks. */

TOVAN_EXPORT extern const CFStringRef kTovanAppStartupNotification;
/* Its value says "Terminated", on purpose: one letter more than the next one's. */
TOVAN_EXPORT extern const CFStringRef kTovanAppStoppingNotification;
TOVAN_EXPORT extern const CFStringRef kTovanAppTerminateNotification;
TOVAN_EXPORT extern const CFStringRef kTovanTaskTerminatedNotification;

/* The host. The first has no "Notification" in its name or its value, on purpose. */

TOVAN_EXPORT extern const CFStringRef kTovanSetSystemWideVistrelParams;
TOVAN_EXPORT extern const CFStringRef kTovanHostNameChangeNotification;
TOVAN_EXPORT extern const CFStringRef kTovanLocalHostNameChangeNotification;

#if defined(__cplusplus)
} /* extern "C" */
} /* namespace tovan::TovanNotification */
#endif

#endif
