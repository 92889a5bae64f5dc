#include "tools/tovanctl/interrupt.h"

#include <poll.h>
#include <signal.h>

namespace tovanctl {
namespace {

volatile sig_atomic_t interrupted = 0;

void remember(int) { interrupted = 1; }

}  // namespace

void catchInterrupts() {
  struct sigaction action {};
  action.sa_handler = remember;  // without SA_RESTART: what waits returns
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
}

bool wasInterrupted() noexcept { return interrupted != 0; }

void forgetInterrupts() noexcept { interrupted = 0; }

void waitUnlessInterrupted(double seconds) {
  if (interrupted == 0) ::poll(nullptr, 0, static_cast<int>(seconds * 1000));
}

}  // namespace tovanctl
