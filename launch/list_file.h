// list_file.h: a property list from and to a file, through streams. Messages are those of CPListUpdater, which wraps
// these two functions.
#pragma once

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFPropertyList.h>

namespace tovan {

plinth::CSharedCFRef<CFPropertyListRef> readListFile(const plinth::CStringRef& path);
// The old content, if any, stays until the new one is complete; see CPListUpdater.
void writeListFile(const plinth::CStringRef& path, CFPropertyListRef list);

}  // namespace tovan
