// file_system.h: what kind of file system a path lies on.
//
// The answers come from the kernel's mount table. A file system of another machine is never asked anything, neither for
// the path nor for the links on the way to it, so a server that hangs holds nobody up; whether something exists on it
// is therefore not found out here. Safe from any thread.
#pragma once

#include "platform/system/export.h"

#include <optional>
#include <string>

namespace platform {

struct FileSystemFacts {
  std::string type;         // as the mount table has it ("ext4", "nfs4"); "exfat" whichever driver serves that format
  std::string source;       // the device, or what stands in its place ("/dev/sdb1", "server:/folder")
  std::string mountPoint;   // where the file system begins in the tree
  bool isReadOnly = false;  // this mount, or the file system as a whole
  bool isLocal = true;      // not another machine's
};

// The file system that the path (symbolic links followed) lies on. Nothing, with errno, when there is no such path on
// this machine's own file systems, when a folder on the way may not be searched, or when the table cannot be read.
PLATFORM_EXPORT std::optional<FileSystemFacts> fileSystemFacts(const std::string& path);

// Whether a file system begins at exactly this absolute path, in which no links are followed.
PLATFORM_EXPORT bool isMountPoint(const std::string& path);

namespace internal {

// "exfat" for the names under which that format shows, and for a "fuseblk" whose `source` carries it; else the type.
PLATFORM_EXPORT std::string formatName(const std::string& type, const std::string& source);

}  // namespace internal

}  // namespace platform
