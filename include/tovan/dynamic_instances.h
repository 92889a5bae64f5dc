/* dynamic_instances.h: more instances of a launchd service than it is configured for, added and taken away at run time.
 * Usable from C and C++.
 *
 * The configured instances of a service are numbered from 0 to N-1; dynamic ones from N upwards, whatever N is. Their
 * indexes here count from 0, so that dynamic index 0 is instance N. Each has a job description of its own, which stays
 * when the instance is switched off.
 *
 * Where no service of that name is installed, and for a service that launchd does not start, nothing is done. Throws,
 * which C callers cannot catch, the exceptions of the configuration file, of CLaunchCtlPList (launchctl_plist.h) and
 * CLaunchCtl (launch_ctl.h), and plinth::CParamException "Instance number of service NAME out of range". All may be
 * called from any thread. */
#ifndef TOVAN_DYNAMIC_INSTANCES_H
#define TOVAN_DYNAMIC_INSTANCES_H

#include <tovan/export.h>

#include <CoreFoundation/CFString.h>

#include <stdbool.h>

TOVAN_EXTERN_C_BEGIN

/* Writes the job descriptions of the first `count` dynamic instances. */
TOVAN_EXPORT void installDynamicServiceInstances(CFStringRef name, unsigned int count);
/* Starts (true) or ends them, each as syncServices does. */
TOVAN_EXPORT void syncDynamicServiceInstances(CFStringRef name, unsigned int count, bool enable);

/* Writes the job description of one dynamic instance, and gives its identifier: what follows "-id" in the program
 * arguments. The caller owns the string. NULL when nothing was done or the arguments have no identifier. */
TOVAN_EXPORT CFStringRef installDynamicServiceInstance(CFStringRef name, unsigned int index);
/* Starts (true) or ends it. */
TOVAN_EXPORT void syncDynamicServiceInstance(CFStringRef name, unsigned int index, bool enable);

TOVAN_EXTERN_C_END

#endif
