/* daemon_control.h: whether the cluster's daemon runs, starting it, and asking it to restart or stop. Usable from C and
 * C++.
 *
 * The daemon is the process "mervaned", one per user. It registers its process id and its version under its name in the
 * PID file; the version that belongs to this library is "2". Who is registered there and who runs decides: the PID file
 * alone proves nothing, since a process id may be stale, or have passed on to another program.
 *
 * Every call looks at the files and the process table afresh. All may be called from any thread; what a function does
 * beyond its own thread is said where it stands. */
#ifndef TOVAN_DAEMON_CONTROL_H
#define TOVAN_DAEMON_CONTROL_H

#include <tovan/export.h>

#include <stdbool.h>

TOVAN_EXTERN_C_BEGIN

/* Whether a daemon of version "2" runs: a registered process id that is alive, may be signalled by this user, is named
 * "mervaned" and carries that version. False, too, when the PID file is missing or cannot be read. */
TOVAN_EXPORT bool isDaemonRunning(void);

/* Whether this user has a process named "mervaned" that is not registered as a daemon of version "2". True, too, for
 * such a process when the PID file is missing or cannot be read. Of several processes of that name, the one with the
 * lowest id is judged. */
TOVAN_EXPORT bool IsOtherVersionOfDaemonRunning(void);

/* Starts "Resources/mervaned" of the cluster framework, unless isDaemonRunning, and waits until isDaemonRunning, at
 * most about ten seconds. While it waits it runs the calling thread's run loop in the default mode: timers and
 * observers of that thread may be called back from here.
 *
 * The daemon is not a child of this process, stands in a session of its own, and has nothing open but its standard
 * streams: standard error is this process's, the other two are /dev/null. It gets no arguments.
 *
 * Throws plinth::CParamException, which C callers cannot catch:
 *   "Mervane.framework not found";
 *   "Couldn't launch mervane daemon with path PATH, error = REASON" when there is no such program, it may not be run,
 *     or there are no more processes or descriptors to be had;
 *   "Couldn't start mervane daemon: PID time-out" when no daemon of version "2" came up in time. */
TOVAN_EXPORT void startDaemon(void);

/* Ask the daemon to restart, ending the jobs under way or not. Both post the same request, the daemon restart
 * notification from "mervaneprefs" with "cancelJobs", on purpose: the daemon decides what becomes of it. They do not
 * wait for the daemon. A plinth::CException becomes a line on the console, "TovanConfig::restartDaemon failed, ..." or
 * "TovanConfig::stopDaemon failed, ...". */
TOVAN_EXPORT void restartDaemon(bool cancelJobs);
TOVAN_EXPORT void stopDaemon(bool cancelJobs);

TOVAN_EXTERN_C_END

#endif
