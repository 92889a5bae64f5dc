// storage_hold.h: holding a reference for as long as this process runs.
#pragma once

#include <functional>

#include "tools/tovanctl/storage_daemon.h"

namespace tovanctl {

struct StorageHold {
  std::function<void()> take;
  std::function<void()> giveBack;
  std::function<void()> sayTaken;
  std::function<void()> sayGivenBack;
};

// Takes the reference, keeps it until Ctrl-C or SIGTERM (which are caught already), and gives it back, also when the
// signal comes while it is being taken. A daemon that starts anew knows no references, so it is taken again then.
// CommandError(kNoDaemon) when the daemon ends meanwhile.
void holdUntilInterrupted(const StorageHold& hold, const StorageDaemon& daemon);

}  // namespace tovanctl
