// notification_peers.h: what the benchmarks of notifications and of the storage's requests share: a bus of their own,
// the process on its other side, a notification of three values, and the ping-pong that others are measured against.
#pragma once

#include <CoreFoundation/CFNotificationCenter.h>
#include <benchmark/benchmark.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>

#include "bench/session_bus.h"

namespace bench {

// A bus of our own, and every process of this run on one core.
class OneCoreBus {
 public:
  OneCoreBus() { pinToFirstCore(); }

 private:
  ScratchFolder folder_;
  SessionBus daemon_{folder_.path()};
};

// A process that runs the body, which calls `ready` when others may begin. The constructor returns then; the destructor
// kills it.
class Peer {
 public:
  explicit Peer(const std::function<void(const std::function<void()>& ready)>& body);
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

 private:
  pid_t child_;
};

// A notification with a text, a number and a boolean, from the object "bench".
void postThree(CFStringRef name, int number);

// Observes a name from any object.
void observe(CFStringRef name, std::int64_t* count, CFNotificationCallback callback);

// Callbacks of postThree's notifications: both read the number and add one to the count, the second answers as "Pong2".
void received(CFNotificationCenterRef center, void* count, CFStringRef name, const void* object, CFDictionaryRef info);
void answered(CFNotificationCenterRef center, void* count, CFStringRef name, const void* object, CFDictionaryRef info);

// One turn of the run loop, over as soon as something was handled.
void turnRunLoop();

// An iteration is one notification to another process and its answer.
void pingPong(benchmark::State& state);

}  // namespace bench
