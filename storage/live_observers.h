// live_observers.h: objects that the notification centre calls back by plain pointer.
//
// The last reference to such an object may be given back on another thread than the one that is just about to call it.
// So a callback takes a reference of its own first, which it gets only while the object lives. Any thread.
#pragma once

#include <plinth/shared_object.h>

namespace tovan {

// In the object's constructor and, before anything else, in its destructor. `observer` is the pointer that the centre
// is given.
void addLiveObserver(const void* observer, const plinth::CSharedObject& object);
void removeLiveObserver(const void* observer) noexcept;

// Whether the object lives; if so it has one reference more.
bool retainLiveObserver(const void* observer) noexcept;

// The object for the length of a callback; empty when it is gone, or going.
template <class T>
plinth::CSharedObjectRef<T> liveObserver(void* observer) noexcept {
  return retainLiveObserver(observer) ? static_cast<T*>(observer) : nullptr;
}

}  // namespace tovan
