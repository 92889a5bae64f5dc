/* The daemon and service functions as a C program sees them. */
#include <tovan/daemon_control.h>
#include <tovan/dynamic_instances.h>
#include <tovan/service_control.h>

#include <stddef.h>

/* How many of the functions do nothing, and say so where they say anything, without a name. */
int countOfHarmlessCalls(void);

int countOfHarmlessCalls(void) {
  int count = 0;
  if (!isDaemonRunning()) ++count;
  if (!getCancelActiveJobsOnRestart()) ++count;
  if (installDynamicServiceInstance(NULL, 0) == NULL) ++count;
  restartServices(NULL);
  installDynamicServiceInstances(NULL, 1);
  syncDynamicServiceInstances(NULL, 1, true);
  syncDynamicServiceInstance(NULL, 0, true);
  return count;
}
