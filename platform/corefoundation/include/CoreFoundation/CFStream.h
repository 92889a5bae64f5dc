/* CFStream.h: streams of bytes from and to files and memory.
 *
 * A stream is made, opened once, used, and closed (releasing it closes it too). A call blocks until it can give a
 * result; interrupted system calls are taken up again. Descriptors are close-on-exec.
 *
 * Errors. A call that fails answers false, -1 or NULL; the stream's status is then kCFStreamStatusError and stays so,
 * until the stream is closed. GetError gives the system's errno in the domain kCFStreamErrorDomainPOSIX, CopyError
 * the same as an error object of domain kCFErrorDomainPOSIX (NULL while there is no error). Reading or writing a
 * stream that is not open answers -1 and changes nothing.
 *
 * Threads: one thread at a time per stream. */
#ifndef COREFOUNDATION_CFSTREAM_H
#define COREFOUNDATION_CFSTREAM_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

CF_EXTERN_C_BEGIN

typedef struct CFReadStreamStorage* CFReadStreamRef;
typedef struct CFWriteStreamStorage* CFWriteStreamRef;

typedef enum {
  kCFStreamStatusNotOpen = 0,
  kCFStreamStatusOpening,
  kCFStreamStatusOpen,
  kCFStreamStatusReading,
  kCFStreamStatusWriting,
  kCFStreamStatusAtEnd,
  kCFStreamStatusClosed,
  kCFStreamStatusError
} CFStreamStatus;

typedef struct {
  CFIndex domain; /* 0 while there is no error, else kCFStreamErrorDomainPOSIX */
  SInt32 error;   /* errno */
} CFStreamError;

enum { kCFStreamErrorDomainCustom = -1, kCFStreamErrorDomainPOSIX = 1 };

/* The bytes that a stream made by CFWriteStreamCreateWithAllocatedBuffers has taken: CFData. */
CF_EXPORT const CFStringRef kCFStreamPropertyDataWritten;
/* kCFBooleanTrue, set before opening: a file stream writes behind what the file holds, instead of truncating it. */
CF_EXPORT const CFStringRef kCFStreamPropertyAppendToFile;

CF_EXPORT CFTypeID CFReadStreamGetTypeID(void);
CF_EXPORT CFTypeID CFWriteStreamGetTypeID(void);

/* A stream on the file at a file URL, which CFReadStreamOpen opens. Only regular files are read: a folder fails with
 * EISDIR, a FIFO, socket or device with EINVAL, without blocking. NULL when the URL is no file URL. */
CF_EXPORT CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef allocator, CFURLRef fileURL);
/* A stream on `length` bytes of the caller's. bytesDeallocator kCFAllocatorNull: the bytes stay the caller's and must
 * outlive the stream; kCFAllocatorDefault: they come from malloc and the stream frees them. */
CF_EXPORT CFReadStreamRef CFReadStreamCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes,
                                                            CFIndex length, CFAllocatorRef bytesDeallocator);
CF_EXPORT Boolean CFReadStreamOpen(CFReadStreamRef stream);
CF_EXPORT void CFReadStreamClose(CFReadStreamRef stream);
/* Reads up to bufferLength bytes and gives their number; 0 at the end, -1 on failure. */
CF_EXPORT CFIndex CFReadStreamRead(CFReadStreamRef stream, UInt8* buffer, CFIndex bufferLength);
/* Whether a read may give bytes: true on an open stream that has not come to its end. */
CF_EXPORT Boolean CFReadStreamHasBytesAvailable(CFReadStreamRef stream);
/* The bytes ahead in a stream over memory, at most maxBytesToRead (0: all), which it then counts as read; *bytesRead
 * receives their number. They live as long as the stream. NULL for a file stream, and when nothing is ahead. */
CF_EXPORT const UInt8* CFReadStreamGetBuffer(CFReadStreamRef stream, CFIndex maxBytesToRead, CFIndex* bytesRead);
CF_EXPORT CFStreamStatus CFReadStreamGetStatus(CFReadStreamRef stream);
CF_EXPORT CFStreamError CFReadStreamGetError(CFReadStreamRef stream);
CF_EXPORT CFErrorRef CFReadStreamCopyError(CFReadStreamRef stream);
/* No read stream has properties: NULL and false. */
CF_EXPORT CFTypeRef CFReadStreamCopyProperty(CFReadStreamRef stream, CFStringRef name);
CF_EXPORT Boolean CFReadStreamSetProperty(CFReadStreamRef stream, CFStringRef name, CFTypeRef value);

/* A stream on the file at a file URL; CFWriteStreamOpen creates it (mode 0666 less the creation mask) or truncates
 * it. Only regular files are written: a folder fails with EISDIR, anything else with EINVAL, without blocking. NULL
 * when the URL is no file URL. */
CF_EXPORT CFWriteStreamRef CFWriteStreamCreateWithFile(CFAllocatorRef allocator, CFURLRef fileURL);
/* A stream into memory that grows; kCFStreamPropertyDataWritten gives what it took. */
CF_EXPORT CFWriteStreamRef CFWriteStreamCreateWithAllocatedBuffers(CFAllocatorRef allocator,
                                                                   CFAllocatorRef bufferAllocator);
/* A stream into the caller's buffer, which must outlive it. Full, it takes no more: writing fails with ENOMEM. */
CF_EXPORT CFWriteStreamRef CFWriteStreamCreateWithBuffer(CFAllocatorRef allocator, UInt8* buffer,
                                                         CFIndex bufferCapacity);
CF_EXPORT Boolean CFWriteStreamOpen(CFWriteStreamRef stream);
CF_EXPORT void CFWriteStreamClose(CFWriteStreamRef stream);
/* Writes up to bufferLength bytes and gives the number taken, which may be smaller; -1 on failure. */
CF_EXPORT CFIndex CFWriteStreamWrite(CFWriteStreamRef stream, const UInt8* buffer, CFIndex bufferLength);
/* Whether a write may take bytes: true on an open stream whose buffer is not full. */
CF_EXPORT Boolean CFWriteStreamCanAcceptBytes(CFWriteStreamRef stream);
CF_EXPORT CFStreamStatus CFWriteStreamGetStatus(CFWriteStreamRef stream);
CF_EXPORT CFStreamError CFWriteStreamGetError(CFWriteStreamRef stream);
CF_EXPORT CFErrorRef CFWriteStreamCopyError(CFWriteStreamRef stream);
CF_EXPORT CFTypeRef CFWriteStreamCopyProperty(CFWriteStreamRef stream, CFStringRef name);
/* False when the stream has no such property, or is open already. */
CF_EXPORT Boolean CFWriteStreamSetProperty(CFWriteStreamRef stream, CFStringRef name, CFTypeRef value);

CF_EXTERN_C_END

#endif
