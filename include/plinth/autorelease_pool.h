// autorelease_pool.h: CNSAutoReleasePool, a scope at whose end objects are released that were put aside in it.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <plinth/export.h>

#include <vector>

namespace plinth {

// Pools nest: what is put aside goes to the calling thread's innermost pool. A pool is made and destroyed by one
// thread.
class PLINTH_EXPORT CNSAutoReleasePool {
 public:
  CNSAutoReleasePool() noexcept;
  CNSAutoReleasePool(const CNSAutoReleasePool&) = delete;
  CNSAutoReleasePool& operator=(const CNSAutoReleasePool&) = delete;
  // Releases what was put aside, in that order, and what its release puts aside in turn. Pools that were made inside
  // this one and are still there end with it.
  ~CNSAutoReleasePool();

  // Takes over the caller's reference and gives it back at the end of the calling thread's innermost pool. Answers the
  // object, which stays valid until then; null is allowed. Throws CParamException when the thread has no pool, and
  // std::bad_alloc; the reference then stays the caller's.
  static CFTypeRef autorelease(CFTypeRef object);

 private:
  void drain() noexcept;

  CNSAutoReleasePool* outer_;
  bool isOpen_ = true;  // stands in its thread's row of pools
  std::vector<CFTypeRef> objects_;
};

}  // namespace plinth
