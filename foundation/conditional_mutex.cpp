#include <plinth/conditional_mutex.h>
#include <plinth/exception.h>

#include <chrono>

namespace plinth {
namespace {

// Longer time-outs are no time-outs; the bound keeps every sum within the clock's range.
constexpr double kUnlimitedSeconds = 1e9;

}  // namespace

CConditionalMutex::CConditionalMutex(int value) : value_(value) {}

CConditionalMutex::~CConditionalMutex() = default;

void CConditionalMutex::checkNotHolder(const char* operation) const {
  if (held_ && holder_ == std::this_thread::get_id()) {
    throw CParamException("%s failed: the calling thread holds the mutex already", operation);
  }
}

void CConditionalMutex::lockWhenValueSet(int value) {
  std::unique_lock guard(guard_);
  checkNotHolder("CConditionalMutex::lockWhenValueSet");
  changed_.wait(guard, [&] { return !held_ && value_ == value; });
  held_ = true;
  holder_ = std::this_thread::get_id();
}

bool CConditionalMutex::lockWithTimeoutWhenValueSet(int value, double seconds) {
  if (seconds >= kUnlimitedSeconds) {
    lockWhenValueSet(value);
    return true;
  }
  std::unique_lock guard(guard_);
  checkNotHolder("CConditionalMutex::lockWithTimeoutWhenValueSet");
  const auto lockable = [&] { return !held_ && value_ == value; };
  // The comparison is false for NaN too.
  if (seconds > 0) {
    const auto limit = std::chrono::ceil<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
    changed_.wait_until(guard, std::chrono::steady_clock::now() + limit, lockable);
  }
  if (!lockable()) return false;
  held_ = true;
  holder_ = std::this_thread::get_id();
  return true;
}

void CConditionalMutex::lockWithBlocking() {
  std::unique_lock guard(guard_);
  checkNotHolder("CConditionalMutex::lockWithBlocking");
  changed_.wait(guard, [&] { return !held_; });
  held_ = true;
  holder_ = std::this_thread::get_id();
}

void CConditionalMutex::unlock() { release("CConditionalMutex::unlock", nullptr); }

void CConditionalMutex::unlockAndSetValue(int value) { release("CConditionalMutex::unlockAndSetValue", &value); }

void CConditionalMutex::release(const char* operation, const int* newValue) {
  const std::lock_guard guard(guard_);
  if (!held_ || holder_ != std::this_thread::get_id()) {
    throw CParamException("%s failed: the calling thread does not hold the mutex", operation);
  }
  if (newValue != nullptr) value_ = *newValue;
  held_ = false;
  // Under the guard: once it is released a waiter may return and destroy this object.
  changed_.notify_all();
}

}  // namespace plinth
