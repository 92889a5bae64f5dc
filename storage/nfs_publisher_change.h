// nfs_publisher_change.h: a change of the exports file.
#pragma once

#include <tovan/nfs_shared_storage_publisher.h>

#include <string>

#include "storage/exports_lines.h"

namespace tovan {

struct CNFSSharedStoragePublisher::Change {
  std::string before;  // what the file held when it was read
  ExportsLines lines;  // the same
  bool isOvertaken;    // by another writer: nothing was written
};

}  // namespace tovan
