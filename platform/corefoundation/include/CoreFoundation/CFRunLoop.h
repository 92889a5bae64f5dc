/* CFRunLoop.h: one run loop per thread, which waits for timers and sources and calls them back on that thread.
 *
 * A run loop is there as soon as its thread first asks for it, starts no thread, and does nothing until its thread
 * runs it. A run is made in one mode, and serves the timers and sources of that mode only; a mode is a name, and is
 * there as soon as something is added to it. The name kCFRunLoopCommonModes stands for a set of modes, to begin with
 * the default mode alone; what is added to it is added to all of them, to those that join the set later as well.
 *
 * A callback may run the loop again. It may add, remove and invalidate whatever it likes, itself included. A stop ends
 * the innermost run only. A C++ exception that leaves a callback leaves the run as well; the loop can be run again.
 *
 * Threads: a run is made by the loop's own thread. Every other function may be called from any thread, and what it
 * changes is noticed by a loop that waits. When a thread ends, its loop lets go of all it holds: its timers become
 * invalid, its sources are cancelled. A loop that somebody still retains then does nothing any more.
 *
 * Fork: in the child, the loop of the thread that forked keeps its timers and sources, and waits through descriptors
 * of its own. The loops of the other threads are gone.
 *
 * Time: all waiting goes by the monotonic clock. The fire date of a timer is turned into a time of that clock when it
 * is set, so that setting the system's clock later makes no timer early or late.
 *
 * Descriptors: a loop opens three when it first waits. While there are none to be had, it looks every hundredth of a
 * second at what is ready.
 *
 * NULL in place of an object does nothing, and answers false, 0 or NULL. */
#ifndef COREFOUNDATION_CFRUNLOOP_H
#define COREFOUNDATION_CFRUNLOOP_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

typedef struct CFRunLoopStorage* CFRunLoopRef;
typedef struct CFRunLoopSourceStorage* CFRunLoopSourceRef;
typedef struct CFRunLoopTimerStorage* CFRunLoopTimerRef;
typedef CFStringRef CFRunLoopMode;

/* Why a run ended. When several hold, the one that stands first here is given: Stopped, HandledSource, TimedOut,
 * Finished. */
typedef enum {
  kCFRunLoopRunFinished = 1,     /* the mode has no timers and no sources */
  kCFRunLoopRunStopped = 2,      /* by CFRunLoopStop */
  kCFRunLoopRunTimedOut = 3,     /* the time is over */
  kCFRunLoopRunHandledSource = 4 /* a source was called, and the caller wanted to return then */
} CFRunLoopRunResult;

CF_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode;
CF_EXPORT const CFRunLoopMode kCFRunLoopCommonModes;

/* ---- Run loops ----------------------------------------------------------------------------------------------- */

CF_EXPORT CFTypeID CFRunLoopGetTypeID(void);
/* The loop of the calling thread, which holds it. */
CF_EXPORT CFRunLoopRef CFRunLoopGetCurrent(void);
/* The loop of the main thread. */
CF_EXPORT CFRunLoopRef CFRunLoopGetMain(void);

/* Runs the calling thread's loop in the default mode until it is stopped, or the mode has no timers and sources. */
CF_EXPORT void CFRunLoopRun(void);
/* Runs the calling thread's loop in a mode for some seconds. Zero, negative seconds and what is not a number make one
 * pass, which handles what is ready and does not wait; a thousand million seconds and more are no limit. With
 * returnAfterSourceHandled the run ends after a pass in which a source was called, and a pass calls only the first
 * source that is ready (of each kind); timers do not count. NULL and kCFRunLoopCommonModes name no mode that could be
 * run: kCFRunLoopRunFinished. */
CF_EXPORT CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                                Boolean returnAfterSourceHandled);
/* Ends the innermost run of the loop, as soon as the callback under way returns; what else was ready stays ready.
 * While the loop is not run it does nothing: a later run is not stopped. */
CF_EXPORT void CFRunLoopStop(CFRunLoopRef loop);
/* Makes a loop that waits look at its timers and sources again, or keeps it from waiting the next time. */
CF_EXPORT void CFRunLoopWakeUp(CFRunLoopRef loop);
/* Whether the loop waits at this moment. */
CF_EXPORT Boolean CFRunLoopIsWaiting(CFRunLoopRef loop);
/* The mode of the innermost run; NULL while the loop is not run. The caller owns it. */
CF_EXPORT CFRunLoopMode CFRunLoopCopyCurrentMode(CFRunLoopRef loop);
/* Makes a mode one of the common modes, for good. */
CF_EXPORT void CFRunLoopAddCommonMode(CFRunLoopRef loop, CFRunLoopMode mode);

