// storage_daemon.h: the daemon's storage as tovanctl asks it.
#pragma once

#include <tovan/dn_shared_storage_client.h>

#include <string>

#include "tools/tovanctl/process.h"
#include "tools/tovanctl/storage_listing.h"

namespace tovanctl {

// In whose name a reference is taken or given back.
struct StorageHolder {
  std::string client = "tovanctl";
  long pid = -1;  // nobody in particular
};

// Each operation waits for the daemon's answer, with a StorageWait. CommandError: kNoDaemon when there is no daemon,
// kTimedOut when it does not answer in time, kUnknownName for what is not published, and kFailed, with its reason, for
// what it refuses.
class StorageDaemon {
 public:
  // Seconds for each operation; the protocol counts whole ones.
  explicit StorageDaemon(double timeout);

  void publish(const std::string& path, const StorageHolder& holder);
  void unpublish(const std::string& path, const StorageHolder& holder);
  void mount(const std::string& url, const std::string& path, const StorageHolder& holder);
  void unmount(const std::string& url, const std::string& path, const StorageHolder& holder);
  StorageListing list();

  // The daemon's process, as it was found.
  pid_t pid() const { return process_.pid(); }
  // Whether it has ended since.
  bool isGone() const { return process_.awaitEnd(deadlineIn(0)); }

 private:
  void await(const std::string& what, const plinth::CStringRef& requestID);

  const double timeout_;
  const ProcessHold process_;
  const tovan::CDNSharedStorageClientRef client_;
};

}  // namespace tovanctl
