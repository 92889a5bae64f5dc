// CFPropertyListCreateDeepCopy.
#include <CoreFoundation/CFPropertyList.h>

#include "platform/corefoundation/array.h"
#include "platform/corefoundation/base.h"
#include "platform/corefoundation/data.h"
#include "platform/corefoundation/dictionary.h"
#include "platform/corefoundation/string.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFNumber.h>

#include <vector>

namespace cf {
namespace {

// The references of a container's content until the container takes them over.
struct Content {
  Content() = default;
  Content(const Content&) = delete;
  Content& operator=(const Content&) = delete;
  ~Content() {
    for (const void* const object : objects) release(object);
    for (const KeyAndValue& pair : pairs) {
      release(pair.key);
      if (pair.value != nullptr) release(pair.value);
    }
  }
  std::vector<const void*> objects;
  std::vector<KeyAndValue> pairs;
};

class Copier {
 public:
  explicit Copier(CFOptionFlags options)
      : mutableLeaves_((options & kCFPropertyListMutableContainersAndLeaves) != 0),
        mutableContainers_(mutableLeaves_ || (options & kCFPropertyListMutableContainers) != 0) {}

  // Empty when the object is no property list. `depth` containers enclose it.
  Owned<CFTypeRef> copy(CFTypeRef object, int depth) const {
    if (object == nullptr) return {};
    const CFRuntimeClass* const kind = head(object)->type;
    if (kind == &kCFStringClass) return Owned<CFTypeRef>(string(static_cast<CFStringRef>(object)));
    if (kind == &kDataClass) return Owned<CFTypeRef>(data(static_cast<CFDataRef>(object)));
    if (kind == &kNumberClass || kind == &kBooleanClass || kind == &kDateClass) {
      return Owned<CFTypeRef>::retaining(object);
    }
    if (depth == kCFPropertyListMaximumDepth) return {};
    if (kind == &kArrayClass) return array(static_cast<CFArrayRef>(object), depth);
    if (kind == &kDictionaryClass) return dictionary(static_cast<CFDictionaryRef>(object), depth);
    return {};
  }

 private:
  CFTypeRef string(CFStringRef string) const {
    if (mutableLeaves_) return CFStringCreateMutableCopy(kCFAllocatorDefault, 0, string);
    return CFStringCreateCopy(kCFAllocatorDefault, string);
  }

  CFTypeRef data(CFDataRef data) const {
    if (mutableLeaves_) return CFDataCreateMutableCopy(kCFAllocatorDefault, 0, data);
    return CFDataCreateCopy(kCFAllocatorDefault, data);
  }

  Owned<CFTypeRef> array(CFArrayRef array, int depth) const {
    Content content;
    const auto values = items(array);
    content.objects.reserve(values.size());
    for (const void* const value : values) {
      Owned<CFTypeRef> copied = copy(value, depth + 1);
      if (!copied) return {};
      content.objects.push_back(copied.take());
    }
    Owned<CFTypeRef> made(mutableContainers_ ? createMutableArrayTaking(content.objects)
                                             : createArrayTaking(content.objects));
    content.objects.clear();
    return made;
  }

  Owned<CFTypeRef> dictionary(CFDictionaryRef dictionary, int depth) const {
    Content content;
    content.pairs.reserve(static_cast<std::size_t>(CFDictionaryGetCount(dictionary)));
    for (const DictionaryEntry& entry : entries(dictionary)) {
      if (entry.key == nullptr || !isString(entry.key)) return {};
      // Keys stay immutable: a key that changes is lost in its dictionary.
      content.pairs.push_back({CFStringCreateCopy(kCFAllocatorDefault, static_cast<CFStringRef>(entry.key)), nullptr});
      Owned<CFTypeRef> copied = copy(entry.value, depth + 1);
      if (!copied) return {};
      content.pairs.back().value = copied.take();
    }
    Owned<CFTypeRef> made(mutableContainers_ ? createMutableDictionaryTaking(content.pairs)
                                             : createDictionaryTaking(content.pairs));
    content.pairs.clear();
    return made;
  }

  const bool mutableLeaves_;
  const bool mutableContainers_;
};

}  // namespace
}  // namespace cf

CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef, CFPropertyListRef list, CFOptionFlags mutabilityOption) {
  return cf::Copier(mutabilityOption).copy(list, 0).take();
}
