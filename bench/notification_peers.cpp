#include "bench/notification_peers.h"

#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

Peer::Peer(const std::function<void(const std::function<void()>& ready)>& body) {
  int ends[2];
  require(::pipe(ends) == 0, "no pipe");
  child_ = ::fork();
  require(child_ >= 0, "no process");
  if (child_ == 0) {
    ::close(ends[0]);
    body([&] { require(::write(ends[1], "x", 1) == 1, "cannot say ready"); });
    ::_exit(0);
  }
  ::close(ends[1]);
  char byte;
  require(::read(ends[0], &byte, 1) == 1, "a peer did not come up");
  ::close(ends[0]);
}

Peer::~Peer() {
  ::kill(child_, SIGKILL);
  ::waitpid(child_, nullptr, 0);
}

void postThree(CFStringRef name, int number) {
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
  postThree(CFSTR("Pong2"), 1);
}

void turnRunLoop() { CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, 1); }

void pingPong(benchmark::State& state) {
  const OneCoreBus bus;
  const Peer peer([](const auto& ready) {
    std::int64_t count = 0;
    observe(CFSTR("Ping2"), &count, answered);
    ready();
    for (;;) turnRunLoop();
  });
  std::int64_t count = 0;
  observe(CFSTR("Pong2"), &count, received);
  for (auto _ : state) {
    const std::int64_t before = count;
    postThree(CFSTR("Ping2"), 7);
    while (count == before) turnRunLoop();
  }
  CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), &count);
}

}  // namespace bench
