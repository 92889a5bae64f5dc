/* version.h: which version of the library is loaded. Usable from C and C++; read-only, set at compile time. */
#ifndef TOVAN_VERSION_H
#define TOVAN_VERSION_H

#include <tovan/export.h>

TOVAN_EXTERN_C_BEGIN

/* The text that what(1) finds in the binary: "@(#)PROGRAM:TovanCore  PROJECT:TovanCore-303" and a newline. */
TOVAN_EXPORT extern const char TovanCoreVersionString[];
/* The project version as a number: 303.0. */
TOVAN_EXPORT extern const double TovanCoreVersionNumber;

TOVAN_EXTERN_C_END

#endif
