// shared_cf_ref.h: the owning holder of one CoreFoundation object.
//
// Construction from a raw reference takes over a reference that the creator owns (the result of a Create or Copy
// function) and never adds one. Use `retaining` for an object that came from a Get function. Copying a holder
// retains; destroying or reassigning it releases. One holder is used by one thread at a time.
#pragma once

#include <CoreFoundation/CFBase.h>

#include <cstddef>
#include <type_traits>
#include <utility>

namespace plinth {

template <class T>
class CSharedCFRef {
 public:
  CSharedCFRef() noexcept = default;
  CSharedCFRef(std::nullptr_t) noexcept {}
  CSharedCFRef(T taken) noexcept : object_(taken) {}
  CSharedCFRef(const CSharedCFRef& other) noexcept : object_(other.object_) { retain(); }
  CSharedCFRef(CSharedCFRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  // From a holder of a mutable object to a holder of its immutable kind, and the like.
  template <class U, class = std::enable_if_t<std::is_convertible_v<U, T>>>
  CSharedCFRef(const CSharedCFRef<U>& other) noexcept : object_(other.get()) {
    retain();
  }
  ~CSharedCFRef() { release(); }

  CSharedCFRef& operator=(CSharedCFRef other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  // A holder that adds a reference of its own.
  static CSharedCFRef retaining(T object) noexcept {
    CSharedCFRef holder(object);
    holder.retain();
    return holder;
  }

  T get() const noexcept { return object_; }
  T getObjectRef() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  bool isNull() const noexcept { return object_ == nullptr; }
  friend bool operator==(const CSharedCFRef& holder, std::nullptr_t) noexcept { return holder.object_ == nullptr; }
  // Hands the reference to the caller; the holder is empty afterwards.
  T take() noexcept { return std::exchange(object_, nullptr); }
  // The object with a reference added for the caller.
  T copy() const noexcept {
    retain();
    return object_;
  }

 private:
  void retain() const noexcept {
    if (object_ != nullptr) CFRetain(object_);
  }
  void release() noexcept {
    if (object_ != nullptr) CFRelease(std::exchange(object_, nullptr));
  }

  T object_ = nullptr;
};

}  // namespace plinth
