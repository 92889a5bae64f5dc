/* The service functions as a C program sees them. */
#include <tovan/service_installation.h>

#include <stddef.h>

/* How many of the functions give false for a missing argument; all ten do. */
int countOfRefusals(void);

int countOfRefusals(void) {
  const bool results[] = {installService(NULL),   installServiceWithName(NULL, NULL),
                          removeService(NULL),    removeServiceByPath(NULL),
                          serviceInstalled(NULL), enableService(NULL),
                          disableService(NULL),   resetServiceEntry(NULL),
                          serviceEnabled(NULL),   isServiceRunning(NULL)};
  int count = 0;
  for (size_t i = 0; i < sizeof results / sizeof results[0]; ++i) {
    if (!results[i]) ++count;
  }
  return count;
}
