/* The plain-function interface from C. */
#include <CoreFoundation/CoreFoundation.h>
#include <tovan/constants.h>
#include <tovan/framework_location.h>
#include <tovan/service_installation.h>
#include <tovan/version.h>

#include <stdio.h>

int main(void) {
  printf("%s", TovanCoreVersionString);
  CFURLRef framework = getMervaneFrameworkURL();
  if (framework == NULL) return 1;
  char path[4096];
  if (!CFURLGetFileSystemRepresentation(framework, TRUE, (UInt8*)path, sizeof path)) return 1;
  printf("%s\n", path);
  CFRelease(framework);
  return serviceInstalled(kClusterServiceKind) ? 1 : 0;
}
