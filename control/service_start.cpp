// Bringing up the daemon and the services.
#include <tovan/service_control.h>

#include "control/failure_report.h"
#include "control/lumisphere_services.h"

#include <tovan/daemon_control.h>

namespace {

constexpr const char* kMervaneFunction = "\nTovanConfig::startMervaneServices";
constexpr const char* kMervaneAdvice =
    "Services for this computer couldn't be launched. This is most likely caused by the mervaned daemon not running. "
    "Please check the log for any clues.\n";
constexpr const char* kLumisphereFunction = "\nTovanConfig::startLumisphereServices";
constexpr const char* kLumisphereAdvice =
    "Services for \"This Computer\" couldn't be launched. This is most likely caused by the mervaned daemon not "
    "running. Please check the log for any clues.\n";

void startApplicationServices() {
  const auto services = tovan::lumisphereServices();
  if (!services) return;
  addMervaneClient();
  startDaemon();
  syncServices(services.get());
}

}  // namespace

void startMervaneServices() {
  tovan::reportingFailures(
      kMervaneFunction,
      [] {
        addMervaneClient();
        startDaemon();
      },
      kMervaneAdvice);
}

// A daemon that runs already reads its preferences even when one of the services could not be started.
void startLumisphereServices() {
  tovan::reportingFailures(kLumisphereFunction, startApplicationServices, kLumisphereAdvice);
  tovan::reportingFailures(
      kLumisphereFunction, [] { syncServices(nullptr); }, kLumisphereAdvice);
}
