// mount for Linux: takes what the native mount takes of this library. docs/storage-mount.md describes it.
#include <cstdlib>

#include "tools/mount/adapter.h"

namespace {

host_mount::Arguments translate(const host_mount::Arguments& given) {
  const char* const version = ::secure_getenv("TOVAN_NFS_VERSION");
  return host_mount::mountArguments(given, version != nullptr ? version : "");
}

}  // namespace

int main(int argc, char** argv) {
  return host_mount::runAdapter({"mount", "mount [-o OPTIONS] HOST:/PATH FOLDER", "TOVAN_HOST_MOUNT", translate},
                                host_mount::Arguments(argv + (argc > 0 ? 1 : 0), argv + argc));
}
