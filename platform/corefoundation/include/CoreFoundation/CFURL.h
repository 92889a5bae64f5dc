/* CFURL.h: uniform resource locators (RFC 3986), and file-system paths as file URLs.
 *
 * A URL is immutable; using one from several threads is safe. It is the text it was made of and, when that text is
 * relative, the base URL that it is relative to. Nothing is normalised on the way in: ".", ".." and empty path
 * components stay until CFURLCopyAbsoluteURL resolves a relative URL against its base.
 *
 * A file URL is "file:///", with the bytes of the path percent-escaped where a URL could not hold them; a file name
 * need not be UTF-8. The path of a directory URL ends in "/". The functions that give a part of a URL look at the
 * URL's own text only and never at its base, CFURLGetFileSystemRepresentation on request excepted. */
#ifndef COREFOUNDATION_CFURL_H
#define COREFOUNDATION_CFURL_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

typedef const struct CFURLStorage* CFURLRef;

/* The syntax of a file-system path. Only POSIX paths exist here: the other two styles give NULL everywhere. */
typedef enum { kCFURLPOSIXPathStyle = 0, kCFURLHFSPathStyle = 1, kCFURLWindowsPathStyle = 2 } CFURLPathStyle;

CF_EXTERN_C_BEGIN

CF_EXPORT CFTypeID CFURLGetTypeID(void);

/* Making URLs from text. The text must be a URL reference as RFC 3986 writes it: a character that should have been
 * percent-escaped (a blank, a control character, anything outside ASCII), a "%" without two hexadecimal digits, or
 * an empty text without a base gives NULL. A text with a scheme is absolute and drops the base. */
CF_EXPORT CFURLRef CFURLCreateWithString(CFAllocatorRef allocator, CFStringRef text, CFURLRef base);
/* The same from `length` bytes in `encoding`; NULL also when the bytes are not in that encoding. */
CF_EXPORT CFURLRef CFURLCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                        CFStringEncoding encoding, CFURLRef base);

/* Making file URLs from paths. The flag decides whether the URL is a directory's: slashes at the end of the path are
 * taken off, and one is put back for a directory. "/" is always a directory. An absolute path gives an absolute URL;
 * a relative one is relative to `base`, or, in the functions without a base or with NULL, to the current directory
 * as it is now. NULL for an empty path, one with a NUL character in it, and any style but POSIX. */
CF_EXPORT CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style,
                                                 Boolean isDirectory);
CF_EXPORT CFURLRef CFURLCreateWithFileSystemPathRelativeToBase(CFAllocatorRef allocator, CFStringRef path,
                                                               CFURLPathStyle style, Boolean isDirectory,
                                                               CFURLRef base);
/* The same from the path's `length` bytes as the kernel knows them, UTF-8 or not. */
CF_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                                           Boolean isDirectory);
CF_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentationRelativeToBase(CFAllocatorRef allocator, const UInt8* bytes,
                                                                         CFIndex length, Boolean isDirectory,
                                                                         CFURLRef base);

/* The whole. */

/* The URL resolved against its base by RFC 3986, section 5.2; an absolute URL, or one that no base makes absolute,
 * comes back as it is. NULL for NULL. */
CF_EXPORT CFURLRef CFURLCopyAbsoluteURL(CFURLRef url);
/* The URL's own text, escapes kept; its base takes no part. */
CF_EXPORT CFStringRef CFURLGetString(CFURLRef url);
/* The base that a relative URL was made with; NULL for an absolute one. */
CF_EXPORT CFURLRef CFURLGetBaseURL(CFURLRef url);
/* False for a URL that is a scheme and an opaque rest, such as "mailto:someone@example.com". Such a URL answers
 * NULL, -1 or false to everything below except CFURLCopyScheme and CFURLCopyResourceSpecifier. */
CF_EXPORT Boolean CFURLCanBeDecomposed(CFURLRef url);

/* The parts, each NULL when the URL has none. */

