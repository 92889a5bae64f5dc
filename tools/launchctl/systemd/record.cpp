#include "tools/launchctl/systemd/record.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/embedded/messages.h"
#include "tools/launchctl/failure.h"

namespace launchctl {

std::string recordText(const JobToLoad& job) {
  ListBuilder list;
  list.set(message::kJob, job.description.list);
  list.set(message::kFile, job.file);
  list.set(message::kProgram, job.program);
  list.set(message::kEnvironment, job.environment);
  return xml(list.list().get());
}

JobToLoad readRecord(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Failure("cannot read " + path);
  std::ostringstream content;
  content << file.rdbuf();
  try {
    const Dictionary list = parseDictionary(content.str());
    JobToLoad job;
    job.description = describeJob(dictionaryOf(list.get(), message::kJob), nullptr);
    job.file = stringOf(list.get(), message::kFile).value_or("");
    job.program = stringOf(list.get(), message::kProgram).value_or(job.description.program);
    job.environment = textsOf(list.get(), message::kEnvironment);
    return job;
  } catch (const Failure& failure) {
    throw Failure(path + ": " + failure.what());
  }
}

std::optional<int> readExit(const std::string& path) {
  std::ifstream file(path);
  int status = 0;
  return file >> status ? std::optional(status) : std::nullopt;
}

int exitStatusOf(const std::string& code, const std::string& status) {
  if (code == "exited") {
    char* end = nullptr;
    const long number = std::strtol(status.c_str(), &end, 10);
    return end == status.c_str() || *end != '\0' ? kExitUnknown : W_EXITCODE(static_cast<int>(number), 0);
  }
  if (code != "killed" && code != "dumped") return kExitUnknown;
  for (int signal = 1; signal < NSIG; ++signal) {
    const char* const name = ::sigabbrev_np(signal);
    if (name != nullptr && status == name) return signal | (code == "dumped" ? WCOREFLAG : 0);
  }
  return kExitUnknown;
}

void writeFile(const std::string& path, const std::string& content) {
  const std::string fresh = path + "." + std::to_string(::getpid()) + ".new";
  const Descriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw systemFailure("cannot write " + path);
  for (std::size_t at = 0; at < content.size();) {
    const ssize_t count = ::write(file.get(), content.data() + at, content.size() - at);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      const Failure failure = systemFailure("cannot write " + path);
      ::unlink(fresh.c_str());
      throw Failure(failure);
    }
    at += static_cast<std::size_t>(count);
  }
  if (::rename(fresh.c_str(), path.c_str()) != 0) throw systemFailure("cannot write " + path);
}

}  // namespace launchctl
