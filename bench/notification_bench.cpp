// Distributed notifications beside plain sd-bus with the same traffic in the same run, all processes on one core.
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFRunLoop.h>
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/session_bus.h"

namespace {

constexpr const char* kPath = "/com/brant/mervane/DistributedNotifications1";
constexpr const char* kInterface = "com.brant.mervane.DistributedNotifications1";

using bench::require;

// A bus of our own, and every process of this run on one core.
class Bus {
 public:
  Bus() { bench::pinToFirstCore(); }

 private:
  bench::ScratchFolder folder_;
  bench::SessionBus daemon_{folder_.path()};
};

// A process that runs the body, which calls `ready` when others may begin.
class Peer {
 public:
  explicit Peer(const std::function<void(const std::function<void()>& ready)>& body) {
    int ends[2];
    require(::pipe(ends) == 0, "no pipe");
    child_ = ::fork();
    if (child_ == 0) {
      body([&] { require(::write(ends[1], "x", 1) == 1, "cannot say ready"); });
      ::_exit(0);
    }
    char byte;
    require(::read(ends[0], &byte, 1) == 1, "a peer did not come up");
    ::close(ends[0]);
    ::close(ends[1]);
  }
  ~Peer() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

 private:
  pid_t child_;
};

// ---- Plain sd-bus

struct Raw {
  Raw(const char* name, sd_bus_message_handler_t handler, void* data) {
    require(sd_bus_new(&bus) >= 0, "sd_bus_new");
    require(sd_bus_set_address(bus, std::getenv("DBUS_SESSION_BUS_ADDRESS")) >= 0, "sd_bus_set_address");
    require(sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_start(bus) >= 0, "sd_bus_start");
    if (name == nullptr) return;
    const std::string rule = std::string("type='signal',path='") + kPath + "',interface='" + kInterface +
                             "',member='Posted',arg0='" + name + "'";
    require(sd_bus_add_match(bus, nullptr, rule.c_str(), handler, data) >= 0, "sd_bus_add_match");
  }
  ~Raw() { sd_bus_flush_close_unref(bus); }
  Raw(const Raw&) = delete;
  Raw& operator=(const Raw&) = delete;
  void turn() {
    const int result = sd_bus_process(bus, nullptr);
    require(result >= 0, "sd_bus_process");
    if (result == 0) require(sd_bus_wait(bus, UINT64_MAX) >= 0, "sd_bus_wait");
  }
  sd_bus* bus = nullptr;
};

void rawPost(sd_bus* bus, const char* name, int number) {
  require(sd_bus_emit_signal(bus, kPath, kInterface, "Posted", "ssua{sv}", name, "bench", 3U, 3, "service", "s",
                             "com.brant.klarn.transcoder", "number", "i", number, "enabled", "b", 1) >= 0,
          "sd_bus_emit_signal");
  require(sd_bus_flush(bus) >= 0, "sd_bus_flush");
}

// Reads all that was posted, as any subscriber would.
int rawRead(sd_bus_message* message) {
  const char *name, *object, *key1, *text, *key2, *key3;
  std::uint32_t flags;
  int number = 0, enabled;
  require(sd_bus_message_read(message, "ssua{sv}", &name, &object, &flags, 3, &key1, "s", &text, &key2, "i", &number,
                              &key3, "b", &enabled) >= 0,
          "sd_bus_message_read");
  return number;
}

struct Counter {
  std::int64_t count = 0;
  sd_bus* answerOn = nullptr;  // where to answer, if at all
};

int rawReceived(sd_bus_message* message, void* data, sd_bus_error*) {
  auto* const counter = static_cast<Counter*>(data);
  rawRead(message);
  ++counter->count;
  if (counter->answerOn != nullptr) rawPost(counter->answerOn, "Pong2", 1);
  return 0;
}

// ---- The centre

void centrePost(CFStringRef name, int number) {
  const CFNumberRef boxed = CFNumberCreate(nullptr, kCFNumberIntType, &number);
  const void* keys[] = {CFSTR("service"), CFSTR("number"), CFSTR("enabled")};
  const void* values[] = {CFSTR("com.brant.klarn.transcoder"), boxed, kCFBooleanTrue};
  const CFDictionaryRef info =
      CFDictionaryCreate(nullptr, keys, values, 3, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterGetDistributedCenter(), name, CFSTR("bench"),
                                                  info, kCFNotificationDeliverImmediately);
  CFRelease(info);
  CFRelease(boxed);
}

void observe(CFStringRef name, std::int64_t* count, CFNotificationCallback callback) {
  CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), count, callback, name, nullptr,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
}

