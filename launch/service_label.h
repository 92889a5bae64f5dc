// service_label.h: the launchd label of a service's instance.
#pragma once

#include <tovan/service_cache_file.h>

#include <plinth/string.h>

#include <CoreFoundation/CFString.h>

namespace tovan {

// Whether a text can be one component of a path: not empty, without slash and NUL.
bool isFileName(CFStringRef text);

// The identifier in the entry's service kind, and from instance 1 on "-" and the instance plus one. Throws as
// CLaunchCtlPList::setLabelForService().
plinth::CStringRef labelForService(const CServiceCacheEntry& entry, unsigned int instance);

}  // namespace tovan
