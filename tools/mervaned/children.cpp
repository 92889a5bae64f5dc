#include "tools/mervaned/children.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>

namespace mervaned {
namespace {

// proc(5): "PID (NAME) STATE PARENT ...", where the name may hold anything.
struct Status {
  std::string name;
  pid_t parent = 0;
};

Status statusOf(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t open = line.find('(');
  const std::size_t close = line.rfind(')');
  if (close == std::string::npos || open > close || close + 4 > line.size()) return {};
  Status status;
  status.name = line.substr(open + 1, close - open - 1);
  std::from_chars(line.data() + close + 4, line.data() + line.size(), status.parent);
  return status;
}

std::optional<pid_t> processID(const std::filesystem::path& folder) {
  const std::string name = folder.filename().string();
  pid_t pid = 0;
  const auto [end, failed] = std::from_chars(name.data(), name.data() + name.size(), pid);
  return failed == std::errc() && end == name.data() + name.size() ? std::optional(pid) : std::nullopt;
}

void endIfChild(pid_t pid, const std::vector<std::string>& programs) {
  const int handle = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U));
  if (handle < 0) return;
  const Status status = statusOf(pid);
  if (status.parent == ::getpid() && std::find(programs.begin(), programs.end(), status.name) != programs.end()) {
    ::syscall(SYS_pidfd_send_signal, handle, SIGTERM, nullptr, 0U);
  }
  ::close(handle);
}

}  // namespace

void endChildrenNamed(const std::vector<std::string>& programs) {
  std::error_code failed;
  for (const auto& folder : std::filesystem::directory_iterator("/proc", failed)) {
    const auto pid = processID(folder.path());
    if (pid && statusOf(*pid).parent == ::getpid()) endIfChild(*pid, programs);
  }
}

}  // namespace mervaned
