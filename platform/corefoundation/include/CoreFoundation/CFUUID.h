/* CFUUID.h: universally unique identifiers (RFC 4122). A UUID never changes and may be used from any thread. */
#ifndef COREFOUNDATION_CFUUID_H
#define COREFOUNDATION_CFUUID_H

#include <CoreFoundation/CFBase.h>

typedef const struct CFUUIDStorage* CFUUIDRef;

/* The sixteen bytes in the order of the text. */
typedef struct {
  UInt8 byte0;
  UInt8 byte1;
  UInt8 byte2;
  UInt8 byte3;
  UInt8 byte4;
  UInt8 byte5;
  UInt8 byte6;
  UInt8 byte7;
  UInt8 byte8;
  UInt8 byte9;
  UInt8 byte10;
  UInt8 byte11;
  UInt8 byte12;
  UInt8 byte13;
  UInt8 byte14;
  UInt8 byte15;
} CFUUIDBytes;

CF_EXTERN_C_BEGIN

CF_EXPORT CFTypeID CFUUIDGetTypeID(void);
/* A new random UUID. The caller owns it. */
CF_EXPORT CFUUIDRef CFUUIDCreate(CFAllocatorRef allocator);
/* From the text "68753A44-4D6F-1226-9C60-0050E4C00067", in either case. NULL when it is anything else. The caller
 * owns it. */
CF_EXPORT CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef text);
CF_EXPORT CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);
/* The text, in upper case. The caller owns it. NULL for NULL. */
CF_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid);
/* All zero for NULL. */
CF_EXPORT CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

CF_EXTERN_C_END

#endif
