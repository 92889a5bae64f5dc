// Loading the library, beside loading an empty library with the same dependencies. Each measurement is a fresh process,
// and only its dlopen is timed; the program itself links neither.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace {

// Seconds that dlopen of the path takes in a fresh process; negative when it fails.
double secondsToLoad(const char* path) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return -1;
  const pid_t child = ::fork();
  if (child == 0) {
    const auto begin = std::chrono::steady_clock::now();
    void* const library = ::dlopen(path, RTLD_NOW);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    const double seconds = library == nullptr ? -1 : taken.count();
    const bool sent = ::write(ends[1], &seconds, sizeof seconds) == static_cast<ssize_t>(sizeof seconds);
    ::_exit(sent ? 0 : 1);
  }
  ::close(ends[1]);
  double seconds = -1;
  if (::read(ends[0], &seconds, sizeof seconds) != static_cast<ssize_t>(sizeof seconds)) seconds = -1;
  ::close(ends[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  return seconds;
}

void load(benchmark::State& state, const char* path) {
  for ([[maybe_unused]] const auto iteration : state) {
    const double seconds = secondsToLoad(path);
    if (seconds < 0) {
      state.SkipWithError((std::string("cannot load ") + path).c_str());
      return;
    }
    state.SetIterationTime(seconds);
  }
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

}  // namespace

BENCHMARK_CAPTURE(load, ours, TOVAN_CORE_PATH)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(load, empty_with_the_same_dependencies, TOVAN_EMPTY_PATH)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  // The two taken in turn, so that whatever else the machine does falls on both.
  std::vector<double> ours;
  std::vector<double> empty;
  for (int round = 0; round < 200; ++round) {
    ours.push_back(secondsToLoad(TOVAN_CORE_PATH));
    empty.push_back(secondsToLoad(TOVAN_EMPTY_PATH));
  }
  std::printf("loading the library takes %.2f times an empty one with the same dependencies (target: at most 2)\n",
              median(ours) / median(empty));
}
