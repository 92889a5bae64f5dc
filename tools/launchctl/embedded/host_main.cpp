// launchd-host: keeps the jobs of a user on a host without a systemd user manager. launchctl starts it when it is
// needed; it ends by itself. The same program serves the units of the systemd back end (systemd/unit_commands.h).
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "tools/launchctl/embedded/host.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/systemd/unit_commands.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kReadyDescriptor = 3;

// The last words go to whoever started the host and waits.
int host(bool tellsReady) {
  try {
    launchctl::Host host;
    if (tellsReady) {
      if (::write(kReadyDescriptor, "+", 1) != 1) return kFailed;
      ::close(kReadyDescriptor);
    }
    host.run();
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "launchd-host: %s\n", failure.what());
    if (tellsReady && ::write(kReadyDescriptor, failure.what(), std::strlen(failure.what())) < 0) return kFailed;
    return kFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode.empty()) return host(false);
  if (mode == "--tell-ready" && argc == 2) return host(true);
  if (mode == "--become-job" && argc == 3) return launchctl::becomeJob(argv[2]);
  if (mode == "--record-exit" && argc == 3) return launchctl::recordExit(argv[2]);
  if (mode == "--watch-trigger" && argc == 4) return launchctl::watchTrigger(argv[2], argv[3]);
  std::fputs("usage: launchd-host\n       launchctl(1) starts it when it is needed.\n", stderr);
  return kUsage;
}
