#include <tovan/version.h>

extern "C" {

constinit const char TovanCoreVersionString[] = "@(#)PROGRAM:TovanCore  PROJECT:TovanCore-303\n";
constinit const double TovanCoreVersionNumber = 303.0;

}  // extern "C"
