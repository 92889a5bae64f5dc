// storage_contract.h: what the daemon says about its storage beyond the storage protocol. docs/daemon.md describes it.
//
// Each request is a notification with the keys sender and requestID, and its reply carries both again, with the sender
// as the notification's object.
#pragma once

#include <CoreFoundation/CFString.h>

namespace tools::storage_contract {

// What is published and mounted, and by whom it is held. Answered by the thread that does the storage's work, so after
// what it does just now.
inline CFStringRef listRequest() { return CFSTR("MervaneSharedStorageListNotification2"); }
inline CFStringRef listReply() { return CFSTR("MervaneSharedStorageListResultNotification2"); }
// What the storage does just now. Answered at once.
inline CFStringRef activityRequest() { return CFSTR("MervaneSharedStorageActivityNotification2"); }
inline CFStringRef activityReply() { return CFSTR("MervaneSharedStorageActivityResultNotification2"); }

inline CFStringRef sender() { return CFSTR("sender"); }
inline CFStringRef requestID() { return CFSTR("requestID"); }
inline CFStringRef pid() { return CFSTR("pid"); }
inline CFStringRef result() { return CFSTR("result"); }
inline CFStringRef problem() { return CFSTR("problem"); }

// Of a listing.
inline CFStringRef exports() { return CFSTR("exports"); }
inline CFStringRef mounts() { return CFSTR("mounts"); }
inline CFStringRef exportsFile() { return CFSTR("exportsFile"); }

// Of an export or a mount.
inline CFStringRef path() { return CFSTR("path"); }
inline CFStringRef url() { return CFSTR("url"); }
inline CFStringRef total() { return CFSTR("total"); }
inline CFStringRef returned() { return CFSTR("returned"); }
inline CFStringRef holders() { return CFSTR("holders"); }
inline CFStringRef inExportsFile() { return CFSTR("inExportsFile"); }
inline CFStringRef mounted() { return CFSTR("mounted"); }
inline CFStringRef leftOver() { return CFSTR("leftOver"); }

// Of a holder.
inline CFStringRef client() { return CFSTR("client"); }
inline CFStringRef process() { return CFSTR("process"); }
inline CFStringRef count() { return CFSTR("count"); }
inline CFStringRef alive() { return CFSTR("alive"); }
inline CFStringRef gone() { return CFSTR("gone"); }
inline CFStringRef none() { return CFSTR("none"); }

// Of an activity; both absent while the storage does nothing.
inline CFStringRef operation() { return CFSTR("operation"); }
inline CFStringRef seconds() { return CFSTR("seconds"); }

}  // namespace tools::storage_contract
