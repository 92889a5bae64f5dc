// storage_activity.h: what the storage does just now, for the thread that tells others.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace mervaned {

class StorageActivity {
 public:
  struct State {
    std::string operation;  // "mounting HOST:/PATH on FOLDER" and the like
    double seconds;         // since when
  };

  // Nothing while the storage does nothing. Any thread.
  std::optional<State> now() const {
    const std::lock_guard guard(mutex_);
    if (operation_.empty()) return std::nullopt;
    return State{operation_, std::chrono::duration<double>(Clock::now() - began_).count()};
  }

  // An operation, as long as it lives. One inside another counts as part of that one.
  class Scope {
   public:
    Scope(StorageActivity& activity, std::string operation) : activity_(activity) {
      const std::lock_guard guard(activity_.mutex_);
      isOutermost_ = activity_.operation_.empty();
      if (!isOutermost_) return;
      activity_.operation_ = std::move(operation);
      activity_.began_ = Clock::now();
    }
    ~Scope() {
      const std::lock_guard guard(activity_.mutex_);
      if (isOutermost_) activity_.operation_.clear();
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    StorageActivity& activity_;
    bool isOutermost_;
  };

 private:
  using Clock = std::chrono::steady_clock;

  mutable std::mutex mutex_;
  std::string operation_;
  Clock::time_point began_;
};

}  // namespace mervaned
