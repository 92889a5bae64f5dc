// mount_source.h: what a remote storage URL says to the mount command.
#pragma once

#include <plinth/string.h>
#include <plinth/url.h>

#include <string>

namespace tovan {

struct MountSource {
  std::string host;  // an IPv6 address in brackets
  std::string path;
  std::string options;  // with commas between; never empty
};

// Throws for a null URL and for one of which no safe command can be made; nfs_shared_storage_subscriber.h has the texts
// and what a URL's parts stand for.
MountSource mountSourceOf(const plinth::CURLRef& url);

// A mount point as an argument that no command takes for an option.
std::string mountPointArgument(const std::string& mountPoint);

}  // namespace tovan