void received(CFNotificationCenterRef, void* count, CFStringRef, const void*, CFDictionaryRef info) {
  int number = 0;
  CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(info, CFSTR("number"))), kCFNumberIntType, &number);
  ++*static_cast<std::int64_t*>(count);
}

void answered(CFNotificationCenterRef center, void* count, CFStringRef name, const void* object, CFDictionaryRef info) {
  received(center, count, name, object, info);
  centrePost(CFSTR("Pong2"), 1);
}

void centreTurn() { CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, 1); }

// ---- There and back

void PingPongSdBus(benchmark::State& state) {
  const Bus bus;
  const Peer peer([](const auto& ready) {
    Counter counter;
    Raw raw("Ping2", rawReceived, &counter);
    counter.answerOn = raw.bus;
    ready();
    for (;;) raw.turn();
  });
  Counter counter;
  Raw raw("Pong2", rawReceived, &counter);
  for (auto _ : state) {
    const std::int64_t before = counter.count;
    rawPost(raw.bus, "Ping2", 7);
    while (counter.count == before) raw.turn();
  }
}

void PingPong(benchmark::State& state) {
  const Bus bus;
  const Peer peer([](const auto& ready) {
    std::int64_t count = 0;
    observe(CFSTR("Ping2"), &count, answered);
    ready();
    for (;;) centreTurn();
  });
  std::int64_t count = 0;
  observe(CFSTR("Pong2"), &count, received);
  for (auto _ : state) {
    const std::int64_t before = count;
    centrePost(CFSTR("Ping2"), 7);
    while (count == before) centreTurn();
  }
  CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), &count);
}

// ---- One poster, several subscribers. An iteration is a batch, over when every subscriber has said that it has it.

constexpr int kBatch = 1000;

void ThroughputSdBus(benchmark::State& state) {
  const Bus bus;
  std::vector<std::unique_ptr<Peer>> peers;
  for (int i = 0; i < state.range(0); ++i) {
    peers.push_back(std::make_unique<Peer>([](const auto& ready) {
      Counter counter;
      Raw raw("Batch2", rawReceived, &counter);
      ready();
      for (std::int64_t end = kBatch;; end += kBatch) {
        while (counter.count < end) raw.turn();
        rawPost(raw.bus, "Done2", 1);
      }
    }));
  }
  Counter done;
  Raw raw("Done2", rawReceived, &done);
  for (auto _ : state) {
    const std::int64_t end = done.count + state.range(0);
    for (int i = 0; i < kBatch; ++i) rawPost(raw.bus, "Batch2", i);
    while (done.count < end) raw.turn();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

void Throughput(benchmark::State& state) {
  const Bus bus;
  std::vector<std::unique_ptr<Peer>> peers;
  for (int i = 0; i < state.range(0); ++i) {
    peers.push_back(std::make_unique<Peer>([](const auto& ready) {
      std::int64_t count = 0;
      observe(CFSTR("Batch2"), &count, received);
      ready();
      for (std::int64_t end = kBatch;; end += kBatch) {
        while (count < end) centreTurn();
        centrePost(CFSTR("Done2"), 1);
      }
    }));
  }
  std::int64_t done = 0;
  observe(CFSTR("Done2"), &done, received);
  for (auto _ : state) {
    const std::int64_t end = done + state.range(0);
    for (int i = 0; i < kBatch; ++i) centrePost(CFSTR("Batch2"), i);
    while (done < end) centreTurn();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
  CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), &done);
}

BENCHMARK(PingPongSdBus)->UseRealTime();
BENCHMARK(PingPong)->UseRealTime();
BENCHMARK(ThroughputSdBus)->Arg(1)->Arg(8)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Throughput)->Arg(1)->Arg(8)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
