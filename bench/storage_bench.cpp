// A storage request and its reply, through client, bus and server, beside a bare ping-pong of notifications in the same
// run. All processes are on one core.
#include <benchmark/benchmark.h>
#include <tovan/dn_shared_storage_client.h>
#include <tovan/dn_shared_storage_server.h>

#include <functional>

#include "bench/notification_peers.h"

namespace {

using bench::Peer;
using bench::require;
using Bus = bench::OneCoreBus;

// Does nothing, so that what is measured is the way there and back.
class IdleStorage : public tovan::ISharedStorage {
 public:
  OSStatus publish(const plinth::CURLRef&, const plinth::CStringRef&, long) override { return 0; }
  void unpublish(const plinth::CURLRef&, const plinth::CStringRef&, long) override {}
  std::int32_t getServerPort() override { return 2049; }
  void processTerminated(long) override {}
  void subscribe(const plinth::CURLRef&, const plinth::CStringRef&, const plinth::CStringRef&, long) override {}
  void unsubscribe(const plinth::CURLRef&, const plinth::CStringRef&, const plinth::CStringRef&, long) override {}
};

// Lives as long as the process.
void serve(const std::function<void()>& ready) {
  new plinth::CSharedObjectRef<tovan::CDNSharedStorageServer>(
      plinth::makeShared<tovan::CDNSharedStorageServer>(plinth::makeShared<IdleStorage>()));
  ready();
  for (;;) bench::turnRunLoop();
}

void NotificationPingPong(benchmark::State& state) { bench::pingPong(state); }

void StoragePublish(benchmark::State& state) {
  const Bus bus;
  const Peer peer(serve);
  const auto client = plinth::makeShared<tovan::CDNSharedStorageClient>();
  const auto url = plinth::makeShared<plinth::CURL>(plinth::CSTR("/srv/films"), kCFURLPOSIXPathStyle, true);
  const plinth::CStringRef name = plinth::CSTR("com.brant.klarn.transcoder");
  for (auto _ : state) client->publish(url, name, 0);
}

void StorageServerPort(benchmark::State& state) {
  const Bus bus;
  const Peer peer(serve);
  const auto client = plinth::makeShared<tovan::CDNSharedStorageClient>();
  for (auto _ : state) require(client->getServerPort() == 2049, "another port");
}

BENCHMARK(NotificationPingPong)->UseRealTime();
BENCHMARK(StoragePublish)->UseRealTime();
BENCHMARK(StorageServerPort)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
