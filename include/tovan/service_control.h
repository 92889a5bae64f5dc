/* service_control.h: bringing the services of this user up, in line with their "Enabled" flags, and asking for
 * restarts. Usable from C and C++.
 *
 * Services that launchd starts are driven through launchctl and the trigger files of their jobs; all others are the
 * daemon's, which is told by the preferences-changed notification. A service's "instances" are numbered from 0.
 *
 * Unless something else is said, a function reports a plinth::CException by a line on the console that names the
 * function, and returns as if nothing had happened; exceptions of other types pass through. Those that throw cannot be
 * caught by C callers. All may be called from any thread. */
#ifndef TOVAN_SERVICE_CONTROL_H
#define TOVAN_SERVICE_CONTROL_H

#include <tovan/export.h>

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFString.h>

#include <stdbool.h>

TOVAN_EXTERN_C_BEGIN

/* Registers this process as a client of the daemon: its process id goes under "mervaneclients" in the PID file. False
 * when it stands there already. The registrations of processes that are gone stay: the daemon sees to them.
 *
 * Makes the configuration folder when it is missing, for all to read (0755), with the folders above it up to the home
 * folder. Throws plinth::CParamException "Couldn't create directory \"PATH\", error = REASON", and the exceptions of
 * the PID file (service_pid_file.h). */
TOVAN_EXPORT bool addMervaneClient(void);

/* Registers this process and starts the daemon; see startDaemon for what goes on while it waits. */
TOVAN_EXPORT void startMervaneServices(void);

/* With both of the application's service bundles in place: registers this process, starts the daemon and synchronises
 * the two services. In every case, also after a failure that was reported, it ends with syncServices(NULL). */
TOVAN_EXPORT void startLumisphereServices(void);

/* Brings the named services in line with their "Enabled" flags. Elements that are no strings, and names of which no
 * service is installed, are skipped.
 *
 * Of a service that launchd starts, every instance: when it is enabled its trigger file is made and its job, unless
 * launchctl lists it, loaded; when it is disabled the trigger file is removed and the job, if launchctl lists it,
 * unloaded. All other services go to the daemon: the preferences-changed notification carries "serviceList", a
 * dictionary of service name and flag, and no user info when there are none of them.
 *
 * With NULL or an empty array only the notification is posted, upon which the daemon reads its preferences again.
 *
 * Throws at the first failure, and posts nothing then: the exceptions of the configuration file, of CLaunchCtlPList
 * (launchctl_plist.h) and CLaunchCtl (launch_ctl.h), and plinth::CParamException "Launch-agent property list PATH has
 * no label". What launchctl printed when it refused goes to the console. */
TOVAN_EXPORT void syncServices(CFArrayRef names);

/* syncServices of the application's two services; nothing unless both of their bundles are in place. */
TOVAN_EXPORT void syncLumisphereServices(void);

/* Asks the daemon to restart the named services: the preferences-changed notification with "serviceList", a dictionary
 * of service name and "Restart". Elements that are no strings are skipped; when none is left there is no user info.
 * NULL and an empty array do nothing. */
TOVAN_EXPORT void restartServices(CFArrayRef names);

/* Post the service-restart notification, without an object, with "serviceType" and "uid" (this process's effective user
 * id). The job controller's also has "cancelJobs". */
TOVAN_EXPORT void restartMervaneJCService(bool cancelJobs);
TOVAN_EXPORT void restartMervaneService(CFStringRef serviceKind);
/* The job controller's, then that of each other service of the application and the cluster. */
TOVAN_EXPORT void restartMervaneServices(bool cancelJobs);

/* Whether restarting the job controller ends the jobs under way: "cancelJobs" in the configuration of its first
 * instance. False is stored by removing the key. Without such an instance, the first gives false and the second does
 * nothing. */
TOVAN_EXPORT bool getCancelActiveJobsOnRestart(void);
TOVAN_EXPORT void setCancelActiveJobsOnRestart(bool cancelJobs);

TOVAN_EXTERN_C_END

#endif
