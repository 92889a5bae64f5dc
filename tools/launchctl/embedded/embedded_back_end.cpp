#include "tools/launchctl/embedded/embedded_back_end.h"

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <chrono>
#include <climits>
#include <cstdlib>

#include "tools/launchctl/embedded/frame.h"
#include "tools/launchctl/embedded/messages.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/process.h"

extern char** environ;

namespace launchctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kAnswerTime{15};
constexpr int kStartTime = 20000;  // milliseconds
constexpr int kMostTries = 20;     // each needs a host that ended just as it was asked

bool readable(int descriptor, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd watched{descriptor, POLLIN, 0};
    const int ready = ::poll(&watched, 1, static_cast<int>(std::min<long long>(left, INT_MAX)));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) throw systemFailure("cannot wait for the host");
  }
}

// False when the host has gone.
bool sendAll(int socket, const std::string& bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const ssize_t count = ::send(socket, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    at += static_cast<std::size_t>(count);
  }
  return true;
}

// The answer, past the announcements that it will take longer; nothing when the host has gone.
std::optional<Dictionary> receive(int socket) {
  FrameReader reader;
  auto deadline = Clock::now() + kAnswerTime;
  for (;;) {
    while (auto list = reader.next()) {
      if (stringOf(list->get(), message::kResult) != message::kWaiting) return list;
      const double seconds = numberOf(list->get(), message::kSeconds).value_or(0);
      deadline = seconds > 0 ? Clock::now() + kAnswerTime +
                                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))
                             : Clock::time_point::max();
    }
    if (!readable(socket, deadline)) throw Failure("launchd-host does not answer");
    char buffer[16384];
    const ssize_t count = ::recv(socket, buffer, sizeof buffer, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    reader.append(buffer, static_cast<std::size_t>(count));
  }
}

// A host of its own session, with nothing of this process's but the environment, up when this returns.
void startHost(const HostFolder& folder) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw systemFailure("cannot make a pipe");
  const Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  const std::string program = programFolder() + "/launchd-host";
  const std::string log = folder.path() + "/" + kLogFile;
  const std::vector<std::string> arguments = {program, "--tell-ready"};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, writer.get(), 3);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW, 0600);
  posix_spawn_file_actions_addclosefrom_np(&actions, 4);
  posix_spawn_file_actions_addchdir_np(&actions, "/");
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  ::sigemptyset(&none);
  sigset_t all;
  ::sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t child = -1;
  const int failed = ::posix_spawn(&child, program.c_str(), &actions, &attributes, cStrings(arguments).data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) throw systemFailure("cannot start " + program, failed);
  writer.reset();
  if (!readable(reader.get(), Clock::now() + std::chrono::milliseconds(kStartTime))) {
    throw Failure("launchd-host does not come up; see " + log);
  }
  char words[512];
  const ssize_t count = ::read(reader.get(), words, sizeof words);
  if (count > 0 && words[0] == '+') return;
  throw Failure(count > 0 ? std::string(words, static_cast<std::size_t>(count))
                          : "launchd-host ended as it started; see " + log);
}

}  // namespace

bool EmbeddedBackEnd::inUse() {
  const char* const given = std::getenv(kFolderVariable);
  const std::string folder =
      given != nullptr && *given != '\0' ? given : "/tmp/tovan-launchd-" + std::to_string(::geteuid());
  if (::access(folder.c_str(), F_OK) != 0) return false;
  EmbeddedBackEnd backEnd;
  return backEnd.folder_.has(kStateFile) && !backEnd.list().empty();
}

// The lock makes one host of many clients that come at once.
Descriptor EmbeddedBackEnd::reachHost(bool needed) {
  Descriptor socket = folder_.connect();
  if (socket || !(needed || folder_.has(kStateFile))) return socket;
  const Descriptor lock = folder_.lock("start.lock");
  socket = folder_.connect();
  if (socket || !(needed || folder_.has(kStateFile))) return socket;
  startHost(folder_);
  return folder_.connect();
}

std::optional<Dictionary> EmbeddedBackEnd::ask(const Dictionary& request, bool needed) {
  const std::string bytes = frame(request);
  for (int attempt = 0; attempt < kMostTries; ++attempt) {
    const Descriptor socket = reachHost(needed);
    if (!socket && !needed && !folder_.has(kStateFile)) return std::nullopt;
    if (!socket || !sendAll(socket.get(), bytes)) continue;
    if (auto answer = receive(socket.get())) {
      if (stringOf(answer->get(), message::kResult) == message::kFailed) {
        throw Failure(stringOf(answer->get(), message::kText).value_or("launchd-host refused"));
      }
      return answer;
    }
  }
  throw Failure("launchd-host ends each time it is asked; see " + folder_.path() + "/" + kLogFile);
}

bool EmbeddedBackEnd::askAbout(const char* verb, const std::string& label) {
  const auto answer = ask(ListBuilder().set(message::kVerb, verb).set(message::kLabel, label).list(), false);
  return answer && stringOf(answer->get(), message::kResult) == message::kDone;
}

bool EmbeddedBackEnd::load(const JobToLoad& job) {
  ListBuilder request;
  request.set(message::kVerb, message::kLoad);
  request.set(message::kJob, job.description.list);
  request.set(message::kFile, job.file);
  request.set(message::kProgram, job.program);
  request.set(message::kEnvironment, job.environment);
  return stringOf(ask(request.list(), true)->get(), message::kResult) == message::kDone;
}

bool EmbeddedBackEnd::unload(const std::string& label) { return askAbout(message::kUnload, label); }
bool EmbeddedBackEnd::start(const std::string& label) { return askAbout(message::kStart, label); }
bool EmbeddedBackEnd::stop(const std::string& label) { return askAbout(message::kStop, label); }

std::vector<JobStatus> EmbeddedBackEnd::askForJobs(const Dictionary& request) {
  std::vector<JobStatus> jobs;
  const auto answer = ask(request, false);
  if (!answer) return jobs;
  for (const Dictionary& job : dictionariesOf(answer->get(), message::kJobs)) jobs.push_back(statusOfList(job.get()));
  return jobs;
}

std::vector<JobStatus> EmbeddedBackEnd::list() {
  return askForJobs(ListBuilder().set(message::kVerb, message::kList).list());
}

std::optional<JobStatus> EmbeddedBackEnd::status(const std::string& label) {
  for (JobStatus& job :
       askForJobs(ListBuilder().set(message::kVerb, message::kList).set(message::kLabel, label).list())) {
    if (job.label == label) return std::move(job);
  }
  return std::nullopt;
}

}  // namespace launchctl
