// A section flush (lock, read, parse, merge, serialise, write, truncate) beside the bare system calls of one, and
// beside libplist doing the same work; by one process alone and by four that contend for the file.
#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <tovan/tovan_config_file.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/configuration_input.h"

namespace {

constexpr int kProcesses = 4;

// A configuration file in a folder that goes with the object.
class ConfigurationFile {
 public:
  explicit ConfigurationFile(int services) {
    std::string pattern = (std::filesystem::temp_directory_path() / "tovan-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    folder_ = pattern;
    std::ofstream(path()) << bench::configurationText(services);
    // From here on the file holds the section that is flushed, so that its size stays the same.
    const plinth::CSharedCFRef<CFStringRef> name = cfPath();
    tovan::CTovanConfigFile(name.get()).flush();
  }
  ConfigurationFile(const ConfigurationFile&) = delete;
  ConfigurationFile& operator=(const ConfigurationFile&) = delete;
  ~ConfigurationFile() { std::filesystem::remove_all(folder_); }

  std::string path() const { return folder_ + "/config.plist"; }
  plinth::CSharedCFRef<CFStringRef> cfPath() const {
    return CFStringCreateWithCString(kCFAllocatorDefault, path().c_str(), kCFStringEncodingUTF8);
  }

 private:
  std::string folder_;
};

class OurFlush {
 public:
  explicit OurFlush(const ConfigurationFile& file) : file_(file.cfPath().get()) {}
  void operator()() { file_.flush(); }

 private:
  tovan::CTovanConfigFile file_;
};

[[noreturn]] void fail(const char* call) {
  std::perror(call);
  std::_Exit(1);
}

// open, flock, fstat, read, (change), write, ftruncate, close.
template <class Change>
void rewriteLocked(const std::string& path, std::vector<char>& buffer, Change change) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (descriptor < 0 || ::flock(descriptor, LOCK_EX) != 0) fail("open and flock");
  struct stat status;
  if (::fstat(descriptor, &status) != 0) fail("fstat");
  buffer.resize(static_cast<std::size_t>(status.st_size));
  if (::pread(descriptor, buffer.data(), buffer.size(), 0) != status.st_size) fail("read");
  const std::size_t size = change(descriptor);
  if (::ftruncate(descriptor, static_cast<off_t>(size)) != 0) fail("ftruncate");
  ::close(descriptor);
}

class BareFlush {
 public:
  explicit BareFlush(const ConfigurationFile& file) : path_(file.path()) {}
  void operator()() {
    rewriteLocked(path_, buffer_, [this](int descriptor) {
      if (::pwrite(descriptor, buffer_.data(), buffer_.size(), 0) < 0) fail("write");
      return buffer_.size();
    });
  }

 private:
  std::string path_;
  std::vector<char> buffer_;
};

class LibplistFlush {
 public:
  explicit LibplistFlush(const ConfigurationFile& file) : path_(file.path()) {}
  void operator()() {
    rewriteLocked(path_, buffer_, [this](int descriptor) {
      plist_t list = nullptr;
      plist_from_xml(buffer_.data(), static_cast<std::uint32_t>(buffer_.size()), &list);
      plist_dict_set_item(list, "mervaneconfig", section());
      char* text = nullptr;
      std::uint32_t size = 0;
      plist_to_xml(list, &text, &size);
      if (::pwrite(descriptor, text, size, 0) < 0) fail("write");
      plist_to_xml_free(text);
      plist_free(list);
      return std::size_t{size};
    });
  }

 private:
  // What CTovanConfigFile writes of settings that nobody changed.
  static plist_t section() {
    const plist_t section = plist_new_dict();
    for (const char* const key : {"DaemonEnabled", "SharingEnabled", "LogToFile", "RequirePassword"}) {
      plist_dict_set_item(section, key, plist_new_bool(0));
    }
    plist_dict_set_item(section, "SharingType", plist_new_uint(0));
    for (const char* const key : {"ServerName", "DNSDomain"}) plist_dict_set_item(section, key, plist_new_string(""));
    return section;
  }

