#include "tests/support/notification_log.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

namespace test {
namespace {

std::string textOf(CFStringRef string) {
  if (string == nullptr) return "(null)";
  std::string text(static_cast<std::size_t>(CFStringGetLength(string)) * 3 + 1, '\0');
  if (CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8) == 0)
    return "?";
  return text.c_str();
}

}  // namespace

bool runLoopUntil(const std::function<bool()>& condition, double seconds) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (Clock::now() >= end) return false;
    // A loop with nothing to wait for answers at once.
    if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, true) == kCFRunLoopRunFinished) ::usleep(1000);
  }
  return true;
}

int inChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Notification::objectText() const { return textOf(object.get()); }

NotificationLog::~NotificationLog() {
  CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), this);
}

void NotificationLog::observe(CFStringRef name, CFStringRef object) {
  CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), this, callback, name, object,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
}

bool NotificationLog::await(std::size_t count, double seconds) {
  return runLoopUntil([&] { return all.size() >= count; }, seconds);
}

std::string NotificationLog::text() const {
  std::string lines;
  for (const Notification& one : all) lines += one.name + " " + one.objectText() + "\n";
  return lines;
}

void NotificationLog::callback(CFNotificationCenterRef center, void* observer, CFStringRef name, const void* object,
                               CFDictionaryRef userInfo) {
  EXPECT_EQ(center, CFNotificationCenterGetDistributedCenter());
  auto* const log = static_cast<NotificationLog*>(observer);
  log->all.push_back({textOf(name), plinth::CSharedCFRef<CFStringRef>::retaining(static_cast<CFStringRef>(object)),
                      plinth::CSharedCFRef<CFDictionaryRef>::retaining(userInfo)});
  if (log->then) log->then(log->all.back());
}

void post(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo) {
  CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterGetDistributedCenter(), name, object, userInfo,
                                                  kCFNotificationDeliverImmediately);
}

}  // namespace test
