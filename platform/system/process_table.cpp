#include "platform/system/process_table.h"

#include "platform/system/descriptor.h"
#include "platform/system/small_file.h"

#include <dirent.h>

#include <charconv>
#include <climits>
#include <memory>
#include <string_view>

namespace platform {
namespace {

// TASK_COMM_LEN of the kernel, without the NUL.
constexpr std::size_t kShortNameLength = 15;
// Enough for an interpreter, its option and the path of a script.
constexpr std::size_t kArgumentsLimit = std::size_t{3} * PATH_MAX;

std::string_view lastComponent(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// The text behind "Key:" and white space in the text of /proc/PID/status.
std::string_view statusValue(std::string_view status, std::string_view key) {
  const std::size_t at = status.find("\n" + std::string(key) + ":");
  if (at == std::string_view::npos) return {};
  std::string_view value = status.substr(at + key.size() + 2);
  value = value.substr(0, value.find('\n'));
  const std::size_t start = value.find_first_not_of(" \t");
  return start == std::string_view::npos ? std::string_view() : value.substr(start);
}

// One process, held by its directory: when the process goes, reading from there fails, even if its id is given away
// again.
class Process {
 public:
  explicit Process(pid_t id)
      : id_(id), folder_(Descriptor::open(("/proc/" + std::to_string(id)).c_str(), kFolderFlags)) {}

  // The name the kernel keeps; nothing when the process is gone.
  std::optional<std::string> shortName() const {
    auto name = readSmallFile(folder_.get(), "comm", 4096);
    if (name && name->ends_with('\n')) name->pop_back();
    return name;
  }

  // Whether it runs and, with `user`, belongs to that user.
  bool runs(const uid_t* user) const {
    const auto status = readSmallFile(folder_.get(), "status", 4096);
    if (!status) return false;
    const std::string_view state = statusValue(*status, "State");
    if (state.empty() || state.front() == 'Z' || state.front() == 'X') return false;
    // The ids of threads can be looked up in /proc too.
    if (statusValue(*status, "Tgid") != std::to_string(id_)) return false;
    return user == nullptr || effectiveUser(*status) == *user;
  }

  // The whole name whose beginning is the short one.
  std::string fullName(const std::string& shortName) const {
    if (shortName.size() < kShortNameLength) return shortName;
    const std::string arguments = readSmallFile(folder_.get(), "cmdline", kArgumentsLimit).value_or("");
    std::string_view rest = arguments;
    const std::string_view first = takeArgument(rest);
    const std::string program = programPath();
    // The name it was called by, its program, and, for a script, what the interpreter was given.
    const std::string_view second = takeArgument(rest);
    for (const std::string_view path : {first, std::string_view(program), second, takeArgument(rest)}) {
      const std::string_view name = lastComponent(path);
      if (name.starts_with(shortName)) return std::string(name);
    }
    return shortName;
  }

 private:
  static constexpr int kFolderFlags = O_PATH | O_DIRECTORY;

  static uid_t effectiveUser(std::string_view status) {
    const std::string_view line = statusValue(status, "Uid");  // real, effective, saved and file-system user
    const std::size_t tab = line.find('\t');
    uid_t user = static_cast<uid_t>(-1);
    if (tab != std::string_view::npos) std::from_chars(line.data() + tab + 1, line.data() + line.size(), user);
    return user;
  }

  static std::string_view takeArgument(std::string_view& rest) {
    const std::size_t end = rest.find('\0');
    const std::string_view argument = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return argument;
  }

  // Empty when this user may not know.
  std::string programPath() const {
    std::string path(PATH_MAX, '\0');
    const ssize_t length = ::readlinkat(folder_.get(), "exe", path.data(), path.size());
    path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    constexpr std::string_view kDeleted = " (deleted)";
    if (path.ends_with(kDeleted)) path.resize(path.size() - kDeleted.size());
    return path;
  }

  pid_t id_;
  Descriptor folder_;
};

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

// The id that an entry of /proc stands for, or 0.
pid_t processIdOf(const char* entry) {
  const std::string_view text = entry;
  pid_t id = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), id);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() && id > 0 ? id : 0;
}

bool isProcess(pid_t id, const std::string& name, uid_t user) {
  const Process process(id);
  const auto shortName = process.shortName();
  // Most processes are told apart by this alone.
  if (!shortName || !std::string_view(name).starts_with(*shortName)) return false;
  return process.fullName(*shortName) == name && process.runs(&user);
}

}  // namespace

bool findProcess(const std::string& name, uid_t user, pid_t& out) {
  if (name.empty()) return false;
  const std::unique_ptr<DIR, CloseFolder> table(::opendir("/proc"));
  if (!table) return false;
  pid_t found = 0;
  while (const dirent* const entry = ::readdir(table.get())) {
    const pid_t id = processIdOf(entry->d_name);
    if (id == 0 || (found != 0 && id > found)) continue;
    if (isProcess(id, name, user)) found = id;
  }
  if (found == 0) return false;
  out = found;
  return true;
}

std::optional<std::string> processName(pid_t id) {
  if (id <= 0) return std::nullopt;
  const Process process(id);
  const auto shortName = process.shortName();
  if (!shortName || shortName->empty()) return std::nullopt;
  std::string name = process.fullName(*shortName);
  if (!process.runs(nullptr)) return std::nullopt;
  return name;
}

}  // namespace platform
