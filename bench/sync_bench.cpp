// Synchronising a service of launchd with 10 and with 100 instances, beside the same command lines run by hand in the
// same run: under a launchctl that only keeps books, so that the library's part and the starting of the tool are left,
// and under the real one with its own host, whose jobs are processes.
#include <tovan/launchctl_plist.h>
#include <tovan/plist_updater.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_control.h>
#include <tovan/service_installation.h>

#include "bench/configuration_input.h"
#include "bench/session_bus.h"
#include "platform/system/tool_lookup.h"

#include <plinth/shared_cf_ref.h>
#include <plinth/shared_object.h>
#include <plinth/string.h>

#include <CoreFoundation/CoreFoundation.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using plinth::CSTR;
using tovan::CLaunchCtlPList;
using tovan::CServiceCacheEntry;

enum Tool : std::int64_t { kBookkeeper = 0, kEmbedded = 1 };

using bench::require;

int waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs a program with its output in a pipe, as the library does; what it prints.
std::string outputOf(const std::string& program, std::vector<const char*> arguments) {
  int ends[2];
  require(::pipe2(ends, O_CLOEXEC) == 0, "no pipe");
  arguments.insert(arguments.begin(), program.c_str());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int stream : {1, 2}) posix_spawn_file_actions_adddup2(&actions, ends[1], stream);
  pid_t child = 0;
  require(::posix_spawn(&child, program.c_str(), &actions, nullptr, const_cast<char* const*>(arguments.data()),
                        environ) == 0,
          "cannot start launchctl");
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  std::string output;
  char buffer[4096];
  for (ssize_t size; (size = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
    output.append(buffer, static_cast<std::size_t>(size));
  }
  ::close(ends[0]);
  waitFor(child);
  return output;
}

void writeProgram(const std::string& path, const std::string& text) {
  std::ofstream(path) << "#!/bin/sh\n" << text;
  fs::permissions(path, fs::perms{0755});
}

// A home, a bus and a job host of this process's own.
class Surroundings {
 public:
  Surroundings() {
    fs::create_directories(folder_ + "/home/Library/LaunchAgents");
    fs::create_directories(folder_ + "/tools/loaded");
    ::setenv("HOME", (folder_ + "/home").c_str(), 1);
    ::setenv("TOVAN_LAUNCHD", "embedded", 1);
    ::setenv("TOVAN_LAUNCHD_FOLDER", (folder_ + "/launchd").c_str(), 1);
    writeProgram(folder_ + "/service", "exec sleep 100000\n");
    writeBookkeeper();
  }

  std::string program() const { return folder_ + "/service"; }
  void use(std::int64_t tool) const {
    platform::setToolFolderForTesting(tool == kBookkeeper ? folder_ + "/tools" : "");
  }

 private:
  void writeBookkeeper() const {
    const std::string state = folder_ + "/tools/loaded/";
    writeProgram(
        folder_ + "/tools/launchctl",
        "job=${2##*/}; job=${job%.plist}\n"
        "case $1 in\n"
        "list) [ -e '" +
            state +
            "'\"$3\" ] || { echo unknown; exit 1; }\n"
            "  echo '<plist version=\"1.0\"><dict><key>Label</key><string>'\"$3\"'</string></dict></plist>' ;;\n"
            "load) : > '" +
            state +
            "'\"$job\" ;;\n"
            "unload) exec rm '" +
            state +
            "'\"$job\" ;;\n"
            "esac\n");
  }

  bench::ScratchFolder scratch_;
  std::string folder_ = scratch_.path();
  bench::SessionBus bus_{folder_};
};

const Surroundings& surroundings() {
  static const Surroundings made;
  return made;
}