/* The loop retains what is added. Adding what the mode has already, and what is not valid, changes nothing. A timer
 * belongs to one loop at a time, in any of its modes, so that adding it to a second loop changes nothing; a source may
 * be in several loops. Contains answers for kCFRunLoopCommonModes whether it was added under that name. */
CF_EXPORT void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode);
CF_EXPORT void CFRunLoopRemoveTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode);
CF_EXPORT Boolean CFRunLoopContainsTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode);
CF_EXPORT void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
CF_EXPORT void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
CF_EXPORT Boolean CFRunLoopContainsSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);

/* ---- Timers -------------------------------------------------------------------------------------------------- */

/* Called with the context's info. */
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);

/* Copied by the function that takes it; its functions may be NULL. The info is retained once, and released when the
 * timer has become invalid and no callback of it is under way. */
typedef struct {
  CFIndex version; /* 0 */
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} CFRunLoopTimerContext;

CF_EXPORT CFTypeID CFRunLoopTimerGetTypeID(void);
/* A timer that fires at the date, then each time the interval (in seconds) has passed. The times after the first are
 * multiples of the interval from the first, however late a callback comes or ends; times that went by meanwhile are
 * made up for by one callback. An interval that is zero, negative or not a number makes a timer that fires once and is
 * invalid from that callback on. A date in the past, and what is not a number, is due at once; one that is a thousand
 * million seconds or more away is never reached, but keeps a run from finishing. Timers that are due together fire by
 * date, then by order, then as they were made. A timer whose callback is under way does not fire in a run made from
 * there. flags is ignored: pass 0. context may be NULL. NULL for a NULL callout. The caller owns the timer. */
CF_EXPORT CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                                 CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                                 CFRunLoopTimerCallBack callout, CFRunLoopTimerContext* context);
/* When the timer fires next, by the clock that it was set by; inside the callback, the date that it fired for. 0 for a
 * timer that is not valid. */
CF_EXPORT CFAbsoluteTime CFRunLoopTimerGetNextFireDate(CFRunLoopTimerRef timer);
/* The timer fires at the date next, and counts its interval from there. Does nothing when it is not valid. */
CF_EXPORT void CFRunLoopTimerSetNextFireDate(CFRunLoopTimerRef timer, CFAbsoluteTime fireDate);
/* Seconds; 0 for a timer that fires once. */
CF_EXPORT CFTimeInterval CFRunLoopTimerGetInterval(CFRunLoopTimerRef timer);
CF_EXPORT Boolean CFRunLoopTimerDoesRepeat(CFRunLoopTimerRef timer);
/* Takes the timer out of its loop, for good. A callback under way on another thread is not waited for. */
CF_EXPORT void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);
CF_EXPORT Boolean CFRunLoopTimerIsValid(CFRunLoopTimerRef timer);

/* ---- Sources ------------------------------------------------------------------------------------------------- */

/* A source of version 0: one that a program signals by itself. Copied by the function that takes it; its functions may
 * be NULL. The info is retained once, and released when the source has become invalid and no callback of it is under
 * way. schedule and cancel are called for each mode of each loop that the source comes into and goes out of, on the
 * thread that makes it so; perform on the loop's own thread, once for any number of signals. equal and hash, when they
 * are there, decide about CFEqual and CFHash of sources. */
typedef struct {
  CFIndex version; /* 0 */
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
  Boolean (*equal)(const void* left, const void* right);
  CFHashCode (*hash)(const void* info);
  void (*schedule)(void* info, CFRunLoopRef loop, CFRunLoopMode mode);
  void (*cancel)(void* info, CFRunLoopRef loop, CFRunLoopMode mode);
  void (*perform)(void* info);
} CFRunLoopSourceContext;

CF_EXPORT CFTypeID CFRunLoopSourceGetTypeID(void);
/* Sources that are signalled together are called by order, the lowest first, then as they were added. NULL for a NULL
 * context and for a version other than 0. The caller owns the source. */
CF_EXPORT CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order,
                                                   CFRunLoopSourceContext* context);
CF_EXPORT CFIndex CFRunLoopSourceGetOrder(CFRunLoopSourceRef source);
/* Marks the source as ready, for the first of its loops that looks. It wakes no loop: call CFRunLoopWakeUp as well. */
CF_EXPORT void CFRunLoopSourceSignal(CFRunLoopSourceRef source);
/* Takes the source out of all its loops, for good. A callback under way on another thread is not waited for. */
CF_EXPORT void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);
CF_EXPORT Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source);

CF_EXTERN_C_END

#endif
