/* CFBundle.h: bundles, which are directories that keep an executable, its description and its resources together.
 *
 * Three layouts are known:
 *
 *   Contents             Contents/Info.plist, executables in Contents/Linux, resources in Contents/Resources
 *   versioned framework  Versions/Current/Resources/Info.plist, executables in Versions/Current and its Resources
 *   flat                 Info.plist and executables at the top or in Resources
 *
 * A bundle object is a picture of its information dictionary as it was when the object was made, and never changes;
 * using one from several threads is safe. Files are looked up at each call. */
#ifndef COREFOUNDATION_CFBUNDLE_H
#define COREFOUNDATION_CFBUNDLE_H

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

typedef struct CFBundleStorage* CFBundleRef;

CF_EXTERN_C_BEGIN

CF_EXPORT CFTypeID CFBundleGetTypeID(void);

/* Keys of the information dictionary. */
CF_EXPORT const CFStringRef kCFBundleInfoDictionaryVersionKey; /* "CFBundleInfoDictionaryVersion" */
CF_EXPORT const CFStringRef kCFBundleExecutableKey;            /* "CFBundleExecutable" */
CF_EXPORT const CFStringRef kCFBundleIdentifierKey;            /* "CFBundleIdentifier" */
CF_EXPORT const CFStringRef kCFBundleVersionKey;               /* "CFBundleVersion" */
CF_EXPORT const CFStringRef kCFBundleDevelopmentRegionKey;     /* "CFBundleDevelopmentRegion" */
CF_EXPORT const CFStringRef kCFBundleNameKey;                  /* "CFBundleName" */

/* Finding bundles. The Get functions give bundles that the process keeps for good. */

/* The bundle of a directory, whatever that holds; NULL when the URL names no directory that can be reached. While the
 * information dictionary on disk stays what it was, the same path gives the same object again, with one more
 * reference; once that has changed, a new object takes its place and the old one keeps showing the old state. */
CF_EXPORT CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef url);
/* The bundle that the running program lies in, or, for a program in no bundle, the directory it lies in. NULL only
 * when the program's file is gone. */
CF_EXPORT CFBundleRef CFBundleGetMainBundle(void);
/* A bundle by its identifier: first the bundles of the program and of the libraries loaded now, found through their
 * real paths, then those that CFBundleCreate has made. NULL when none has it. */
CF_EXPORT CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef identifier);
/* Every bundle the two functions above search. The array is a picture of now and stays. */
CF_EXPORT CFArrayRef CFBundleGetAllBundles(void);

/* What a bundle says of itself. */

/* NULL when there is no Info.plist, when it is not a regular file, is larger than 16 MiB, cannot be read, is no
 * property list or has no dictionary as its root. */
CF_EXPORT CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);
CF_EXPORT CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
/* The next two are NULL when the dictionary has no such key, or something that is not a string under it. */
CF_EXPORT CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);
CF_EXPORT CFStringRef CFBundleGetDevelopmentRegion(CFBundleRef bundle);

/* Where its parts lie. All URLs are absolute; the caller owns them. */

/* The bundle's directory as it was named to CFBundleCreate; the real path for bundles found otherwise. For a framework
 * this is the .framework directory. */
CF_EXPORT CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
/* The directory of the resources, or NULL when it is missing; a flat bundle without Resources is that directory
 * itself. */
CF_EXPORT CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle);
CF_EXPORT CFURLRef CFBundleCopyPrivateFrameworksURL(CFBundleRef bundle);
/* The main executable: the one that "CFBundleExecutable" names, else the one named as the bundle without its
 * extension. NULL unless it is an executable regular file. A name from the dictionary that is a path ("../x", "a/b")
 * names nothing. For the main bundle of a program outside any bundle it is that program. */
CF_EXPORT CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);
/* An executable of that name beside the main one, by the same rules. */
CF_EXPORT CFURLRef CFBundleCopyAuxiliaryExecutableURL(CFBundleRef bundle, CFStringRef name);
/* The resource `name`.`type` (the type may be NULL) in the folder `subdirectory` (may be NULL) of the resources: first
 * outside any language, then in the ".lproj" folders of the user's languages ($LANGUAGE, $LC_ALL, $LC_MESSAGES, $LANG),
 * of the development region, English and Base. NULL when there is none, and for arguments that lead out of the
 * resources. */
CF_EXPORT CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef name, CFStringRef type,
                                           CFStringRef subdirectory);

/* The text of `key` in the table `table` ("Localizable" when NULL or empty), in the first of the languages above whose
 * table has it. A table is a ".strings" file: a property list, or lines of the form "key" = "value"; with comments,
 * in UTF-8 or UTF-16. A key that is found nowhere gives `value`, or itself when that is NULL or empty. A malformed
 * table counts as missing. Never NULL ("" for a NULL key without a value); the caller owns the text. */
CF_EXPORT CFStringRef CFBundleCopyLocalizedString(CFBundleRef bundle, CFStringRef key, CFStringRef value,
                                                  CFStringRef table);

CF_EXTERN_C_END

#endif
