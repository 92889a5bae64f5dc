// Asking the daemon to restart or to stop.
#include <tovan/daemon_control.h>

#include "control/failure_report.h"

#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/notifications.h>

#include <plinth/shared_cf_ref.h>

namespace {

// The daemon takes the same request for both, and acts on it as it sees fit.
void requestRestart(const char* function, bool cancelJobs) {
  tovan::reportingFailures(function, [cancelJobs] {
    const plinth::CSharedCFRef<CFMutableDictionaryRef> request(tovan::CFUtil::CFDictMakeMutable());
    tovan::CFUtil::CFDictSetBoolean(request.get(), tovan::TovanCorePrivate::kDictKeyCancelJobs, cancelJobs);
    signalFrom(tovan::TovanNotification::kTovanDaemonRestartNotification, CFSTR("mervaneprefs"), request.get());
  });
}

}  // namespace

void restartDaemon(bool cancelJobs) { requestRestart("TovanConfig::restartDaemon", cancelJobs); }

void stopDaemon(bool cancelJobs) { requestRestart("TovanConfig::stopDaemon", cancelJobs); }
