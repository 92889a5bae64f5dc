// Distributed notifications beside plain sd-bus with the same traffic in the same run, all processes on one core.
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFString.h>
#include <benchmark/benchmark.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/notification_peers.h"

namespace {

constexpr const char* kPath = "/com/brant/mervane/DistributedNotifications1";
constexpr const char* kInterface = "com.brant.mervane.DistributedNotifications1";

using bench::observe;
using bench::Peer;
using bench::postThree;
using bench::received;
using bench::require;
using bench::turnRunLoop;
using Bus = bench::OneCoreBus;

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

void PingPong(benchmark::State& state) { bench::pingPong(state); }

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
        while (count < end) turnRunLoop();
        postThree(CFSTR("Done2"), 1);
      }
    }));
  }
  std::int64_t done = 0;
  observe(CFSTR("Done2"), &done, received);
  for (auto _ : state) {
    const std::int64_t end = done + state.range(0);
    for (int i = 0; i < kBatch; ++i) postThree(CFSTR("Batch2"), i);
    while (done < end) turnRunLoop();
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
