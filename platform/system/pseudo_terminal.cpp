#include "platform/system/pseudo_terminal.h"

#include <stdlib.h>
#include <sys/ioctl.h>

#include <climits>

namespace platform {
namespace {

constexpr int kFlags = O_RDWR | O_NOCTTY | O_CLOEXEC;

// The first way needs no name, so it works where /dev/pts is another mount's; kernels before 4.13 know the second only.
Descriptor openSlave(const Descriptor& master) noexcept {
  Descriptor slave(::ioctl(master.get(), TIOCGPTPEER, kFlags));
  if (slave || (errno != EINVAL && errno != ENOTTY)) return slave;
  char name[PATH_MAX];
  if (const int error = ::ptsname_r(master.get(), name, sizeof name); error != 0) {
    errno = error;
    return slave;
  }
  return Descriptor::open(name, kFlags);
}

}  // namespace

PseudoTerminal openPseudoTerminal() noexcept {
  PseudoTerminal terminal;
  Descriptor master(::posix_openpt(kFlags));
  if (!master || ::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0) return terminal;
  Descriptor slave = openSlave(master);
  if (!slave) return terminal;
  terminal.master = std::move(master);
  terminal.slave = std::move(slave);
  return terminal;
}

}  // namespace platform
