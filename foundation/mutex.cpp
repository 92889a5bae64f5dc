#include <plinth/exception.h>
#include <plinth/mutex.h>

#include "platform/system/console_log.h"

namespace plinth {

CMutex::CMutex() : CMutex(false) {}

CMutex::CMutex(bool isRecursive) : isRecursive_(isRecursive) {}

CMutex::~CMutex() = default;

bool CMutex::isHolder() const noexcept {
  // No order is needed: another thread's id, however old, is not this one's.
  return holder_.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

void CMutex::takeHold() noexcept {
  holder_.store(std::this_thread::get_id(), std::memory_order_relaxed);
  depth_ = 1;
}

void CMutex::lock() {
  if (!isHolder()) {
    mutex_.lock();
    takeHold();
  } else if (isRecursive_) {
    ++depth_;
  } else {
    throw CParamException("CMutex::lock failed: the calling thread holds it already");
  }
}

bool CMutex::tryLock() {
  if (isHolder()) {
    if (isRecursive_) ++depth_;
    return isRecursive_;
  }
  if (!mutex_.try_lock()) return false;
  takeHold();
  return true;
}

void CMutex::unlock() {
  if (!isHolder()) throw CParamException("CMutex::unlock failed: the calling thread does not hold it");
  if (--depth_ > 0) return;
  holder_.store({}, std::memory_order_relaxed);
  mutex_.unlock();
}

CRecursiveMutex::CRecursiveMutex() : CMutex(true) {}

CRecursiveMutex::~CRecursiveMutex() = default;

CAutoMutex::CAutoMutex(const CMutexRef& mutex, Option option) : mutex_(mutex) {
  if (mutex_.isNull()) throw CNullPointerException("Error: mutex is null!");
  if (option == Option::lock) lock();
  if (option == Option::tryLock) tryLock();
}

CAutoMutex::~CAutoMutex() {
  if (!locked_) return;
  try {
    mutex_->unlock();
  } catch (const CException& exception) {
    // Somebody else has unlocked it; that is no reason to end the host.
    platform::consoleLog(exception.what());
  }
}

void CAutoMutex::lock() {
  if (locked_) throw CParamException("CAutoMutex::lock failed: this guard holds its lock already");
  mutex_->lock();
  locked_ = true;
}

bool CAutoMutex::tryLock() {
  if (locked_) throw CParamException("CAutoMutex::tryLock failed: this guard holds its lock already");
  locked_ = mutex_->tryLock();
  return locked_;
}

void CAutoMutex::unlock() {
  if (!locked_) throw CParamException("CAutoMutex::unlock failed: this guard holds no lock");
  mutex_->unlock();
  locked_ = false;
}

}  // namespace plinth
