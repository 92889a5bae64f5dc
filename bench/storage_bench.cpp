// A storage request and its reply, through client, bus and server, beside a bare ping-pong of notifications in the same
// run. All processes are on one core.
#include <CoreFoundation/CFNotificationCenter.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFRunLoop.h>
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/wait.h>
#include <tovan/dn_shared_storage_client.h>
#include <tovan/dn_shared_storage_server.h>
#include <unistd.h>

#include <functional>

#include "bench/session_bus.h"

namespace {

using bench::require;

class Bus {
 public:
  Bus() { bench::pinToFirstCore(); }

 private:
  bench::ScratchFolder folder_;
  bench::SessionBus daemon_{folder_.path()};
};

// A process that begins with the body and then serves its run loop.
class Peer {
 public:
  explicit Peer(const std::function<void()>& body) {
    int ends[2];
    require(::pipe(ends) == 0, "no pipe");
    child_ = ::fork();
    if (child_ == 0) {
      body();
      require(::write(ends[1], "x", 1) == 1, "cannot say ready");
      for (;;) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, 1);
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
void serve() {
  new plinth::CSharedObjectRef<tovan::CDNSharedStorageServer>(
      plinth::makeShared<tovan::CDNSharedStorageServer>(plinth::makeShared<IdleStorage>()));
}

void postNotification(CFStringRef name, int number) {
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

void received(CFNotificationCenterRef, void* count, CFStringRef, const void*, CFDictionaryRef) {
  ++*static_cast<std::int64_t*>(count);
}

void answered(CFNotificationCenterRef, void*, CFStringRef, const void*, CFDictionaryRef) {
  postNotification(CFSTR("Pong2"), 1);
}

void NotificationPingPong(benchmark::State& state) {
  const Bus bus;
  const Peer peer([] { observe(CFSTR("Ping2"), nullptr, answered); });
  std::int64_t count = 0;
  observe(CFSTR("Pong2"), &count, received);
  for (auto _ : state) {
    const std::int64_t before = count;
    postNotification(CFSTR("Ping2"), 7);
    while (count == before) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, 1);
  }
  CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), &count);
}

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