  std::string path_;
  std::vector<char> buffer_;
};

template <class Flush>
void Alone(benchmark::State& state) {
  const ConfigurationFile file(static_cast<int>(state.range(0)));
  Flush flush(file);
  for (auto _ : state) flush();
}

// The time of one flush, as the four processes together get through theirs.
template <class Flush>
void Contending(benchmark::State& state) {
  const ConfigurationFile file(static_cast<int>(state.range(0)));
  const int flushes = state.range(0) == bench::kSmallServices ? 100 : 4;
  for (auto _ : state) {
    int start[2], done[2];
    if (::pipe(start) != 0 || ::pipe(done) != 0) fail("pipe");
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      children.push_back(::fork());
      if (children.back() != 0) continue;
      ::close(start[1]);
      Flush flush(file);
      char byte = 0;
      if (::write(done[1], &byte, 1) != 1) fail("write");  // ready
      while (::read(start[0], &byte, 1) > 0) continue;     // until the parent closes its end
      for (int n = 0; n < flushes; ++n) flush();
      if (::write(done[1], &byte, 1) != 1) fail("write");  // done
      std::_Exit(0);
    }
    const auto awaitAll = [&done] {
      char byte;
      for (int i = 0; i < kProcesses; ++i) {
        if (::read(done[0], &byte, 1) != 1) fail("read");
      }
    };
    awaitAll();
    const auto begin = std::chrono::steady_clock::now();
    ::close(start[1]);
    awaitAll();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    state.SetIterationTime(elapsed.count() / (kProcesses * flushes));
    for (const pid_t child : children) ::waitpid(child, nullptr, 0);
    for (const int descriptor : {start[0], done[0], done[1]}) ::close(descriptor);
  }
}

#define FLUSH_BENCHMARKS(Flush)         \
  BENCHMARK_TEMPLATE(Alone, Flush)      \
      ->Arg(bench::kSmallServices)      \
      ->Arg(bench::kLargeServices)      \
      ->UseRealTime()                   \
      ->Unit(benchmark::kMicrosecond);  \
  BENCHMARK_TEMPLATE(Contending, Flush) \
      ->Arg(bench::kSmallServices)      \
      ->Arg(bench::kLargeServices)      \
      ->UseManualTime()                 \
      ->Iterations(20)                  \
      ->Unit(benchmark::kMicrosecond)

FLUSH_BENCHMARKS(OurFlush);
FLUSH_BENCHMARKS(BareFlush);
FLUSH_BENCHMARKS(LibplistFlush);

// The pairs to compare, each with the ratio to aim for: at most 20 (20 KB) or 40 (1 MB) times the bare calls, and at
// least 3.5 times faster than libplist.
std::vector<bench::Comparison> comparisons() {
  struct Pair {
    const char* label;
    const char* services;
    const char* peer;
  };
  std::vector<bench::Comparison> pairs;
  for (const Pair& pair :
       {Pair{"20 KB, bare calls (>= 0.05x)", "8", "BareFlush"}, Pair{"20 KB, libplist (>= 3.5x)", "8", "LibplistFlush"},
        Pair{"1 MB, bare calls (>= 0.025x)", "380", "BareFlush"},
        Pair{"1 MB, libplist (>= 3.5x)", "380", "LibplistFlush"}}) {
    const std::string alone = std::string("/") + pair.services + "/real_time";
    const std::string contending = std::string("/") + pair.services + "/iterations:20/manual_time";
    const auto name = [](const char* kind, const char* flush, const std::string& arguments) {
      return std::string(kind) + "<" + flush + ">" + arguments;
    };
    pairs.push_back({std::string("flush, alone, ") + pair.label, name("Alone", "OurFlush", alone),
                     name("Alone", pair.peer, alone)});
    pairs.push_back({std::string("flush, 4 at once, ") + pair.label, name("Contending", "OurFlush", contending),
                     name("Contending", pair.peer, contending)});
  }
  return pairs;
}

}  // namespace

int main(int argc, char** argv) { return bench::runComparing(argc, argv, comparisons()); }
