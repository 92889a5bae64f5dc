// The process log: a flushed record beside a bare write(2) of a ready one and beside spdlog's basic file sink with a
// flush on every record, by one thread and by four that share the log; a message that is filtered out; and the reply to
// a query for a log of 100 MB beside reading the file whole.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tovan/global_logger.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <string>

#include "bench/configuration_input.h"

namespace {

std::atomic<std::size_t> allocations{0};

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc): it is the memory of all that follows
[[gnu::noinline]] void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace {

using tovan::CTovanLogger;
using tovan::CTovanLoggerRef;

// What services write, and the same with something to escape.
constexpr const char* kPlain = "Job 4711 of the batch is done, 3 segments in 12.5 s, it's the last of its group\n";
constexpr const char* kEscaped = "Job <4711> of \"batch\" is done, 3 segments in 12.5 s, it's the last of its group\n";

// A file that goes with the object.
class ScratchFile {
 public:
  ScratchFile() {
    std::string name = (std::filesystem::temp_directory_path() / "tovan-log-bench-XXXXXX").string();
    const int descriptor = ::mkstemp(name.data());
    if (descriptor < 0) std::abort();
    ::close(descriptor);
    path_ = name;
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() { std::filesystem::remove(path_); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class OurLog {
 public:
  explicit OurLog(const std::string& path) : logger_(new CTovanLogger()) {
    logger_->startupLogging(plinth::CSTR(path), true);
  }
  void write(const char* message) const { logger_->log(3) << message; }

 private:
  CTovanLoggerRef logger_;
};

class BareWrite {
 public:
  explicit BareWrite(const std::string& path)
      : descriptor_(::open(path.c_str(), O_WRONLY | O_APPEND | O_TRUNC | O_CLOEXEC)) {}
  BareWrite(const BareWrite&) = delete;
  BareWrite& operator=(const BareWrite&) = delete;
  ~BareWrite() { ::close(descriptor_); }
  // As long as the record that the log makes of either message.
  void write(const char*) const {
    static constexpr char kRecord[] =
        "<log tms=\"816987029.027\" tmt=\"11/22/2026 02:20:29.027\" pid=\"30103\" "
        "msg=\"Job 4711 of the batch is done, 3 segments in 12.5 s, it's the last of its group\"/>\n";
    if (::write(descriptor_, kRecord, sizeof kRecord - 1) < 0) std::abort();
  }

 private:
  int descriptor_;
};

class SpdlogFile {
 public:
  explicit SpdlogFile(const std::string& path)
      : logger_("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true)) {
    // The same attributes, as far as it knows them.
    logger_.set_pattern("<log tms=\"%E.%e\" tmt=\"%m/%d/%Y %H:%M:%S.%e\" pid=\"%P\" msg=\"%v\"/>");
    logger_.flush_on(spdlog::level::trace);
  }
  void write(const char* message) { logger_.info(message); }

 private:
  spdlog::logger logger_;
};

// The threads share one log.
template <class Log>
void Record(benchmark::State& state, const char* message) {
  static std::unique_ptr<ScratchFile> file;
  static std::unique_ptr<Log> log;
  if (state.thread_index() == 0) {
    file = std::make_unique<ScratchFile>();
    log = std::make_unique<Log>(file->path());
  }
  for (auto _ : state) log->write(message);
  if (state.thread_index() == 0) {
    log.reset();
    file.reset();
  }
}

void FilteredOut(benchmark::State& state) {
  const ScratchFile file;
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(plinth::CSTR(file.path()), false);
  const std::size_t before = allocations;
  for (auto _ : state) logger->log(7) << "segment " << 12 << " of " << 300 << tovan::endl;
  if (allocations != before) state.SkipWithError("a message that is filtered out takes memory");
}

void FilteredOutGlobally(benchmark::State& state) {
  const ScratchFile file;
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(plinth::CSTR(file.path()), false);
  tovan::CTovanGlobalLogger::setLogger(logger);
  tovan::CTovanGlobalLogger::log(7);
  const std::size_t before = allocations;
  for (auto _ : state) tovan::CTovanGlobalLogger::log(7) << "segment " << 12 << " of " << 300 << tovan::endl;
  if (allocations != before) state.SkipWithError("a message that is filtered out takes memory");
  tovan::CTovanGlobalLogger::setLogger(nullptr);
}

// From here on every system call but the end of the process kills it.
void forbidSystemCalls() {
  std::array<sock_filter, 4> filter{{
      {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
      {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_exit_group},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_KILL_PROCESS},
  }};
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    std::_Exit(2);
  }
}

// Whether `work` gets by without one.
template <class Work>
bool makesNoSystemCall(Work work) {
  const pid_t child = ::fork();
  if (child == 0) {
    forbidSystemCalls();
    work();
    std::_Exit(0);
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The proof, and the proof that it can fail.
void FilteredOutWithoutSystemCalls(benchmark::State& state) {
  const ScratchFile file;
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(plinth::CSTR(file.path()), false);
  const auto write = [&logger](unsigned int level) { logger->log(level) << "segment " << 12 << tovan::endl; };
  for (auto _ : state) {
    if (!makesNoSystemCall([&] {
          for (int i = 0; i < 1000; ++i) write(7);
        })) {
      state.SkipWithError("a message that is filtered out makes a system call");
    }
  }
  if (makesNoSystemCall([&] { write(3); })) state.SkipWithError("a system call is not noticed");
}

constexpr std::size_t kLargeLog = 100'000'000;

void writeLargeLog(const std::string& path) {
  const OurLog log(path);
  std::ofstream file(path, std::ios::app | std::ios::binary);
  const std::string record = "<log tms=\"816987029.027\" tmt=\"11/22/2026 02:20:29.027\" pid=\"1\" msg=\"x\"/>\n";
  std::string block;
  while (block.size() < 100'000) block += record;
  for (std::size_t size = 0; size < kLargeLog; size += block.size()) file << block;
}

void LogReply(benchmark::State& state) {
  const ScratchFile file;
  writeLargeLog(file.path());
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(plinth::CSTR(file.path()), false);
  const std::size_t size = std::filesystem::file_size(file.path());
  std::size_t capacity = 0;
  for (auto _ : state) {
    const std::string reply = logger->logDataAsString();
    if (reply.size() != size + 8) state.SkipWithError("the reply is not the log and its end tag");
    capacity = reply.capacity();
  }
  state.counters["bytes_beyond_the_file"] = static_cast<double>(capacity - size);
}

void ReadWhole(benchmark::State& state) {
  const ScratchFile file;
  writeLargeLog(file.path());
  for (auto _ : state) {
    const int descriptor = ::open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
    std::string text(std::filesystem::file_size(file.path()), '\0');
    if (::read(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) state.SkipWithError("read");
    ::close(descriptor);
    benchmark::DoNotOptimize(text.data());
  }
}

BENCHMARK(FilteredOut);
BENCHMARK(FilteredOutGlobally);
BENCHMARK(FilteredOutWithoutSystemCalls)->Iterations(10);
BENCHMARK(LogReply)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadWhole)->Unit(benchmark::kMillisecond);

constexpr std::array<const char*, 2> kMessageNames = {"plain", "escaped"};
constexpr std::array<const char*, 2> kMessages = {kPlain, kEscaped};

std::string recordName(const std::string& log, const std::string& message) { return "Record/" + log + "/" + message; }

template <class Log>
void registerRecords(const std::string& log) {
  for (std::size_t i = 0; i < kMessages.size(); ++i) {
    const std::string name = recordName(log, kMessageNames[i]);
    benchmark::RegisterBenchmark((name + "/1").c_str(), Record<Log>, kMessages[i]);
    benchmark::RegisterBenchmark((name + "/4").c_str(), Record<Log>, kMessages[i])->Threads(4)->UseRealTime();
  }
}

// At most 1.6 times the bare write, at least 1.2 times faster than spdlog.
std::vector<bench::Comparison> comparisons() {
  std::vector<bench::Comparison> pairs;
  for (const std::string message : kMessageNames) {
    for (const std::string threads : {"1", "4"}) {
      const auto name = [&](const std::string& log) {
        return recordName(log, message) + "/" + threads + (threads == "4" ? "/real_time/threads:4" : "");
      };
      const std::string work = message + " record, " + threads + " at once, ";
      pairs.push_back({work + "write (>= 0.62x)", name("ours"), name("write")});
      pairs.push_back({work + "spdlog (>= 1.2x)", name("ours"), name("spdlog")});
    }
  }
  pairs.push_back({"reply of 100 MB, reading it whole", "LogReply", "ReadWhole"});
  return pairs;
}

}  // namespace

int main(int argc, char** argv) {
  registerRecords<OurLog>("ours");
  registerRecords<BareWrite>("write");
  registerRecords<SpdlogFile>("spdlog");
  return bench::runComparing(argc, argv, comparisons());
}
