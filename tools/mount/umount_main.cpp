// umount for Linux: takes what the native umount takes of this library. docs/storage-mount.md describes it.
#include "tools/mount/adapter.h"

int main(int argc, char** argv) {
  return host_mount::runAdapter({"umount", "umount -f FOLDER", "TOVAN_HOST_UMOUNT", host_mount::umountArguments},
                                host_mount::Arguments(argv + (argc > 0 ? 1 : 0), argv + argc));
}
