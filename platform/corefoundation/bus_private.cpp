#include "platform/corefoundation/bus_private.h"

#include "platform/corefoundation/bus_address.h"
#include "platform/corefoundation/bus_descriptor.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

extern char** environ;

namespace cf {
namespace {

constexpr MonotonicTime kMillisecond = 1000000;
// The daemon takes no longer ones, although a socket's address has room for 107 bytes.
constexpr std::size_t kLongestSocketPath = 99;

// What a bus of ours allows. A subscriber that stands still costs at most what is queued for it (the outgoing bytes);
// what comes beyond that does not reach it. What is queued counts as incoming for whoever posted it, and a poster with
// too much of that is not read from any more: the limit on it lies far above, or one subscriber that stands still would
// silence everybody.
constexpr char kConfiguration[] = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=/nonexistent</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">33554432</limit>
  <limit name="max_message_size">16777216</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_incomplete_connections">10000</limit>
  <limit name="max_connections_per_user">100000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
</busconfig>
)";

std::string withReason(const std::string& what, int error) { return what + ": " + std::strerror(error); }

void sleepBriefly() {
  const timespec pause{0, 2 * kMillisecond};
  ::nanosleep(&pause, nullptr);
}

// Makes the folder when it is not there. It must be a real one, ours, and closed to everybody else.
bool prepareFolder(const std::string& folder, std::string& failure) {
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    failure = withReason("cannot make " + folder, errno);
    return false;
  }
  struct stat status;
  if (::lstat(folder.c_str(), &status) != 0) {
    failure = withReason("cannot look at " + folder, errno);
    return false;
  }
  if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid() || (status.st_mode & 077) != 0) {
    failure = folder + " is not a folder of this user's that is closed to all others";
    return false;
  }
  return true;
}

enum class Answer { yes, no, unknown };

// Whether somebody listens at the socket. A full queue of callers is an answer too.
Answer answers(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const BusDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) return Answer::unknown;
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return Answer::yes;
  if (errno == EAGAIN) return Answer::yes;
  return errno == ENOENT || errno == ECONNREFUSED ? Answer::no : Answer::unknown;
}

// The lock on the folder's starting place, given up with the object. It is unlocked and not only closed, so that a
// child that another thread forks meanwhile does not keep it.
class StartLock {
 public:
  StartLock(const std::string& path, MonotonicTime deadline) : file_(openLock(path)) {
    while (file_ && ::flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
      if ((errno != EWOULDBLOCK && errno != EINTR) || monotonicNow() >= deadline) {
        file_ = BusDescriptor();
        return;
      }
      sleepBriefly();
    }
  }
  StartLock(const StartLock&) = delete;
  StartLock& operator=(const StartLock&) = delete;
  ~StartLock() {
    if (file_) ::flock(file_.get(), LOCK_UN);
  }
  bool isHeld() const { return static_cast<bool>(file_); }

 private:
  static int openLock(const std::string& path) {
    return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  }
  BusDescriptor file_;
};

bool writeConfiguration(const std::string& path) {
  const std::string_view text(kConfiguration);
  const BusDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  return file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// A new session, the default for every signal, none blocked, and no descriptor but the three standard ones.
class DaemonSettings {
 public:
  DaemonSettings() {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDWR, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, 0, 1);
    ::posix_spawn_file_actions_adddup2(&actions_, 0, 2);
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
    ::posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    sigfillset(&signals);
    sigdelset(&signals, SIGKILL);
    sigdelset(&signals, SIGSTOP);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  DaemonSettings(const DaemonSettings&) = delete;
  DaemonSettings& operator=(const DaemonSettings&) = delete;
  ~DaemonSettings() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

// The program listens, then goes into the background; its first process ends when that is done, and is killed when that
// takes too long. A host program that reaps all children may be faster than this wait, which is why the socket is what
// counts afterwards.
int runDaemon(const std::string& folder, const std::string& socket, MonotonicTime deadline) {
  const std::string configuration = "--config-file=" + folder + "/bus.conf";
  const std::string address = "--address=" + unixBusAddress(socket);
  const std::array<const char*, 7> arguments = {"dbus-daemon", configuration.c_str(), address.c_str(), "--fork",
                                                "--nopidfile", "--nosyslog",          nullptr};
  const DaemonSettings settings;
  pid_t child = -1;
  const int failed = ::posix_spawnp(&child, arguments[0], settings.actions(), settings.attributes(),
                                    const_cast<char* const*>(arguments.data()), environ);
  if (failed != 0) return failed;
  pid_t ended;
  while ((ended = ::waitpid(child, nullptr, WNOHANG)) == 0 || (ended < 0 && errno == EINTR)) {
    if (monotonicNow() >= deadline) ::kill(child, SIGKILL);
    sleepBriefly();
  }
  return 0;
}

}  // namespace

std::optional<std::string> startPrivateBus(const std::string& folder, MonotonicTime deadline, std::string& failure) {
  const std::string socket = folder + "/bus";
  if (socket.size() > kLongestSocketPath) {
    failure = socket + " is too long for a socket's path";
    return {};
  }
  if (!prepareFolder(folder, failure)) return {};
  if (answers(socket) == Answer::yes) return socket;
  const StartLock lock(folder + "/lock", deadline);
  if (!lock.isHeld()) {
    failure = "cannot lock " + folder + "/lock";
    return {};
  }
  Answer answer = answers(socket);
  if (answer == Answer::no) {
    if (!writeConfiguration(folder + "/bus.conf")) {
      failure = withReason("cannot write " + folder + "/bus.conf", errno);
      return {};
    }
    if (const int error = runDaemon(folder, socket, deadline)) {
      failure = withReason("cannot run dbus-daemon", error);
      return {};
    }
    while ((answer = answers(socket)) != Answer::yes && monotonicNow() < deadline) sleepBriefly();
  }
  if (answer == Answer::yes) return socket;
  failure = "the bus at " + socket + " does not answer";
  return {};
}

}  // namespace cf
