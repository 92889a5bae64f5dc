// notification_recorder.h: what is posted on the bus, seen by an observer on a thread and a connection of its own.
#pragma once

#include "tests/launch/lists.h"

#include <tovan/notifications.h>

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFRunLoop.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test {

struct SeenNotification {
  std::string name;
  std::string object;  // "null" for none
  List userInfo;       // empty for none
};

// Observes everything from its construction on. Stands in a test behind its PrivateBus.
class NotificationRecorder {
 public:
  NotificationRecorder() : thread_([this] { observe(); }) {
    // The observer is in place when it has seen something that was posted by a thread like the test's.
    std::unique_lock lock(mutex_);
    while (loop_ == nullptr || seen_.empty()) {
      lock.unlock();
      sendNotification(CFSTR("ready"), nullptr, nullptr);
      lock.lock();
      changed_.wait_for(lock, std::chrono::milliseconds(20), [this] { return !seen_.empty(); });
    }
    lock.unlock();
    take();
  }
  ~NotificationRecorder() {
    {
      const std::lock_guard lock(mutex_);
      ended_ = true;
      CFRunLoopStop(loop_);
    }
    thread_.join();
  }
  NotificationRecorder(const NotificationRecorder&) = delete;
  NotificationRecorder& operator=(const NotificationRecorder&) = delete;

  // Everything that came since the last call, up to now: what this thread, or a process that has ended, posted before
  // is among it.
  std::vector<SeenNotification> take() {
    const std::string mark = "mark-" + std::to_string(++marks_);
    sendNotification(plinth::CSTR(mark)->getStringRef(), nullptr, nullptr);
    std::unique_lock lock(mutex_);
    const bool came =
        changed_.wait_for(lock, std::chrono::seconds(20), [&] { return !seen_.empty() && seen_.back().name == mark; });
    EXPECT_TRUE(came) << "the bus delivers nothing";
    std::vector<SeenNotification> result = std::exchange(seen_, {});
    std::erase_if(result,
                  [](const SeenNotification& one) { return one.name == "ready" || one.name.starts_with("mark-"); });
    return result;
  }

 private:
  static void note(CFNotificationCenterRef, void* observer, CFStringRef name, const void* object,
                   CFDictionaryRef userInfo) {
    auto* const self = static_cast<NotificationRecorder*>(observer);
    const std::lock_guard lock(self->mutex_);
    self->seen_.push_back({plinth::CSTR(name)->str(),
                           object != nullptr ? plinth::CSTR(static_cast<CFStringRef>(object))->str() : "null",
                           List::retaining(userInfo)});
    self->changed_.notify_all();
  }

  void observe() {
    addObserver(this, note, nullptr, nullptr);
    {
      const std::lock_guard lock(mutex_);
      loop_ = CFRunLoopGetCurrent();
    }
    for (bool ended = false; !ended;) {
      CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.2, false);
      const std::lock_guard lock(mutex_);
      ended = ended_;
    }
    unregisterForNotifications(this);
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<SeenNotification> seen_;
  CFRunLoopRef loop_ = nullptr;
  bool ended_ = false;
  int marks_ = 0;
  std::thread thread_;
};

}  // namespace test
