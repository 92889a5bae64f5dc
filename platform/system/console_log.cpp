#include "platform/system/console_log.h"

#include "platform/system/descriptor.h"
#include "platform/system/process_id.h"
#include "platform/system/write_signals.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string>
#include <string_view>

namespace platform {
namespace {

constexpr std::int64_t kPatienceInMilliseconds = 200;

std::int64_t monotonicMilliseconds() noexcept {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Where the line goes. The descriptor of standard error is shared with other processes, so it is not made non-blocking:
// a pipe or terminal is opened a second time instead.
class Target {
 public:
  Target() noexcept {
    struct stat status;
    if (::fstat(STDERR_FILENO, &status) != 0) return;
    isSocket_ = S_ISSOCK(status.st_mode);
    number_ = STDERR_FILENO;
    if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) return;
    atOnce_ = PIPE_BUF;
    own_ = Descriptor::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY);
    if (own_) {
      number_ = own_.get();
      atOnce_ = SIZE_MAX;
    }
    // A pipe that nobody reads.
    if (!own_ && errno == ENXIO) number_ = -1;
  }
  bool isOpen() const noexcept { return number_ >= 0; }

  // Writes what it takes now. The caller has waited for it, so that not even a blocking pipe, which has room for
  // PIPE_BUF bytes then, stops here.
  ssize_t write(std::string_view bytes) const noexcept {
    bytes = bytes.substr(0, atOnce_);
    if (isSocket_) return ::send(number_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return ::write(number_, bytes.data(), bytes.size());
  }
  // Whether it may take more before the deadline.
  bool waitUntil(std::int64_t deadline) const noexcept {
    const std::int64_t left = deadline - monotonicMilliseconds();
    if (left <= 0) return false;
    pollfd entry{number_, POLLOUT, 0};
    const int count = ::poll(&entry, 1, static_cast<int>(left));
    return count > 0 || (count < 0 && errno == EINTR);
  }

 private:
  Descriptor own_;
  int number_ = -1;
  std::size_t atOnce_ = SIZE_MAX;
  bool isSocket_ = false;
};

void writeLine(std::string_view line) noexcept {
  const WriteSignalGuard guard;
  const Target target;
  if (!target.isOpen()) return;
  const std::int64_t deadline = monotonicMilliseconds() + kPatienceInMilliseconds;
  while (!line.empty() && target.waitUntil(deadline)) {
    const ssize_t count = target.write(line);
    if (count > 0) {
      line.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
      return;
    }
  }
}

std::string lineOf(std::string_view text) {
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  ::localtime_r(&now.tv_sec, &local);
  char time[32] = "";
  std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &local);
  char head[32];
  std::snprintf(head, sizeof head, ".%03ld ", now.tv_nsec / 1000000);
  while (text.ends_with('\n')) text.remove_suffix(1);
  std::string line(time);
  line += head;
  line += program_invocation_short_name;
  line += "[" + std::to_string(processId()) + "] ";
  line += text;
  line += '\n';
  return line;
}

}  // namespace

void consoleLog(const char* text) noexcept {
  const int saved = errno;
  try {
    writeLine(lineOf(text != nullptr ? text : ""));
  } catch (const std::exception&) {
    // Without memory for the line it is lost, as announced.
  }
  errno = saved;
}

}  // namespace platform
