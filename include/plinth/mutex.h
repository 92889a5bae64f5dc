// mutex.h: CMutex and CRecursiveMutex, mutual exclusion as shared objects, and CAutoMutex, which locks one for a scope.
//
// Both kinds know which thread holds them, so that misuse is reported and never deadlocks in silence.
#pragma once

#include <plinth/shared_object.h>

#include <atomic>
#include <mutex>
#include <thread>

namespace plinth {

// A plain mutex: a thread that holds it must not lock it again.
class PLINTH_EXPORT CMutex : public CSharedObject {
 public:
  CMutex();
  CMutex(const CMutex&) = delete;
  CMutex& operator=(const CMutex&) = delete;
  // Nobody may hold the mutex or wait for it. A thread that has just locked and unlocked it may destroy it although
  // another thread's unlock() is still about to return.
  ~CMutex() override;

  // Waits without limit. Throws CParamException when the calling thread holds the (plain) mutex already.
  void lock();
  // False when it is held: by another thread, or, for the plain kind, by the calling one.
  bool tryLock();
  // Throws CParamException when the calling thread does not hold the mutex.
  void unlock();

 protected:
  explicit CMutex(bool isRecursive);

 private:
  bool isHolder() const noexcept;
  void takeHold() noexcept;

  std::mutex mutex_;
  const bool isRecursive_;
  int depth_ = 0;                          // how often the holder has locked it; belongs to the holder
  std::atomic<std::thread::id> holder_{};  // only a thread itself writes its own id, and takes it away
};

// A mutex that its holder may lock again; it is free after as many unlocks.
class PLINTH_EXPORT CRecursiveMutex : public CMutex {
 public:
  CRecursiveMutex();
  ~CRecursiveMutex() override;
};

using CMutexRef = CSharedObjectRef<CMutex>;

// Holds a mutex for the lifetime of a scope. It keeps a reference, so the mutex lives at least as long. It is used and
// destroyed by the thread that made it.
class PLINTH_EXPORT CAutoMutex {
 public:
  enum class Option {
    lock,      // wait for the mutex at once
    tryLock,   // take it if it is free; isLocked() tells
    deferred,  // take it later, with lock() or tryLock()
  };

  // Throws CNullPointerException "Error: mutex is null!" for an empty holder, and what CMutex::lock() throws.
  explicit CAutoMutex(const CMutexRef& mutex, Option option = Option::lock);
  CAutoMutex(const CAutoMutex&) = delete;
  CAutoMutex& operator=(const CAutoMutex&) = delete;
  // Unlocks when isLocked(). A mutex that was unlocked behind the guard's back is reported with a console line.
  ~CAutoMutex();

  // Throw CParamException when this guard holds its lock already.
  void lock();
  bool tryLock();
  // Throws CParamException when this guard holds no lock.
  void unlock();
  // Whether this guard holds its lock.
  bool isLocked() const noexcept { return locked_; }

 private:
  CMutexRef mutex_;
  bool locked_ = false;
};

}  // namespace plinth
