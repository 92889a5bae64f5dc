#include "bench/session_bus.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

extern char** environ;

namespace bench {

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, what);
  std::abort();
}

void pinToFirstCore() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(0, &one);
  ::sched_setaffinity(0, sizeof one, &one);
}

SessionBus::SessionBus(const std::string& folder) : socket_(folder + "/bus") {
  const std::string address = "unix:path=" + socket_;
  ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  int ends[2];
  require(::pipe2(ends, O_CLOEXEC) == 0, "no pipe");
  const std::string option = "--address=" + address;
  const char* const arguments[] = {"dbus-daemon", "--session",         "--nofork",     "--nopidfile",
                                   "--nosyslog",  "--print-address=3", option.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 3);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  require(::posix_spawnp(&daemon_, arguments[0], &actions, nullptr, const_cast<char* const*>(arguments), environ) == 0,
          "cannot start dbus-daemon");
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  char byte;
  require(::read(ends[0], &byte, 1) == 1, "dbus-daemon did not come up");
  ::close(ends[0]);
}

SessionBus::~SessionBus() {
  ::kill(daemon_, SIGKILL);
  ::waitpid(daemon_, nullptr, 0);
  ::unlink(socket_.c_str());
}

ScratchFolder::ScratchFolder() {
  char pattern[] = "/tmp/tovan-bench-XXXXXX";
  require(::mkdtemp(pattern) != nullptr, "no scratch folder");
  path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace bench