// An installed service of so many instances; disabled, and with it all of its jobs ended, at its end.
class Service {
 public:
  Service(std::int64_t tool, std::int64_t instances)
      : name_(CSTR("servicecontroller:com.brant.bench" + std::to_string(::getpid()))),
        entry_(name_->getStringRef(), nullptr) {
    surroundings().use(tool);
    entry_.setPath(CSTR(surroundings().program())->getStringRef());
    entry_.setLaunchHint(CFSTR("launchd.LaunchAgent.User"));
    entry_.setCaptureKey(CFSTR("bench"));
    entry_.instances = static_cast<std::int32_t>(instances);
    tovan::CServiceCacheFile file;
    file.put(entry_);
    file.flush();
    for (unsigned int instance = 0; instance < static_cast<unsigned int>(instances); ++instance) addJob(instance);
    const void* names[] = {name_->getStringRef()};
    names_ = CFArrayCreate(kCFAllocatorDefault, names, 1, &kCFTypeArrayCallBacks);
  }
  ~Service() { bring(false); }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void enable(bool enabled) const {
    require(enabled ? enableService(name_->getStringRef()) : disableService(name_->getStringRef()), "not installed");
  }
  void sync() const { syncServices(names_.get()); }
  void bring(bool enabled) const {
    enable(enabled);
    sync();
  }
  // What sync() does to a service that was switched on, with the tool's command lines by hand.
  void loadByHand() const {
    const std::string tool = platform::toolPath("/bin/launchctl");
    for (const Job& job : jobs_) {
      const int trigger = ::open(job.trigger.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0644);
      if (trigger >= 0) ::close(trigger);
      if (!isListed(job)) outputOf(tool, {"load", job.path.c_str()});
    }
  }
  bool lookByHand() const {
    bool all = true;
    for (const Job& job : jobs_) all = isListed(job) && all;
    return all;
  }

 private:
  struct Job {
    std::string label;
    std::string path;
    std::string trigger;
  };

  static bool isListed(const Job& job) {
    const std::string tool = platform::toolPath("/bin/launchctl");
    return outputOf(tool, {"list", "-x", job.label.c_str()}).find("<plist") != std::string::npos;
  }
  void addJob(unsigned int instance) {
    const auto path = CLaunchCtlPList::expandedPListFilePathForService(entry_, instance);
    const auto job = plinth::makeShared<CLaunchCtlPList>(path);
    job->setPListData(CLaunchCtlPList::plistDataForService(entry_, instance).get());
    job->flush();
    jobs_.push_back({job->getLabel()->str(), path->str(), job->getTransientTriggerFilePath(true)->str()});
  }

  const plinth::CStringRef name_;
  CServiceCacheEntry entry_;
  plinth::CSharedCFRef<CFArrayRef> names_;
  std::vector<Job> jobs_;
};

void countInstances(benchmark::State& state) {
  state.counters["per instance"] = benchmark::Counter(static_cast<double>(state.iterations() * state.range(1)),
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

template <class Action>
void loading(benchmark::State& state, Action&& load) {
  const Service service(state.range(0), state.range(1));
  for (auto _ : state) {
    state.PauseTiming();
    service.bring(false);
    service.enable(true);
    state.ResumeTiming();
    load(service);
  }
  if (!service.lookByHand()) state.SkipWithError("not every job is loaded");
  countInstances(state);
}
void SyncThatLoads(benchmark::State& state) {
  loading(state, [](const Service& service) { service.sync(); });
}
void SyncThatLoadsByHand(benchmark::State& state) {
  loading(state, [](const Service& service) { service.loadByHand(); });
}

template <class Action>
void looking(benchmark::State& state, Action&& look) {
  const Service service(state.range(0), state.range(1));
  service.bring(true);
  for (auto _ : state) look(service);
  if (!service.lookByHand()) state.SkipWithError("not every job is loaded");
  countInstances(state);
}
// All is as wanted already.
void SyncThatLooks(benchmark::State& state) {
  looking(state, [](const Service& service) { service.sync(); });
}
void SyncThatLooksByHand(benchmark::State& state) {
  looking(state, [](const Service& service) { benchmark::DoNotOptimize(service.lookByHand()); });
}

void cases(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"embedded", "instances"})->Unit(benchmark::kMillisecond)->UseRealTime();
  for (const std::int64_t tool : {kBookkeeper, kEmbedded}) {
    for (const std::int64_t instances : {10, 100}) benchmark->Args({tool, instances});
  }
}

BENCHMARK(SyncThatLoadsByHand)->Apply(cases);
BENCHMARK(SyncThatLoads)->Apply(cases);
BENCHMARK(SyncThatLooksByHand)->Apply(cases);
BENCHMARK(SyncThatLooks)->Apply(cases);

bench::Comparison comparisonOf(const std::string& work, const std::string& where) {
  return {work + where, work + where + "/real_time", work + "ByHand" + where + "/real_time"};
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<bench::Comparison> comparisons;
  for (const std::string work : {"SyncThatLoads", "SyncThatLooks"}) {
    for (const std::string where : {"/embedded:0/instances:10", "/embedded:0/instances:100", "/embedded:1/instances:10",
                                    "/embedded:1/instances:100"}) {
      comparisons.push_back(comparisonOf(work, where));
    }
  }
  return bench::runComparing(argc, argv, comparisons);
}
