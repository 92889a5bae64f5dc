/* CFData.h: byte buffers.
 *
 * A range that does not lie inside the data is a caller's mistake: reading stores nothing and changing changes
 * nothing. Pointers into the bytes are good until the data changes or goes. */
#ifndef COREFOUNDATION_CFDATA_H
#define COREFOUNDATION_CFDATA_H

#include <CoreFoundation/CFBase.h>

typedef const struct CFDataStorage* CFDataRef;
typedef struct CFDataStorage* CFMutableDataRef;

CF_EXTERN_C_BEGIN

CF_EXPORT CFTypeID CFDataGetTypeID(void);

/* Data with a copy of the bytes. The caller owns it. NULL when length is negative, or positive with NULL bytes. */
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
/* Data on the caller's own bytes. With kCFAllocatorNull they are left alone, and must stay while the data lives;
 * with NULL or kCFAllocatorDefault the data takes them over and frees them with free(). NULL as above; the bytes
 * are then still the caller's. */
CF_EXPORT CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                                CFAllocatorRef bytesDeallocator);
/* Immutable data of the same content, which may be the same object with a reference added. NULL gives NULL. */
CF_EXPORT CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef data);
/* Empty data that can change. The capacity is a hint: 0 when unknown, and the data grows past it when needed. */
CF_EXPORT CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
CF_EXPORT CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity, CFDataRef data);

CF_EXPORT CFIndex CFDataGetLength(CFDataRef data);
/* Never NULL for data, even when it is empty. */
CF_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef data);
/* NULL when the data is not mutable. */
CF_EXPORT UInt8* CFDataGetMutableBytePtr(CFMutableDataRef data);
CF_EXPORT void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer);

/* The functions below change nothing when the data is not mutable or the length would be negative. New bytes that
 * they do not take from the caller are zero. */
CF_EXPORT void CFDataSetLength(CFMutableDataRef data, CFIndex length);
/* extraLength may be negative, which shortens. */
CF_EXPORT void CFDataIncreaseLength(CFMutableDataRef data, CFIndex extraLength);
CF_EXPORT void CFDataAppendBytes(CFMutableDataRef data, const UInt8* bytes, CFIndex length);
/* Puts newLength bytes in place of the range. newBytes may point into the data itself. */
CF_EXPORT void CFDataReplaceBytes(CFMutableDataRef data, CFRange range, const UInt8* newBytes, CFIndex newLength);
CF_EXPORT void CFDataDeleteBytes(CFMutableDataRef data, CFRange range);

CF_EXTERN_C_END

#endif
