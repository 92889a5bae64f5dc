// shared_object.h: the base of every reference-counted object of the library, and its holder.
//
// A new object holds one reference, which belongs to whoever made it; `CSharedObjectRef(T*)` takes that reference
// over. Copying a holder retains, destroying or reassigning one releases, and the last release destroys the object.
// Counting is atomic: holders of one object may live in different threads. One holder is used by one thread at a time.
#pragma once

#include <plinth/export.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace plinth {

class PLINTH_EXPORT CSharedObject {
 public:
  // A copy is a new object with a count of its own.
  CSharedObject() noexcept = default;
  CSharedObject(const CSharedObject&) noexcept {}
  CSharedObject& operator=(const CSharedObject&) noexcept { return *this; }

  // Adds a reference.
  void Retain() const noexcept;
  // Gives a reference back; the last one destroys the object.
  void Release() const noexcept;
  // Adds a reference unless the last one has been given back already; whether it did. For somebody who keeps a plain
  // pointer, which the object's destructor takes away from there.
  bool RetainIfHeld() const noexcept {
    std::int32_t count = references_.load(std::memory_order_relaxed);
    while (count > 0 && !references_.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) {
    }
    return count > 0;
  }
  // The number of references at this moment; for tests and diagnostics.
  std::int32_t GetRetainCount() const noexcept;

  // Called when an empty holder is dereferenced: writes one console line. The dereference then goes on with null.
  static void LogNullRef() noexcept;

 protected:
  virtual ~CSharedObject();

 private:
  mutable std::atomic<std::int32_t> references_{1};
};

template <class T>
class CSharedObjectRef {
 public:
  CSharedObjectRef() noexcept = default;
  CSharedObjectRef(std::nullptr_t) noexcept {}
  // Takes over the reference that the caller holds; adds none.
  CSharedObjectRef(T* taken) noexcept : object_(taken) {}
  CSharedObjectRef(const CSharedObjectRef& other) noexcept : object_(other.object_) { retain(); }
  CSharedObjectRef(CSharedObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  // From a holder of a subclass.
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  CSharedObjectRef(const CSharedObjectRef<U>& other) noexcept : object_(other.get()) {
    retain();
  }
  // Down-cast: an empty holder when the object is not a T.
  template <class U, class = std::enable_if_t<!std::is_convertible_v<U*, T*> && std::is_base_of_v<U, T>>, class = void>
  explicit CSharedObjectRef(const CSharedObjectRef<U>& other) noexcept : object_(dynamic_cast<T*>(other.get())) {
    retain();
  }
  ~CSharedObjectRef() { release(); }

  CSharedObjectRef& operator=(CSharedObjectRef other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  // A holder that adds a reference of its own to an object somebody else holds.
  static CSharedObjectRef retaining(T* object) noexcept {
    CSharedObjectRef holder(object);
    holder.retain();
    return holder;
  }

  T* get() const noexcept { return object_; }
  T* getObjectRef() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  bool isNull() const noexcept { return object_ == nullptr; }
  T* operator->() const noexcept {
    if (object_ == nullptr) CSharedObject::LogNullRef();
    return object_;
  }
  T& operator*() const noexcept {
    if (object_ == nullptr) CSharedObject::LogNullRef();
    return *object_;  // NOLINT(clang-analyzer-core.uninitialized.UndefReturn): goes on with null, on purpose
  }
  // Identity, not content.
  bool isSame(const CSharedObjectRef& other) const noexcept { return object_ == other.object_; }
  friend bool operator==(const CSharedObjectRef& holder, std::nullptr_t) noexcept { return holder.object_ == nullptr; }

 private:
  void retain() const noexcept {
    if (object_ != nullptr) object_->Retain();
  }
  void release() noexcept {
    if (object_ != nullptr) std::exchange(object_, nullptr)->Release();
  }

  T* object_ = nullptr;
};

// Makes an object and its first holder in one step.
template <class T, class... Arguments>
CSharedObjectRef<T> makeShared(Arguments&&... arguments) {
  return CSharedObjectRef<T>(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace plinth
