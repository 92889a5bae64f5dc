#include <plinth/autorelease_pool.h>
#include <plinth/exception.h>

namespace plinth {
namespace {

constinit thread_local CNSAutoReleasePool* innermost = nullptr;

}  // namespace

CNSAutoReleasePool::CNSAutoReleasePool() noexcept : outer_(innermost) { innermost = this; }

CNSAutoReleasePool::~CNSAutoReleasePool() {
  if (!isOpen_) return;  // ended with a pool around it
  while (innermost != this) innermost->drain();
  drain();
}

CFTypeRef CNSAutoReleasePool::autorelease(CFTypeRef object) {
  if (innermost == nullptr) throw CParamException("CNSAutoReleasePool::autorelease failed: the thread has no pool");
  if (object != nullptr) innermost->objects_.push_back(object);
  return object;
}

void CNSAutoReleasePool::drain() noexcept {
  // By index: a release may put further objects aside here.
  for (std::size_t index = 0; index < objects_.size(); ++index) CFRelease(objects_[index]);
  objects_.clear();
  isOpen_ = false;
  innermost = outer_;
}

}  // namespace plinth
