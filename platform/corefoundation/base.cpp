#include "platform/corefoundation/base.h"

#include <cstdint>

#include "platform/corefoundation/string.h"

struct CFAllocatorStorage {
  CFObjectHead head;
};

namespace cf {
namespace {

constinit const CFRuntimeClass kAllocatorClass{"CFAllocator", nullptr, nullptr, nullptr, nullptr};
constinit const CFAllocatorStorage nullAllocator{{&kAllocatorClass, kCFObjectIsConstant, 0}};

// The dead objects of this thread that wait to be destroyed.
struct DestructionQueue {
  bool running = false;
  CFObjectHead* first = nullptr;
};
__attribute__((tls_model("initial-exec"))) constinit thread_local DestructionQueue destructions;

// Where an object of a kind that nests keeps its link.
CFObjectHead*& nextToDestroy(CFObjectHead* object) noexcept { return *reinterpret_cast<CFObjectHead**>(object + 1); }

void destroyNesting(CFObjectHead* object) noexcept {
  DestructionQueue& queue = destructions;
  if (queue.running) {
    nextToDestroy(object) = std::exchange(queue.first, object);
    return;
  }
  queue.running = true;
  object->type->finalize(object);
  while (queue.first != nullptr) {
    CFObjectHead* const next = queue.first;
    queue.first = nextToDestroy(next);
    next->type->finalize(next);
  }
  queue.running = false;
}

}  // namespace

void destroy(CFObjectHead* object) noexcept {
  const CFRuntimeClass& kind = *object->type;
  if (kind.finalize == nullptr) {
    std::free(object);
  } else if (kind.nests) {
    destroyNesting(object);
  } else {
    kind.finalize(object);
  }
}

bool equal(const void* left, const void* right) {
  PendingComparisons comparisons;
  return comparisons.add(left, right) && comparisons.allAreEqual();
}

CFHashCode hash(const void* object) {
  const CFRuntimeClass& kind = *head(object)->type;
  return kind.hash != nullptr ? kind.hash(object) : mixBits(reinterpret_cast<std::uintptr_t>(object));
}

bool PendingComparisons::add(const void* left, const void* right) {
  if (left == right) return true;
  if (left == nullptr || right == nullptr || head(left)->type != head(right)->type) return false;
  const CFRuntimeClass& kind = *head(left)->type;
  if (kind.equalNested != nullptr) {
    pairs_.emplace_back(left, right);
    return true;
  }
  return kind.equal != nullptr && kind.equal(left, right);
}

bool PendingComparisons::allAreEqual() {
  while (!pairs_.empty()) {
    const auto [left, right] = pairs_.back();
    pairs_.pop_back();
    if (!head(left)->type->equalNested(left, right, *this)) return false;
  }
  return true;
}

CFStringRef createText(const std::string& text) {
  const CFStringRef string = createString(std::string_view(text));
  return string != nullptr ? string : createString("?", 1, true);
}

const void* retainObject(CFAllocatorRef, const void* object) { return CFRetain(object); }
void releaseObject(CFAllocatorRef, const void* object) { CFRelease(object); }

}  // namespace cf

constinit const CFAllocatorRef kCFAllocatorDefault = nullptr;
constinit const CFAllocatorRef kCFAllocatorNull = &cf::nullAllocator;

CFTypeRef CFRetain(CFTypeRef object) {
  if (object != nullptr) cf::retain(object);
  return object;
}

void CFRelease(CFTypeRef object) {
  if (object != nullptr) cf::release(object);
}

CFIndex CFGetRetainCount(CFTypeRef object) {
  if (object == nullptr) return 0;
  const int32_t count = __atomic_load_n(&cf::head(object)->count, __ATOMIC_RELAXED);
  return count == kCFObjectIsConstant ? INTPTR_MAX : count;
}

CFTypeID CFGetTypeID(CFTypeRef object) { return object == nullptr ? 0 : cf::typeID(*cf::head(object)->type); }

Boolean CFEqual(CFTypeRef left, CFTypeRef right) { return cf::equal(left, right); }

CFHashCode CFHash(CFTypeRef object) { return object == nullptr ? 0 : cf::hash(object); }
