/* CFTimeZone.h: time zones, from the host's zone files (TZif, RFC 8536) and POSIX TZ texts.
 *
 * A zone never changes and may be used from any thread. The system's and the default zone are kept once for the
 * process; looking them up takes a short lock and reads no file after the first time. */
#ifndef COREFOUNDATION_CFTIMEZONE_H
#define COREFOUNDATION_CFTIMEZONE_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>

CF_EXTERN_C_BEGIN

CF_EXPORT CFTypeID CFTimeZoneGetTypeID(void);

/* The zone of this host: the environment's TZ (a zone name, an absolute path or a POSIX text such as
 * "CET-1CEST,M3.5.0,M10.5.0/3", after an optional colon), else /etc/localtime. GMT when neither can be read. Looked
 * up once and kept until CFTimeZoneResetSystem. The caller owns it. */
CF_EXPORT CFTimeZoneRef CFTimeZoneCopySystem(void);
/* Forgets the kept zone, so that the next look-up reads TZ and /etc/localtime again. */
CF_EXPORT void CFTimeZoneResetSystem(void);
/* The zone that was set, else the system's. The caller owns it. */
CF_EXPORT CFTimeZoneRef CFTimeZoneCopyDefault(void);
/* Sets the default zone of this process, which is retained; NULL goes back to the system's. */
CF_EXPORT void CFTimeZoneSetDefault(CFTimeZoneRef timeZone);

/* The zone of that name in the host's zone folder ($TZDIR, else /usr/share/zoneinfo), such as "Europe/Vienna"; "GMT"
 * and "UTC" are there on every host. When there is none and tryAbbreviation is true, an abbreviation "GMT+hhmm"
 * (sign, one to four digits, an optional colon) is taken too. NULL when there is no such zone, its file is
 * malformed or counts leap seconds, or the name leads out of the folder. The caller owns it. */
CF_EXPORT CFTimeZoneRef CFTimeZoneCreateWithName(CFAllocatorRef allocator, CFStringRef name, Boolean tryAbbreviation);
/* A zone of a fixed offset, in seconds east of GMT, named "GMT", "GMT+hhmm" or "GMT-hhmm", with two more digits when
 * there are seconds. The offset is rounded to a whole second. NULL when it is a day or more. The caller owns it. */
CF_EXPORT CFTimeZoneRef CFTimeZoneCreateWithTimeIntervalFromGMT(CFAllocatorRef allocator, CFTimeInterval interval);

/* The zone's name; it lives as long as the zone. */
CF_EXPORT CFStringRef CFTimeZoneGetName(CFTimeZoneRef timeZone);
/* Seconds east of GMT at a moment, daylight-saving time included. 0 for NULL. */
CF_EXPORT CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef timeZone, CFAbsoluteTime at);
CF_EXPORT Boolean CFTimeZoneIsDaylightSavingTime(CFTimeZoneRef timeZone, CFAbsoluteTime at);
/* The abbreviation in use at a moment, such as "CEST". The caller owns it. NULL for NULL. */
CF_EXPORT CFStringRef CFTimeZoneCopyAbbreviation(CFTimeZoneRef timeZone, CFAbsoluteTime at);

CF_EXTERN_C_END

#endif
