// identity.h: what a service process is, from the information dictionary of the bundle that it lies in.
#pragma once

#include <CoreFoundation/CFString.h>
#include <plinth/shared_cf_ref.h>

#include <string>

namespace service {

struct Identity {
  plinth::CSharedCFRef<CFStringRef> kind;     // null when the program lies in no bundle that declares one
  plinth::CSharedCFRef<CFStringRef> name;     // the bundle's name
  plinth::CSharedCFRef<CFStringRef> version;  // the bundle's version
};

Identity ownIdentity();

// The name of the service's log, and of its entry in the service cache: the kind, unless the program was installed
// under another name only.
std::string logName(const Identity& identity);

}  // namespace service
