/* CFNumber.h: numbers and booleans.
 *
 * A number keeps an integer as 64 bits with the width it was created with, and a real as a double (or float). Two
 * numbers of the same value are equal and have the same hash whatever their types. Numbers and booleans never
 * change and may be used from any thread. Small integers may be constant objects, which are never counted. */
#ifndef COREFOUNDATION_CFNUMBER_H
#define COREFOUNDATION_CFNUMBER_H

#include <CoreFoundation/CFBase.h>

typedef const struct CFNumberStorage* CFNumberRef;
typedef const struct CFBooleanStorage* CFBooleanRef;

typedef enum {
  /* Fixed width. */
  kCFNumberSInt8Type = 1,
  kCFNumberSInt16Type = 2,
  kCFNumberSInt32Type = 3,
  kCFNumberSInt64Type = 4,
  kCFNumberFloat32Type = 5,
  kCFNumberFloat64Type = 6,
  /* The types of C. */
  kCFNumberCharType = 7,
  kCFNumberShortType = 8,
  kCFNumberIntType = 9,
  kCFNumberLongType = 10,
  kCFNumberLongLongType = 11,
  kCFNumberFloatType = 12,
  kCFNumberDoubleType = 13,
  /* Others. */
  kCFNumberCFIndexType = 14,
  kCFNumberNSIntegerType = 15,
  kCFNumberCGFloatType = 16,
  kCFNumberMaxType = 16
} CFNumberType;

CF_EXTERN_C_BEGIN

CF_EXPORT const CFBooleanRef kCFBooleanTrue;
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
/* NULL is false. */
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);

CF_EXPORT const CFNumberRef kCFNumberPositiveInfinity;
CF_EXPORT const CFNumberRef kCFNumberNegativeInfinity;
CF_EXPORT const CFNumberRef kCFNumberNaN;

CF_EXPORT CFTypeID CFNumberGetTypeID(void);

/* A number from the value of the given type that valuePtr points to. The caller owns it. NULL when valuePtr is NULL
 * or the type is none of the above. */
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* valuePtr);

/* The fixed-width type of the same width as the one it was created with: an int answers kCFNumberSInt32Type, a long
 * kCFNumberSInt64Type, a double kCFNumberFloat64Type. An unsigned value above INT64_MAX, which only a property list
 * brings, answers kCFNumberSInt64Type. */
CF_EXPORT CFNumberType CFNumberGetType(CFNumberRef number);
/* The size in bytes of that type. */
CF_EXPORT CFIndex CFNumberGetByteSize(CFNumberRef number);
CF_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number);

/* Stores the value, converted to the type, behind valuePtr. True when nothing was lost. Otherwise false, and what is
 * stored is the nearest value: a fraction is cut off, a value out of range becomes the type's limit, and a value
 * that is not a number becomes 0 in an integer type. With a NULL argument or an unknown type: false, nothing is
 * stored. */
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* valuePtr);

/* By value, exactly: an integer and a double are never compared after rounding. "Not a number" equals itself and
 * comes before every other value. The context is not used: pass NULL. */
CF_EXPORT CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef other, void* context);

CF_EXTERN_C_END

#endif
