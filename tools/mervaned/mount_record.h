// mount_record.h: which mounts the daemons of this user have made, so that one that a daemon left behind can be told
// from everybody else's.
//
// The record is the file "LumisphereMounts.plist" in the configuration folder: a dictionary by mount point, each with
// the URL of what is mounted there, the path under which the kernel lists it and, once it was seen there, the type and
// the source that the kernel lists. A mount stands in it from before the command that makes it, so that a daemon that
// is killed meanwhile leaves no mount without a record. What the kernel does not list is no mount, and what it lists
// with another type or source is somebody else's, whatever the record says.
#pragma once

#include <map>
#include <string>

#include "tools/mervaned/mount_table.h"

namespace mervaned {

struct RecordedMount {
  std::string url;
  std::string listedPath;
  // Both empty as long as the mount was not seen.
  std::string type;
  std::string source;
};

// Whether this very mount is there now. Of one that was not seen when it was made, only the URL is known: a mount of
// type nfs or nfs4 from the URL's host and folder counts as it.
bool isThere(const RecordedMount& mount, const MountTable& table);

class MountRecord {
 public:
  // Reads the file, and drops what is not there any more; what was not seen yet stays as long as nothing is there, as
  // the command that makes it may outlive its daemon. A file that cannot be read is a line in the log, and begins anew.
  MountRecord();

  // By mount point.
  const std::map<std::string, RecordedMount>& mounts() const noexcept { return mounts_; }
  // Both write the file; a failure is a line in the log.
  void put(const std::string& mountPoint, const RecordedMount& mount);
  void remove(const std::string& mountPoint);

 private:
  void read();
  void prune();
  void write() const;

  const std::string path_;
  std::map<std::string, RecordedMount> mounts_;
};

}  // namespace mervaned
