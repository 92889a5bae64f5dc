// storage_doctor.h: what `tovanctl storage doctor` looks at.
#pragma once

#include "tools/tovanctl/doctor_checks.h"
#include "tools/tovanctl/storage_listing.h"

namespace tovanctl {

// Whether the daemon answers, and what it says: the file it publishes in, holders that are gone, what is left over, and
// what is not in its place. The listing is empty when there is none.
void checkStorageOfDaemon(Checks& checks, StorageListing& listing);
// Whether this host serves what is published in a file: tovan-exports, and the NFS server.
void checkExportsOfHost(Checks& checks, const std::string& exportsFile);
// Whether this host can mount.
void checkMountsOfHost(Checks& checks);

}  // namespace tovanctl
