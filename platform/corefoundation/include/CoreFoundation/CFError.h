/* CFError.h: what went wrong, as a domain, a code and a dictionary of particulars.
 *
 * An error never changes and may be used from any thread. What "%@" and CFCopyDescription print of one is the text of
 * CFErrorCopyDescription. */
#ifndef COREFOUNDATION_CFERROR_H
#define COREFOUNDATION_CFERROR_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>

typedef const struct CFErrorStorage* CFErrorRef;
typedef CFStringRef CFErrorDomain;

CF_EXTERN_C_BEGIN

/* Codes are errno values. */
CF_EXPORT const CFErrorDomain kCFErrorDomainPOSIX;
/* Codes are OSStatus values. */
CF_EXPORT const CFErrorDomain kCFErrorDomainOSStatus;
CF_EXPORT const CFErrorDomain kCFErrorDomainCocoa;

/* Keys of the user information. The texts are CFStrings, the URL a CFURL, the underlying error a CFError. */
CF_EXPORT const CFStringRef kCFErrorLocalizedDescriptionKey;   /* what went wrong, a whole sentence */
CF_EXPORT const CFStringRef kCFErrorLocalizedFailureReasonKey; /* why */
CF_EXPORT const CFStringRef kCFErrorDescriptionKey;            /* why, for people who know the system */
CF_EXPORT const CFStringRef kCFErrorFilePathKey;
CF_EXPORT const CFStringRef kCFErrorURLKey;
CF_EXPORT const CFStringRef kCFErrorUnderlyingErrorKey; /* the error that caused this one */

CF_EXPORT CFTypeID CFErrorGetTypeID(void);

/* An error with a copy of the user information, which may be NULL. The caller owns it. NULL when there is no domain.
 */
CF_EXPORT CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFErrorDomain domain, CFIndex code,
                                   CFDictionaryRef userInfo);
/* The same from count keys and values, which are objects. */
CF_EXPORT CFErrorRef CFErrorCreateWithUserInfoKeysAndValues(CFAllocatorRef allocator, CFErrorDomain domain,
                                                            CFIndex code, const void* const* userInfoKeys,
                                                            const void* const* userInfoValues, CFIndex count);

CF_EXPORT CFErrorDomain CFErrorGetDomain(CFErrorRef error);
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef error);
/* Never NULL for an error; empty when it was created without. The caller owns it. */
CF_EXPORT CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error);
/* A text for people, never NULL for an error: the localized description; else "The operation couldn't be completed."
 * with the failure reason behind it; else with domain, code and, when there is one, the description. The caller owns
 * it. */
CF_EXPORT CFStringRef CFErrorCopyDescription(CFErrorRef error);
/* The localized failure reason; else, for a POSIX code, the system's text for it; else NULL. The caller owns it. */
CF_EXPORT CFStringRef CFErrorCopyFailureReason(CFErrorRef error);

CF_EXTERN_C_END

#endif
