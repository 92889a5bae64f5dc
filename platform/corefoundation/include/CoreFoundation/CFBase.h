/* CFBase.h: the scalar types, the object head and the functions that every object shares.
 *
 * Ownership, for the whole API: a function with Create or Copy in its name gives the caller a reference, which
 * the caller gives back with CFRelease. A function with Get in its name gives none: the result lives as long as
 * the object it came from holds it.
 *
 * Threads: retaining and releasing are atomic. Reading an object that nobody changes is safe from any thread;
 * a mutable object belongs to one thread at a time. */
#ifndef COREFOUNDATION_CFBASE_H
#define COREFOUNDATION_CFBASE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__cplusplus)
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

/* Marks what libTovanPlatform exports. */
#define CF_EXPORT extern __attribute__((visibility("default")))
/* A printf-like function whose format may hold %@, which the compiler's own check does not know. */
#define CF_FORMAT_FUNCTION(formatIndex, firstArgument)

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;
typedef uint16_t UniChar;   /* one UTF-16 code unit */
typedef uint32_t UTF32Char; /* one Unicode scalar value */
typedef int32_t OSStatus;
typedef uint32_t OSType;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

typedef intptr_t CFIndex;        /* a count, an index or a length */
typedef uintptr_t CFTypeID;      /* which kind of object */
typedef uintptr_t CFOptionFlags; /* bits */
typedef uintptr_t CFHashCode;

/* Any object of this API. */
typedef const void* CFTypeRef;

/* Only the default allocator exists: pass kCFAllocatorDefault (or NULL). kCFAllocatorNull means "do not free". */
typedef const struct CFAllocatorStorage* CFAllocatorRef;

/* These two stand here because every header names them. */
typedef const struct CFStringStorage* CFStringRef;
typedef struct CFStringStorage* CFMutableStringRef;

typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
  CFRange range;
  range.location = location;
  range.length = length;
  return range;
}

typedef enum { kCFCompareLessThan = -1, kCFCompareEqualTo = 0, kCFCompareGreaterThan = 1 } CFComparisonResult;
typedef CFComparisonResult (*CFComparatorFunction)(const void* left, const void* right, void* context);

enum { kCFNotFound = -1 };

/* The description of one kind of object; its address is the kind's CFTypeID. Opaque to clients. */
typedef struct CFRuntimeClass CFRuntimeClass;

/* The head that every object begins with. Public only so that constant objects can be laid out at compile time;
 * clients never touch it. */
typedef struct CFObjectHead {
  const CFRuntimeClass* type;
  int32_t count; /* references held, or kCFObjectIsConstant: never counted, never destroyed */
  uint32_t info; /* bits that belong to the kind */
} CFObjectHead;

enum { kCFObjectIsConstant = -1 };

CF_EXTERN_C_BEGIN

CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;
CF_EXPORT const CFAllocatorRef kCFAllocatorNull;

/* Adds a reference; gives its argument back. NULL gives NULL. */
CF_EXPORT CFTypeRef CFRetain(CFTypeRef object);
/* Gives a reference back; the last one destroys the object, and with it what it alone holds, to any depth of nesting.
 * NULL does nothing. */
CF_EXPORT void CFRelease(CFTypeRef object);
/* The number of references, for tests and diagnostics; a constant object answers INTPTR_MAX. */
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef object);
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef object);
/* Equal by content, kind by kind; objects of different kinds are never equal. NULL equals only NULL. */
CF_EXPORT Boolean CFEqual(CFTypeRef left, CFTypeRef right);
CF_EXPORT CFHashCode CFHash(CFTypeRef object);
/* A text for people (what %@ prints, strings excepted). The caller owns it. */
CF_EXPORT CFStringRef CFCopyDescription(CFTypeRef object);
/* The name of a kind, such as "CFDictionary". The caller owns it. */
CF_EXPORT CFStringRef CFCopyTypeIDDescription(CFTypeID type);

CF_EXTERN_C_END

#endif
