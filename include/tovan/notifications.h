/* notifications.h: posting and observing the system's distributed notifications. Usable from C and C++.
 *
 * Everything is posted and delivered at once. None of these functions reports a failure or keeps its arguments beyond
 * the call. Any thread may call them; an observer is called on the run loop of the thread that added it, so that thread
 * must turn its run loop.
 *
 * The senders are used crosswise: what the daemon posts carries the daemon's identifier, so the preferences pane
 * listens with addDaemonObserver, and the daemon listens to the pane with addPrefsPaneObserver. */
#ifndef TOVAN_NOTIFICATIONS_H
#define TOVAN_NOTIFICATIONS_H

#include <tovan/export.h>
#include <tovan/notification_names.h>

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFString.h>

TOVAN_EXTERN_C_BEGIN

/* Posting. The object and the user info may be NULL. */

TOVAN_EXPORT void sendNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo);
/* The same, for an object that is the sender. */
TOVAN_EXPORT void signalFrom(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo);
/* The daemon speaks to the preferences pane: the object is kTovanDaemonID. */
TOVAN_EXPORT void signalPrefsPane(CFStringRef name, CFDictionaryRef userInfo);
/* The preferences pane speaks to the daemon: the object is kPrefPaneBundleID. */
TOVAN_EXPORT void signalDaemon(CFStringRef name, CFDictionaryRef userInfo);
/* Asks the daemon whether it runs: kTovanDaemonRunningNotification from the preferences pane. */
TOVAN_EXPORT void pingDaemon(void);

/* Reports for people. The user info is a dictionary of "time" (month/day/year hours:minutes:seconds.milliseconds,
 * system time zone), "type" ("status", "warning" or "error"), "from", "pid", "message" and, unless userInfo is NULL,
 * "userInfo", which may be any property-list value. A NULL sender or message reads "" there; the notification's object
 * stays NULL. */
TOVAN_EXPORT void sendStatusNotification(CFStringRef name, CFStringRef from, CFStringRef message, CFTypeRef userInfo);
TOVAN_EXPORT void sendWarningNotification(CFStringRef name, CFStringRef from, CFStringRef message, CFTypeRef userInfo);
TOVAN_EXPORT void sendErrorNotification(CFStringRef name, CFStringRef from, CFStringRef message, CFTypeRef userInfo);

/* Observing. A NULL name or object observes all. */

TOVAN_EXPORT void registerForNotification(void* observer, CFNotificationCallback callback, CFStringRef name,
                                          CFStringRef object);
TOVAN_EXPORT void addObserver(void* observer, CFNotificationCallback callback, CFStringRef name, CFStringRef object);
/* What the preferences pane posts, and what the daemon posts. */
TOVAN_EXPORT void addPrefsPaneObserver(void* observer, CFNotificationCallback callback, CFStringRef name);
TOVAN_EXPORT void addDaemonObserver(void* observer, CFNotificationCallback callback, CFStringRef name);

/* Ending it: the observer's registrations for one object, all names; the others stay. A NULL object means all of them.
 */
TOVAN_EXPORT void removeObserver(void* observer, CFStringRef object);
TOVAN_EXPORT void removePrefsPaneObserver(void* observer);
TOVAN_EXPORT void removeDaemonObserver(void* observer);
/* Every registration of the observer. */
TOVAN_EXPORT void unregisterForNotifications(void* observer);

TOVAN_EXTERN_C_END

#endif
