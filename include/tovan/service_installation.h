/* service_installation.h: installing, removing, enabling and looking up the services of this user. Usable from C and
 * C++.
 *
 * A service is a bundle whose information dictionary has two entries: "MervaneServiceKind", its kind (a role, a colon
 * and an identifier), and "MervaneServiceConfig", a dictionary that describes it. Installing one puts an entry into the
 * service cache, under the kind or under a name that the caller gives, and writes a job description per instance when
 * launchd is to start it.
 *
 * Every function opens the configuration file afresh. A change is made under the file's exclusive lock, from reading
 * the entry to writing it back, so processes that change different services at once lose nothing; for the same service
 * the later one stays. A call that has no entry to write leaves the file alone, and makes none. In a home without a
 * configuration file, create that from the shipped defaults before installing (tovan_config_updater.h): the daemon
 * replaces one that lacks their services when it starts.
 *
 * A false result says no more than stated. A NULL argument gives false, where it is not stated otherwise. A
 * configuration file that cannot be read, locked or written raises the plinth::CException of its class, which C callers
 * cannot catch. All may be called from any thread. */
#ifndef TOVAN_SERVICE_INSTALLATION_H
#define TOVAN_SERVICE_INSTALLATION_H

#include <tovan/export.h>

#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

#include <stdbool.h>

TOVAN_EXTERN_C_BEGIN

/* Installs a service under its kind: installServiceWithName(NULL, bundleURL). */
TOVAN_EXPORT bool installService(CFURLRef bundleURL);

/* Installs a service under a name, or under its kind when the name is NULL. True when the entry was written. False, and
 * the file as it was, when the bundle, its kind, its information dictionary, its description or its executable is
 * missing or of the wrong type, and when the same executable is installed already at this version or a higher one. A
 * new entry keeps the old one's number of instances when that is above 0.
 *
 * A service that launchd starts gets its job descriptions (re)written whenever the bundle is sound, whatever the
 * result. Their failures are raised, with the entry already written: plinth::CParamException for a launch hint other
 * than "launchd.LaunchAgent.User", for a name without a colon or whose identifier is no file name, and for a folder or
 * file that cannot be written. */
TOVAN_EXPORT bool installServiceWithName(CFStringRef name, CFURLRef bundleURL);

/* Removes the entry of that name; true when there was one. Job descriptions are left where they are. */
TOVAN_EXPORT bool removeService(CFStringRef name);
/* Removes the entry that is named by the bundle's kind; one installed under another name is not found. */
TOVAN_EXPORT bool removeServiceByPath(CFURLRef bundleURL);

/* Whether there is an entry of that name. */
TOVAN_EXPORT bool serviceInstalled(CFStringRef name);

/* Sets or clears the "Enabled" flag; false when there is no entry of that name. */
TOVAN_EXPORT bool enableService(CFStringRef name);
TOVAN_EXPORT bool disableService(CFStringRef name);
/* The same as disableService, on purpose a function of its own. */
TOVAN_EXPORT bool resetServiceEntry(CFStringRef name);
/* Whether there is an entry of that name with its "Enabled" flag set. */
TOVAN_EXPORT bool serviceEnabled(CFStringRef name);

/* Whether a process registered for that name in the PID file is alive and may be signalled by this user. Its name plays
 * no part. False, too, when the file cannot be read. */
TOVAN_EXPORT bool isServiceRunning(CFStringRef name);

TOVAN_EXTERN_C_END

#endif
