/* framework_location.h: where the frameworks and the service bundles lie. Usable from C and C++.
 *
 * Nothing is found by a fixed path: every place is computed from where this library itself was loaded.
 *
 *   Frameworks/
 *     Mervane.framework/Versions/A/Frameworks/TovanCore.framework    this library, four components below
 *     Lumisphere.framework/Resources/                                beside it
 *       LumisphereJobController.bundle
 *       LumisphereTranscoder.bundle
 *
 * Every function reports a missing item by NULL and throws nothing. All may be called from any thread. Each call looks
 * at the file system afresh. */
#ifndef TOVAN_FRAMEWORK_LOCATION_H
#define TOVAN_FRAMEWORK_LOCATION_H

#include <tovan/export.h>

#include <CoreFoundation/CFBundle.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

TOVAN_EXTERN_C_BEGIN

/* The cluster framework "Mervane.framework", its symbolic links resolved. The caller owns the result. NULL unless the
 * library's bundle was loaded from exactly four components below a "Mervane.framework" that lies in a folder named
 * "Frameworks". */
TOVAN_EXPORT CFURLRef getMervaneFrameworkURL(void);

/* The application framework "Lumisphere.framework" beside the cluster framework. The caller owns the result. NULL when
 * there is none, or no cluster framework. */
TOVAN_EXPORT CFURLRef getLumisphereFrameworkURL(void);

/* The service kind that a bundle declares: the string value of "MervaneServiceKind" in its information dictionary. The
 * bundle owns the result. NULL for a NULL bundle and for a value that is missing or no string. */
TOVAN_EXPORT CFStringRef getServiceKindFromBundle(CFBundleRef bundle);

/* The application framework's two service bundles. Each output becomes NULL when that bundle is missing, else a URL
 * that the caller owns. A null output pointer is skipped. */
TOVAN_EXPORT void getLumisphereServiceBundleURLs(CFURLRef* jobController, CFURLRef* transcoder);

/* The service kinds (despite the name, not the bundle identifiers) of those two bundles. Each output becomes NULL when
 * the bundle is missing or declares none, else a string that the caller owns. A null output pointer is skipped. */
TOVAN_EXPORT void getLumisphereServiceBundleIDs(CFStringRef* jobController, CFStringRef* transcoder);

TOVAN_EXTERN_C_END

#endif
