/* CFPropertyList.h: reading, writing, checking and copying property lists.
 *
 * A property list is a tree of strings, numbers, booleans, dates, data, arrays and dictionaries with string keys.
 *
 * Reading. XML lists (format version 1.0) are read in one strict pass over the bytes; the reader stops at the root's
 * end tag and ignores whatever bytes follow it, because that is what a writer killed between its write and its truncate
 * leaves behind. Binary lists ("bplist00") are read too. Older text lists are refused. UTF-8 (with or without a byte
 * order mark) is the only encoding of XML lists. A document-type line is accepted, its internal subset is not: no
 * entity but the five of XML exists. Of a key that comes twice the last value counts. Containers nest to a depth of
 * kCFPropertyListMaximumDepth. Memory and time are bounded by a small multiple of the input's size.
 *
 * Writing. XML lists carry the usual declaration and document-type line, are indented with tabs, keep the
 * dictionaries' own order of keys and end with a newline. Two writes of equal lists in equal order are equal byte for
 * byte.
 *
 * Errors. Functions with a CFErrorRef* give an error of domain kCFErrorDomainCocoa with one of the codes below. Its
 * description names the cause; for XML input with line and column (both from 1, the column in characters), for output
 * with the path of keys and indexes to the object. An error pointer may be NULL; otherwise it receives an owned error
 * (or owned text) on failure and is left alone on success. On failure the result is NULL (or 0 bytes).
 *
 * Threads: as for the objects themselves (CFBase.h); there is no shared state. */
#ifndef COREFOUNDATION_CFPROPERTYLIST_H
#define COREFOUNDATION_CFPROPERTYLIST_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFStream.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

/* Any object of the kinds that a property list is made of. */
typedef CFTypeRef CFPropertyListRef;

typedef enum {
  kCFPropertyListImmutable = 0,
  kCFPropertyListMutableContainers = 1 << 0,
  kCFPropertyListMutableContainersAndLeaves = 1 << 1 /* strings and data too; never dictionary keys */
} CFPropertyListMutabilityOptions;

typedef enum {
  kCFPropertyListOpenStepFormat = 1, /* neither read nor written */
  kCFPropertyListXMLFormat_v1_0 = 100,
  kCFPropertyListBinaryFormat_v1_0 = 200
} CFPropertyListFormat;

/* Codes of the errors, all of domain kCFErrorDomainCocoa. */
enum {
  kCFPropertyListReadCorruptError = 3840,        /* the bytes are not a property list */
  kCFPropertyListReadUnknownVersionError = 3841, /* a format or a version that is not read */
  kCFPropertyListReadStreamError = 3842,         /* the stream failed; the stream's own error is the underlying one */
  kCFPropertyListWriteStreamError = 3851,        /* the same for writing */
  kCFPropertyListWriteInvalidError = 3852        /* the objects cannot be written in that format */
};

/* How many containers may lie inside one another, the root counted. */
enum { kCFPropertyListMaximumDepth = 512 };

/* Reads a list from bytes. options: one of CFPropertyListMutabilityOptions. format (may be NULL) receives the format
 * found. The caller owns the result. */
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags options, CFPropertyListFormat* format,
                                                         CFErrorRef* error);
/* The same from an open stream: streamLength bytes, or up to the stream's end when streamLength is 0. */
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithStream(CFAllocatorRef allocator, CFReadStreamRef stream,
                                                           CFIndex streamLength, CFOptionFlags options,
                                                           CFPropertyListFormat* format, CFErrorRef* error);
/* The two above with a text in place of the error. They too read both formats. */
CF_EXPORT CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator, CFDataRef data,
                                                            CFOptionFlags mutabilityOption, CFStringRef* errorString);
CF_EXPORT CFPropertyListRef CFPropertyListCreateFromStream(CFAllocatorRef allocator, CFReadStreamRef stream,
                                                           CFIndex streamLength, CFOptionFlags mutabilityOption,
                                                           CFPropertyListFormat* format, CFStringRef* errorString);

/* Serialises a list; the caller owns the bytes. options must be 0. Both formats fail on what XML 1.0 cannot carry:
 * control characters other than tab, newline and carriage return, U+FFFE, U+FFFF and lone surrogates. Dates are written
 * in whole seconds, rounded down. */
CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef list,
                                             CFPropertyListFormat format, CFOptionFlags options, CFErrorRef* error);
/* The XML format; NULL when the list cannot be written in it. */
CF_EXPORT CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator, CFPropertyListRef list);
/* Serialises into an open stream and gives the number of bytes written. Short writes are continued. 0 is a failure;
 * the stream may hold a part of the list then, but only when the stream itself failed. */
CF_EXPORT CFIndex CFPropertyListWrite(CFPropertyListRef list, CFWriteStreamRef stream, CFPropertyListFormat format,
                                      CFOptionFlags options, CFErrorRef* error);
CF_EXPORT CFIndex CFPropertyListWriteToStream(CFPropertyListRef list, CFWriteStreamRef stream,
                                              CFPropertyListFormat format, CFStringRef* errorString);

/* A copy down to the leaves; NULL when the object is no property list. Immutable leaves are shared, not copied. */
CF_EXPORT CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator, CFPropertyListRef list,
                                                         CFOptionFlags mutabilityOption);
/* Whether the object can be written in the format: kinds, string keys, depth and cycles, characters, years 1 to
 * 9999. Exactly then CFPropertyListCreateData succeeds. NULL and the OpenStep format: false. */
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef list, CFPropertyListFormat format);

CF_EXTERN_C_END

#endif
