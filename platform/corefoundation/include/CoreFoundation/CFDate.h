/* CFDate.h: moments, and what calendars and clocks show at them.
 *
 * An absolute time is a count of seconds since 2001-01-01 00:00:00 GMT, leap seconds not counted, as a double: about
 * a tenth of a microsecond fine in this century. The calendar is the Gregorian one, carried back before its
 * introduction; the year 0 is the one before the year 1. */
#ifndef COREFOUNDATION_CFDATE_H
#define COREFOUNDATION_CFDATE_H

#include <CoreFoundation/CFBase.h>

typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;
typedef const struct CFDateStorage* CFDateRef;
typedef const struct CFTimeZoneStorage* CFTimeZoneRef;

/* A date and time of day. The second keeps its fraction and is below 60; a caller that prints it with fewer digits
 * than it has decides how to round, since 59.9996 prints as 60.000 with three. */
typedef struct {
  SInt32 year;
  SInt8 month;  /* 1 to 12 */
  SInt8 day;    /* 1 to 31 */
  SInt8 hour;   /* 0 to 23 */
  SInt8 minute; /* 0 to 59 */
  double second;
} CFGregorianDate;

typedef struct {
  SInt32 years;
  SInt32 months;
  SInt32 days;
  SInt32 hours;
  SInt32 minutes;
  double seconds;
} CFGregorianUnits;

typedef enum {
  kCFGregorianUnitsYears = 1 << 0,
  kCFGregorianUnitsMonths = 1 << 1,
  kCFGregorianUnitsDays = 1 << 2,
  kCFGregorianUnitsHours = 1 << 3,
  kCFGregorianUnitsMinutes = 1 << 4,
  kCFGregorianUnitsSeconds = 1 << 5,
  kCFGregorianAllUnits = 0x00FFFFFF
} CFGregorianUnitFlags;

CF_EXTERN_C_BEGIN

/* Seconds from 1970-01-01 to 2001-01-01: 978307200. */
CF_EXPORT const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;
/* Seconds from 1904-01-01 to 2001-01-01: 3061152000. */
CF_EXPORT const CFTimeInterval kCFAbsoluteTimeIntervalSince1904;

/* Now, by the system's clock, which may be set back. */
CF_EXPORT CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

CF_EXPORT CFTypeID CFDateGetTypeID(void);
/* The caller owns it. A date never changes and may be used from any thread. */
CF_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at);
/* 0 for NULL. */
CF_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);
/* Seconds from the other date to this one. */
CF_EXPORT CFTimeInterval CFDateGetTimeIntervalSinceDate(CFDateRef date, CFDateRef other);
/* The earlier date is the lesser one. The context is not used: pass NULL. */
CF_EXPORT CFComparisonResult CFDateCompare(CFDateRef date, CFDateRef other, void* context);

/* In the functions below a NULL time zone is GMT. A time that is not a number, or further from 2001 than about two
 * thousand million years, is taken as the nearest one that a year can hold (0 when not a number). */

/* Whether the fields named by the flags are in range; the day against its month when year and month are named too.
 */
CF_EXPORT Boolean CFGregorianDateIsValid(CFGregorianDate date, CFOptionFlags unitFlags);
/* The moment at which the clocks of the zone show the date. Fields out of range carry over (month 13 is January of
 * the next year). A time that clocks skip is taken with the offset before the change, so 02:30 in a skipped hour is
 * the moment shown as 03:30; of a time that they show twice the first moment is meant. */
CF_EXPORT CFAbsoluteTime CFGregorianDateGetAbsoluteTime(CFGregorianDate date, CFTimeZoneRef timeZone);
/* What the calendar and clocks of the zone show at a moment. */
CF_EXPORT CFGregorianDate CFAbsoluteTimeGetGregorianDate(CFAbsoluteTime at, CFTimeZoneRef timeZone);
/* The moment plus the units, one kind after the other from years to seconds. Years and months keep the day of the
 * month, or take the month's last when it has fewer; years, months and days keep the time of day that clocks show,
 * hours, minutes and seconds are elapsed time. */
CF_EXPORT CFAbsoluteTime CFAbsoluteTimeAddGregorianUnits(CFAbsoluteTime at, CFTimeZoneRef timeZone,
                                                         CFGregorianUnits units);
/* The difference from the second moment to the first, in the units named, the greatest first, each as large as fits;
 * all are negative or zero when the first moment is the earlier one. What is left below the smallest unit named is
 * dropped. Adding the result to the second moment gives the first when seconds are named. */
CF_EXPORT CFGregorianUnits CFAbsoluteTimeGetDifferenceAsGregorianUnits(CFAbsoluteTime at, CFAbsoluteTime other,
                                                                       CFTimeZoneRef timeZone, CFOptionFlags unitFlags);
/* 1 (Monday) to 7 (Sunday). */
CF_EXPORT SInt32 CFAbsoluteTimeGetDayOfWeek(CFAbsoluteTime at, CFTimeZoneRef timeZone);
/* 1 to 366. */
CF_EXPORT SInt32 CFAbsoluteTimeGetDayOfYear(CFAbsoluteTime at, CFTimeZoneRef timeZone);
/* The week of ISO 8601, 1 to 53: weeks begin on Monday, and week 1 is the one with the year's first Thursday. */
CF_EXPORT SInt32 CFAbsoluteTimeGetWeekOfYear(CFAbsoluteTime at, CFTimeZoneRef timeZone);

CF_EXTERN_C_END

#endif
