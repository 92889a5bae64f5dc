/* CFNotificationCenter.h: the distributed notification centre, through which the processes of one user tell one another
 * that something happened.
 *
 * A notification has a name, an object (a string that says who sends it, or NULL) and a dictionary of property-list
 * values, or none. It goes to every observer of that name and object in every process of the user. The centre is the
 * user's D-Bus session bus; docs/notifications.md has the wire form.
 *
 * Threads: any thread may post and observe. An observer is called on the run loop of the thread that added it, in the
 * common modes, so that thread must turn its run loop. What a thread posts arrives in the order it posted it.
 *
 * Failures are silent, as everywhere with notifications: without a bus nothing is delivered, the connection is made
 * anew in the background of the run loop, and every observer is back when the bus is. */
#ifndef COREFOUNDATION_CFNOTIFICATIONCENTER_H
#define COREFOUNDATION_CFNOTIFICATIONCENTER_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>

CF_EXTERN_C_BEGIN

typedef struct CFNotificationCenterStorage* CFNotificationCenterRef;

/* What an observer is called with: the centre, the pointer it was added with, and the notification. The objects live
 * for the length of the call: retain what is to be kept. object and userInfo may be NULL. */
typedef void (*CFNotificationCallback)(CFNotificationCenterRef center, void* observer, CFStringRef name,
                                       const void* object, CFDictionaryRef userInfo);

/* How an observer that is suspended is served. Nothing suspends an observer here, so each of them delivers at once. */
typedef enum {
  CFNotificationSuspensionBehaviorDrop = 1,
  CFNotificationSuspensionBehaviorCoalesce = 2,
  CFNotificationSuspensionBehaviorHold = 3,
  CFNotificationSuspensionBehaviorDeliverImmediately = 4
} CFNotificationSuspensionBehavior;

enum {
  kCFNotificationDeliverImmediately = 1UL << 0,
  kCFNotificationPostToAllSessions = 1UL << 1 /* ignored: a user has one bus */
};

CF_EXPORT CFTypeID CFNotificationCenterGetTypeID(void);

/* The one centre of the process; nobody owns it. Never NULL. */
CF_EXPORT CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void);

/* Adds an observer. A NULL name observes all names, a NULL object (a CFStringRef otherwise) all objects. `observer` is
 * the caller's, is handed to the callback, and names the registration when it is removed. Adding the same registration
 * twice calls it twice. */
CF_EXPORT void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                               CFNotificationCallback callBack, CFStringRef name, const void* object,
                                               CFNotificationSuspensionBehavior suspensionBehavior);

/* Removes the observer's registrations for that name and that object; NULL stands for all of them. Registrations that
 * other threads added go too; one of those may still be running when this returns. */
CF_EXPORT void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void* observer,
                                                  CFStringRef name, const void* object);

/* Removes every registration of the observer. */
CF_EXPORT void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef center, const void* observer);

/* Posts a notification. It is with the bus when this returns: the process may end at once. Nothing is posted when name
 * is NULL, when object is no string, when userInfo holds what is no property list, or when it is larger than 8 MiB;
 * each is one console line. A bus that is there and does not answer holds the caller up for 5 seconds, then drops the
 * notification and, without waiting, what the thread posts in the 10 seconds after. */
CF_EXPORT void CFNotificationCenterPostNotification(CFNotificationCenterRef center, CFStringRef name,
                                                    const void* object, CFDictionaryRef userInfo,
                                                    Boolean deliverImmediately);
CF_EXPORT void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center, CFStringRef name,
                                                               const void* object, CFDictionaryRef userInfo,
                                                               CFOptionFlags options);

CF_EXTERN_C_END

#endif
