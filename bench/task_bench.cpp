// Launching a program and waiting for it, beside fork, close_range and execve by hand in the same run: plain and with
// its output, with a small and a huge limit on open files, in a small process and in one with 500 MB of memory in use.
#include <tovan/task.h>
#include <tovan/task2.h>

#include "bench/configuration_input.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr const char* kProgram = "/bin/true";
constexpr const char* kPrinter = "/bin/echo";
constexpr std::size_t kResident = 500UL << 20;
constexpr const char* kLine = "thirty-two characters of output";

// Descriptors and memory of this process, as a benchmark wants them: its arguments are 256 open files or as many as the
// host allows, and whether the memory is in use.
class Surroundings {
 public:
  explicit Surroundings(benchmark::State& state) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    rlimit wanted = before_;
    wanted.rlim_cur = state.range(0) != 0 ? wanted.rlim_max : 256;
    if (::setrlimit(RLIMIT_NOFILE, &wanted) != 0) state.SkipWithError("the limit on open files cannot be set");
    state.counters["open files"] = static_cast<double>(wanted.rlim_cur);
    if (state.range(1) != 0) memory_.assign(kResident, 'x');
    benchmark::DoNotOptimize(memory_.data());
  }
  ~Surroundings() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

 private:
  rlimit before_{};
  std::vector<char> memory_;
};

int waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

void LaunchAndWait(benchmark::State& state) {
  const Surroundings surroundings(state);
  tovan::CTask task(kProgram, nullptr, nullptr, nullptr);
  for (auto _ : state) {
    if (task.launch() != 0 || task.waitForTask() != 0) state.SkipWithError("the program failed");
  }
}

void LaunchAndWaitByHand(benchmark::State& state) {
  const Surroundings surroundings(state);
  const std::string home = "HOME=/root";
  char* const arguments[] = {const_cast<char*>("true"), nullptr};
  char* const environment[] = {const_cast<char*>(home.c_str()), nullptr};
  for (auto _ : state) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::close_range(3, ~0U, 0);
      ::execve(kProgram, arguments, environment);
      ::_exit(errno);
    }
    if (waitFor(child) != 0) state.SkipWithError("the program failed");
  }
}

void LaunchAndReadOutput(benchmark::State& state) {
  const Surroundings surroundings(state);
  const char* const arguments[] = {kLine, nullptr};
  tovan::CTask2 task(kPrinter, arguments);
  for (auto _ : state) {
    if (task.launch() != 0) state.SkipWithError("the program failed");
    if (task.getTaskOutput()->getLength() != static_cast<CFIndex>(std::strlen(kLine) + 1) || task.waitForTask() != 0) {
      state.SkipWithError("the output is not what was expected");
    }
  }
}

// The terminal belongs to the work: it is the larger part of what this costs beyond a plain launch.
void LaunchAndReadOutputByHand(benchmark::State& state) {
  const Surroundings surroundings(state);
  char* const arguments[] = {const_cast<char*>("echo"), const_cast<char*>(kLine), nullptr};
  char* const environment[] = {const_cast<char*>("HOME=/root"), nullptr};
  for (auto _ : state) {
    int ends[2];
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (::pipe2(ends, O_CLOEXEC) != 0 || ::unlockpt(master) != 0) state.SkipWithError("no pipe or terminal");
    const int slave = ::ioctl(master, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
    const pid_t child = ::fork();
    if (child == 0) {
      ::setsid();
      ::dup2(slave, STDIN_FILENO);
      ::ioctl(STDIN_FILENO, TIOCSCTTY, 0);
      ::dup2(ends[1], STDOUT_FILENO);
      ::dup2(ends[1], STDERR_FILENO);
      ::execve(kPrinter, arguments, environment);
      ::_exit(errno);
    }
    ::close(ends[1]);
    std::string output;
    char buffer[499];
    for (ssize_t size; (size = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
      output.append(buffer, static_cast<std::size_t>(size));
    }
    const int status = waitFor(child);
    for (const int descriptor : {ends[0], master, slave}) ::close(descriptor);
    if (status != 0 || output.size() != std::strlen(kLine) + 1) state.SkipWithError("the program failed");
  }
}

void surroundings(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"huge_limit", "resident"})->Unit(benchmark::kMicrosecond)->UseRealTime();
  for (const std::int64_t limit : {0, 1}) {
    for (const std::int64_t resident : {0, 1}) benchmark->Args({limit, resident});
  }
}

BENCHMARK(LaunchAndWaitByHand)->Apply(surroundings);
BENCHMARK(LaunchAndWait)->Apply(surroundings);
BENCHMARK(LaunchAndReadOutputByHand)->Apply(surroundings);
BENCHMARK(LaunchAndReadOutput)->Apply(surroundings);

}  // namespace

int main(int argc, char** argv) {
  std::vector<bench::Comparison> comparisons;
  for (const std::string work : {"LaunchAndWait", "LaunchAndReadOutput"}) {
    for (const std::string where : {"/huge_limit:0/resident:0", "/huge_limit:0/resident:1", "/huge_limit:1/resident:0",
                                    "/huge_limit:1/resident:1"}) {
      comparisons.push_back({work + where, work + where + "/real_time", work + "ByHand" + where + "/real_time"});
    }
  }
  return bench::runComparing(argc, argv, comparisons);
}
