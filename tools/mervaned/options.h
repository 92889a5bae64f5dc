// options.h: the daemon's times, all in seconds. docs/daemon.md describes them.
#pragma once

namespace mervaned {

struct Options {
  double restartDelay = 1;        // before an instance that ended by itself is started again; doubles each time
  double restartDelayLimit = 60;  // the longest such delay, and how long an instance runs well
  double stopLimit = 30;          // between SIGTERM and SIGKILL
  double cancelLimit = 5;         // the same where jobs are to be cancelled
  double clientCheck = 30;        // between two looks at the registered clients and at who holds storage
  double storageLimit = 5;        // for taking exports and mounts down at the end
};

}  // namespace mervaned