CF_EXPORT CFStringRef CFURLCopyScheme(CFURLRef url);
/* User, password, host and port as they stand, escapes kept. Empty, not NULL, for "file:///". */
CF_EXPORT CFStringRef CFURLCopyNetLocation(CFURLRef url);
/* The next three are decoded. The host of an IPv6 literal comes without its brackets; an empty host is NULL. */
CF_EXPORT CFStringRef CFURLCopyHostName(CFURLRef url);
CF_EXPORT CFStringRef CFURLCopyUserName(CFURLRef url);
CF_EXPORT CFStringRef CFURLCopyPassword(CFURLRef url);
/* -1 when there is none, and for one above 65535. */
CF_EXPORT SInt32 CFURLGetPortNumber(CFURLRef url);
/* The path with its escapes, leading slash and trailing slash; "" when there is none. */
CF_EXPORT CFStringRef CFURLCopyPath(CFURLRef url);
/* The path without its leading slash, of which `isAbsolute` (may be NULL) tells. */
CF_EXPORT CFStringRef CFURLCopyStrictPath(CFURLRef url, Boolean* isAbsolute);
/* What follows the path, with its "?" or "#"; for a URL that cannot be decomposed what follows the scheme's colon. */
CF_EXPORT CFStringRef CFURLCopyResourceSpecifier(CFURLRef url);
/* The query behind "?" and the fragment behind "#". With NULL as the second argument they keep their escapes; else
 * these are replaced, but for those of the characters named ("" replaces all). A ";" is part of the path. */
CF_EXPORT CFStringRef CFURLCopyQueryString(CFURLRef url, CFStringRef charactersToLeaveEscaped);
CF_EXPORT CFStringRef CFURLCopyFragment(CFURLRef url, CFStringRef charactersToLeaveEscaped);

/* The path as file-system text. */

/* Whether the path ends in "/", "." or "..". */
CF_EXPORT Boolean CFURLHasDirectoryPath(CFURLRef url);
/* The decoded path without slashes at its end ("/" itself stays). A relative URL gives a relative path. NULL when
 * there is no path, when the decoded bytes are not UTF-8 or hold a NUL, and for any style but POSIX. */
CF_EXPORT CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);
/* Writes the same path as bytes and a NUL to `buffer`; bytes that are not UTF-8 are given as they are. False, with
 * the buffer untouched, when it does not fit into `capacity` bytes, when there is no path or it holds a NUL. */
CF_EXPORT Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                                   CFIndex capacity);
/* The last component, decoded, without a slash; "/" for the root and "" when there is no path. */
CF_EXPORT CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
/* What follows the last "." of the last component, decoded. A name that begins with its only "." or ends in it has
 * no extension: NULL. */
CF_EXPORT CFStringRef CFURLCopyPathExtension(CFURLRef url);

/* Copies with another path; base, query and fragment stay. */

/* `component` is plain text, one component or a relative path of several; exactly one slash joins it to the path and
 * the flag decides about the one behind it. An empty component only makes the URL a directory's when asked to. */
CF_EXPORT CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef allocator, CFURLRef url, CFStringRef component,
                                                         Boolean isDirectory);
/* The parent, a directory. The parent of the root is the root; that of a path that ends in ".." is one ".." more. */
CF_EXPORT CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url);
/* NULL when there is no component to extend, or when the extension is empty or holds a "/". */
CF_EXPORT CFURLRef CFURLCreateCopyAppendingPathExtension(CFAllocatorRef allocator, CFURLRef url, CFStringRef extension);
/* An equal URL when there is no extension. */
CF_EXPORT CFURLRef CFURLCreateCopyDeletingPathExtension(CFAllocatorRef allocator, CFURLRef url);

/* Percent escapes of plain text. */

/* `text` with every character that a URL must not hold replaced by the escapes of its bytes in `encoding`; of those,
 * the characters of `leaveUnescaped` stay, and the legal characters of `alsoEscape` are escaped too. Either may be
 * NULL. NULL when a character does not exist in the encoding. */
CF_EXPORT CFStringRef CFURLCreateStringByAddingPercentEscapes(CFAllocatorRef allocator, CFStringRef text,
                                                              CFStringRef leaveUnescaped, CFStringRef alsoEscape,
                                                              CFStringEncoding encoding);
/* `text` with its escapes, read as UTF-8, replaced, but for those of the characters in `leaveEscaped`; with NULL
 * there, nothing is replaced. NULL when an escape is malformed or the bytes are not in the encoding. */
CF_EXPORT CFStringRef CFURLCreateStringByReplacingPercentEscapes(CFAllocatorRef allocator, CFStringRef text,
                                                                 CFStringRef leaveEscaped);
CF_EXPORT CFStringRef CFURLCreateStringByReplacingPercentEscapesUsingEncoding(CFAllocatorRef allocator,
                                                                              CFStringRef text,
                                                                              CFStringRef leaveEscaped,
                                                                              CFStringEncoding encoding);

CF_EXTERN_C_END

#endif
