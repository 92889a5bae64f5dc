#include "tools/tovanctl/process.h"

#include <plinth/process_utilities.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

namespace tovanctl {
namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// proc(5): the fields behind the program's name, which stands in parentheses and may hold anything; the state is the
// first of them, the start time the 20th, in clock ticks since the host was started.
struct Stat {
  char state = 'X';
  double started = 0;
};

std::optional<Stat> statOf(const std::string& folder) {
  const std::string line = contentOf(folder + "/stat");
  std::size_t at = line.rfind(')');
  if (at == std::string::npos || at + 2 >= line.size()) return {};
  Stat stat;
  stat.state = line[at + 2];
  for (int field = 0; field < 20 && at != std::string::npos; ++field) at = line.find(' ', at + 1);
  if (at == std::string::npos) return {};
  stat.started = std::strtod(line.c_str() + at, nullptr) / static_cast<double>(::sysconf(_SC_CLK_TCK));
  return stat;
}

std::vector<std::string> words(const std::string& commandLine) {
  std::vector<std::string> found;
  for (std::size_t at = 0; at < commandLine.size();) {
    const std::size_t end = std::min(commandLine.find('\0', at), commandLine.size());
    found.push_back(commandLine.substr(at, end - at));
    at = end + 1;
  }
  return found;
}

double secondsSinceHostStarted() {
  timespec now{};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

Deadline deadlineIn(double seconds) {
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

bool isOver(Deadline deadline) { return std::chrono::steady_clock::now() >= deadline; }

std::optional<Process> processOfId(pid_t pid) {
  if (pid <= 0 || ::kill(pid, 0) != 0) return {};
  const std::string folder = "/proc/" + std::to_string(pid);
  struct stat owner {};
  const std::optional<Stat> facts = statOf(folder);
  if (!facts || facts->state == 'Z' || facts->state == 'X') return {};
  if (::stat(folder.c_str(), &owner) != 0 || owner.st_uid != ::geteuid()) return {};
  Process process;
  process.pid = pid;
  process.arguments = words(contentOf(folder + "/cmdline"));
  process.upTime = std::max(0.0, secondsSinceHostStarted() - facts->started);
  const plinth::CStringRef name = plinth::ProcessUtilities::FindProcessNameForProcess(pid);
  if (!name) return {};
  process.name = name->str();
  return process;
}

bool runsFile(const Process& process, const std::string& fileName) {
  const auto named = [&fileName](const std::string& word) { return word.substr(word.rfind('/') + 1) == fileName; };
  return process.name == fileName || std::any_of(process.arguments.begin(), process.arguments.end(), named);
}

std::string environmentOfProcess(pid_t pid, const std::string& name) {
  for (const std::string& entry : words(contentOf("/proc/" + std::to_string(pid) + "/environ"))) {
    if (entry.rfind(name + "=", 0) == 0) return entry.substr(name.size() + 1);
  }
  return {};
}

ProcessHold::ProcessHold(pid_t pid)
    : pid_(pid), descriptor_(pid <= 0 ? -1 : static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))) {}

ProcessHold::ProcessHold(ProcessHold&& other) noexcept : pid_(other.pid_), descriptor_(other.descriptor_) {
  other.descriptor_ = -1;
}

ProcessHold::~ProcessHold() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

bool ProcessHold::askToEnd() const {
  return ::syscall(SYS_pidfd_send_signal, descriptor_, SIGTERM, nullptr, 0) == 0 || errno == ESRCH;
}

bool ProcessHold::awaitEnd(Deadline deadline) const {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    pollfd ended{descriptor_, POLLIN, 0};
    const int count = ::poll(&ended, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
    if (count > 0) return true;
    if (count == 0) return false;
    if (errno != EINTR) return false;
  }
}

}  // namespace tovanctl
