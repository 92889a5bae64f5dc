#include "tools/launchctl/process.h"

#include <dirent.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/failure.h"

namespace launchctl {
namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  Descriptor reader;
  Descriptor writer;
};

Pipe makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw systemFailure("cannot make a pipe");
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// Reads both ends until they are closed; false when the time is over first.
bool readUntilClosed(Pipe& out, Pipe& err, CommandOutput& output, Clock::time_point deadline) {
  pollfd watched[] = {{out.reader.get(), POLLIN, 0}, {err.reader.get(), POLLIN, 0}};
  while (watched[0].fd >= 0 || watched[1].fd >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    const int ready = ::poll(watched, 2, static_cast<int>(std::min<long long>(left, INT_MAX)));
    if (ready < 0 && errno != EINTR) return false;
    for (int which = 0; ready > 0 && which < 2; ++which) {
      if (watched[which].fd < 0 || watched[which].revents == 0) continue;
      char buffer[4096];
      const ssize_t count = ::read(watched[which].fd, buffer, sizeof buffer);
      if (count > 0) (which == 0 ? output.out : output.err).append(buffer, static_cast<std::size_t>(count));
      if (count == 0 || (count < 0 && errno != EINTR)) watched[which].fd = -1;
    }
  }
  return true;
}

struct ProcessFacts {
  pid_t group = 0;
  pid_t session = 0;
  std::uint64_t startTime = 0;
};

// Nothing when there is no such process or it has ended.
std::optional<ProcessFacts> factsOf(pid_t pid) {
  if (pid <= 0) return std::nullopt;
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(file, line, '\0')) return std::nullopt;
  // The name, in parentheses, may hold anything; the state is the first word behind it, field 3 of proc(5).
  const std::size_t end = line.rfind(')');
  if (end == std::string::npos) return std::nullopt;
  std::istringstream words(line.substr(end + 1));
  std::string word;
  ProcessFacts facts;
  for (int field = 3; words >> word; ++field) {
    if (field == 3 && (word == "Z" || word == "X")) return std::nullopt;
    if (field == 5) facts.group = std::stoi(word);
    if (field == 6) facts.session = std::stoi(word);
    if (field == 22) {
      facts.startTime = std::stoull(word);
      return facts;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> startTimeOfProcess(pid_t pid) {
  const auto facts = factsOf(pid);
  return facts ? std::optional(facts->startTime) : std::nullopt;
}

bool leavesProcesses(pid_t leader, std::uint64_t startTime) {
  const std::unique_ptr<DIR, int (*)(DIR*)> processes(::opendir("/proc"), ::closedir);
  if (!processes) return false;
  while (const dirent* const entry = ::readdir(processes.get())) {
    const auto facts = factsOf(static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10)));
    if (!facts || facts->session != leader || facts->group != leader || facts->startTime < startTime) continue;
    struct stat owner {};
    const bool isOwn =
        ::fstatat(::dirfd(processes.get()), entry->d_name, &owner, 0) == 0 && owner.st_uid == ::geteuid();
    if (isOwn) return true;
  }
  return false;
}

std::string bootIdentifier() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string identifier;
  std::getline(file, identifier);
  return identifier;
}

std::string programFolder() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) throw systemFailure("cannot find the running program's own folder");
  const std::string whole(path, static_cast<std::size_t>(length));
  return whole.substr(0, whole.rfind('/'));
}

std::vector<char*> cStrings(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& one : texts) pointers.push_back(const_cast<char*>(one.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> environmentLines(const std::map<std::string, std::string>& variables) {
  std::vector<std::string> lines;
  lines.reserve(variables.size());
  for (const auto& [name, value] : variables) {
    lines.push_back(name);
    lines.back().append("=").append(value);
  }
  return lines;
}

CommandOutput runCommand(const std::string& program, const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment, double seconds) {
  Pipe out = makePipe();
  Pipe err = makePipe();
  const std::vector<std::string> lines = environmentLines(environment);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out.writer.get(), 1);
  posix_spawn_file_actions_adddup2(&actions, err.writer.get(), 2);
  pid_t child = -1;
  const int failed =
      ::posix_spawn(&child, program.c_str(), &actions, nullptr, cStrings(arguments).data(), cStrings(lines).data());
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) throw systemFailure("cannot start " + program, failed);
  out.writer.reset();
  err.writer.reset();
  CommandOutput output;
  const auto deadline =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  const bool ended = readUntilClosed(out, err, output, deadline);
  if (!ended) ::kill(child, SIGKILL);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!ended) throw Failure(program + " was not done in time and was ended");
  output.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return output;
}

}  // namespace launchctl
