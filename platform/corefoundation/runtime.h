// runtime.h: what every object kind of platform/corefoundation is built on.
//
// An object is a CFObjectHead followed by its payload, in one block. A kind is described by one constant
// CFRuntimeClass whose address is the kind's CFTypeID, so nothing is registered at run time and the library
// needs no initialiser.
#pragma once

#include <CoreFoundation/CFBase.h>

#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

namespace cf {
class PendingComparisons;
}

struct CFRuntimeClass {
  const char* name;  // "CFString"
  // Destroys the payload and frees the block; null means std::free of the block is enough.
  void (*finalize)(void* object) noexcept;
  // Both arguments are of this kind and not identical. Null: only identical objects are equal.
  bool (*equal)(const void* left, const void* right);
  // Null: the address is the hash.
  CFHashCode (*hash)(const void* object);
  // The caller owns the result. Null: "<CFName 0x...>".
  CFStringRef (*copyDescription)(const void* object);

  // The rest is for kinds that hold other objects and so may be nested to any depth. Without it a release or a
  // comparison would go down the stack with the depth.
  //
  // A CFObjectHead* follows the object's head, for cf::destroy to link dead objects by while it works through them.
  bool nests = false;
  // In place of `equal`: compares what is the object's own and hands the objects inside to PendingComparisons
  // (base.h). Both arguments are of this kind and not identical.
  bool (*equalNested)(const void* left, const void* right, cf::PendingComparisons& inside) = nullptr;
};

namespace cf {

inline CFObjectHead* head(const void* object) { return static_cast<CFObjectHead*>(const_cast<void*>(object)); }

inline bool isKind(const void* object, const CFRuntimeClass& kind) {
  return object != nullptr && head(object)->type == &kind;
}

inline void retain(const void* object) noexcept {
  CFObjectHead* const it = head(object);
  if (__atomic_load_n(&it->count, __ATOMIC_RELAXED) != kCFObjectIsConstant) {
    __atomic_fetch_add(&it->count, 1, __ATOMIC_RELAXED);
  }
}

// Called when the last reference goes. The objects inside a kind that nests are destroyed one after the other and not
// one within the other, all before the outermost call returns.
void destroy(CFObjectHead* object) noexcept;

inline void release(const void* object) noexcept {
  CFObjectHead* const it = head(object);
  // The only holder needs no read-modify-write; acquire orders the destruction behind the other releases.
  const int32_t count = __atomic_load_n(&it->count, __ATOMIC_ACQUIRE);
  if (count == kCFObjectIsConstant) return;
  if (count == 1 || __atomic_fetch_sub(&it->count, 1, __ATOMIC_ACQ_REL) == 1) destroy(it);
}

// A new object of type T (whose first member is `CFObjectHead head`), with `extra` bytes behind it, holding one
// reference. T is constructed with the arguments; its head is filled in afterwards.
template <class T, class... Arguments>
T* create(const CFRuntimeClass& kind, std::size_t extra, Arguments&&... arguments) {
  static_assert(std::is_standard_layout_v<T>);
  void* const block = std::malloc(sizeof(T) + extra);
  if (block == nullptr) throw std::bad_alloc();
    // The head may lie inside T's first member; clang wants braces around it that only that kind could have.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-braces"
  T* const object = ::new (block) T{CFObjectHead{&kind, 1, 0}, std::forward<Arguments>(arguments)...};
#pragma GCC diagnostic pop
  return object;
}

// Owns one reference for a scope; the C++ side of this folder uses nothing else to hold objects.
template <class Ref>
class Owned {
 public:
  Owned() noexcept = default;
  explicit Owned(Ref taken) noexcept : object_(taken) {}
  Owned(Owned&& other) noexcept : object_(other.take()) {}
  Owned& operator=(Owned&& other) noexcept {
    if (this != &other) reset(other.take());
    return *this;
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { reset(); }

  static Owned retaining(Ref object) noexcept {
    if (object != nullptr) retain(object);
    return Owned(object);
  }
  Ref get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  // Hands the reference to the caller.
  Ref take() noexcept { return std::exchange(object_, nullptr); }
  void reset(Ref taken = nullptr) noexcept {
    Ref old = std::exchange(object_, taken);
    if (old != nullptr) release(old);
  }

 private:
  Ref object_ = nullptr;
};

}  // namespace cf
