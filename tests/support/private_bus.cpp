#include "tests/support/private_bus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/scratch_home.h"

extern char** environ;

namespace test {
namespace {

constexpr const char* kAddressVariable = "DBUS_SESSION_BUS_ADDRESS";
constexpr const char* kFolderVariable = "TOVAN_BUS_FOLDER";

// Scratch homes may be too deep for a socket's address.
std::string shortFolder() {
  char pattern[] = "/tmp/tovan-test-bus-XXXXXX";
  if (::mkdtemp(pattern) == nullptr) std::abort();
  return pattern;
}

// The daemons whose command lines name a folder. (What a socket tells of its listener is the process that began to
// listen there, which is not the one that a daemon goes on as.)
std::vector<pid_t> daemonsIn(const std::string& folder) {
  std::vector<pid_t> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream file(entry.path() / "cmdline");
    std::ostringstream content;
    content << file.rdbuf();  // which does not throw when the process ends meanwhile
    const std::string line = content.str();
    if (line.rfind("dbus-daemon", 0) == 0 && line.find(folder + "/") != std::string::npos)
      found.push_back(std::stoi(name));
  }
  return found;
}

}  // namespace

PrivateBus::PrivateBus() {
  socket_ = shortFolder() + "/bus";
  address_ = "unix:path=" + socket_;
  if (const char* const former = std::getenv(kAddressVariable)) {
    hadAddress_ = true;
    formerAddress_ = former;
  }
  ::setenv(kAddressVariable, address_.c_str(), 1);
  start();
}

PrivateBus::~PrivateBus() {
  kill();
  std::error_code ignored;
  std::filesystem::remove_all(std::filesystem::path(socket_).parent_path(), ignored);
  if (hadAddress_) {
    ::setenv(kAddressVariable, formerAddress_.c_str(), 1);
  } else {
    ::unsetenv(kAddressVariable);
  }
}

// The daemon stays our child (--nofork) and says that it is up by printing its address.
void PrivateBus::start() {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const std::string addressOption = "--address=" + address_;
  const char* const arguments[] = {"dbus-daemon",       "--session",           "--nofork", "--nopidfile", "--nosyslog",
                                   "--print-address=3", addressOption.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 3);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addclosefrom_np(&actions, 4);
  const int failed =
      ::posix_spawnp(&daemon_, arguments[0], &actions, nullptr, const_cast<char* const*>(arguments), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  char line[512];
  ssize_t count = 0;
  if (failed == 0) {
    do {
      count = ::read(ends[0], line, sizeof line);
    } while (count < 0 && errno == EINTR);
  }
  ::close(ends[0]);
  if (failed != 0) daemon_ = 0;
  ASSERT_EQ(failed, 0) << "cannot start dbus-daemon: " << std::strerror(failed);
  ASSERT_GT(count, 0) << "dbus-daemon ended without coming up";
}

void PrivateBus::kill() {
  if (daemon_ == 0) return;
  ::kill(daemon_, SIGKILL);
  ::waitpid(daemon_, nullptr, 0);
  daemon_ = 0;
}

void PrivateBus::restart() {
  kill();
  start();
}

void PrivateBus::stop() {
  ::kill(daemon_, SIGSTOP);
  int status = 0;
  ::waitpid(daemon_, &status, WUNTRACED);
}

void PrivateBus::resume() { ::kill(daemon_, SIGCONT); }

NoSessionBus::NoSessionBus() : folder_(shortFolder()) {
  ::setenv(kAddressVariable, ("unix:path=" + folder_ + "/nowhere").c_str(), 1);
  ::setenv(kFolderVariable, folder_.c_str(), 1);
}

NoSessionBus::~NoSessionBus() {
  for (const pid_t daemon : daemonsIn(folder_)) ::kill(daemon, SIGKILL);
  ::unsetenv(kAddressVariable);
  ::unsetenv(kFolderVariable);
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

std::vector<pid_t> NoSessionBus::daemons() const { return daemonsIn(folder_); }

}  // namespace test
