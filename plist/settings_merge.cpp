#include "plist/settings_merge.h"

#include <tovan/cf_util.h>

#include <utility>

namespace tovan {
namespace {

using plinth::CSharedCFRef;

bool hasTypeOf(CFTypeRef value, CFTypeRef other) {
  return value != nullptr && CFGetTypeID(value) == CFGetTypeID(other);
}

CFDictionaryRef asDictionary(CFTypeRef value) {
  return value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID() ? static_cast<CFDictionaryRef>(value)
                                                                           : nullptr;
}

// What becomes of a value; both being dictionaries is another matter.
MergeOutcome outcomeOf(CFTypeRef yours, CFTypeRef earlier, CFTypeRef shipped) {
  if (yours == nullptr) return MergeOutcome::added;
  if (!hasTypeOf(yours, shipped)) return MergeOutcome::retyped;
  if (CFEqual(yours, shipped)) return MergeOutcome::same;
  return hasTypeOf(earlier, yours) && !CFEqual(earlier, yours) ? MergeOutcome::kept : MergeOutcome::updated;
}

class Merge {
 public:
  explicit Merge(std::vector<SettingMerge>* steps) : steps_(steps) {}

  bool dictionary(CFMutableDictionaryRef target, CFDictionaryRef previous, CFDictionaryRef shipped) {
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(shipped));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(shipped, keys.data(), values.data());
    bool changed = false;
    for (std::size_t index = 0; index < count; ++index) {
      const auto key = static_cast<CFStringRef>(keys[index]);
      path_.push_back(CSharedCFRef<CFStringRef>::retaining(key));
      const CFTypeRef earlier = previous == nullptr ? nullptr : CFDictionaryGetValue(previous, key);
      changed |= value(target, key, earlier, values[index]);
      path_.pop_back();
    }
    return changed;
  }

 private:
  bool value(CFMutableDictionaryRef target, CFStringRef key, CFTypeRef earlier, CFTypeRef shipped) {
    const CFTypeRef yours = CFDictionaryGetValue(target, key);
    if (asDictionary(yours) != nullptr && asDictionary(shipped) != nullptr) {
      const CSharedCFRef<CFMutableDictionaryRef> inner(CFUtil::CFDictMakeMutableCopy(asDictionary(yours)));
      if (!dictionary(inner.get(), asDictionary(earlier), asDictionary(shipped))) return false;
      CFDictionarySetValue(target, key, inner.get());
      return true;
    }
    const MergeOutcome outcome = outcomeOf(yours, earlier, shipped);
    if (steps_ != nullptr) {
      steps_->push_back({path_, CSharedCFRef<CFTypeRef>::retaining(yours), CSharedCFRef<CFTypeRef>::retaining(earlier),
                         CSharedCFRef<CFTypeRef>::retaining(shipped), outcome});
    }
    if (outcome == MergeOutcome::same || outcome == MergeOutcome::kept) return false;
    CFDictionarySetValue(target, key, shipped);
    return true;
  }

  std::vector<SettingMerge>* steps_;
  std::vector<CSharedCFRef<CFStringRef>> path_;
};

}  // namespace

bool mergeSettings(CFMutableDictionaryRef target, CFDictionaryRef previous, CFDictionaryRef shipped,
                   std::vector<SettingMerge>* steps) {
  if (target == nullptr || shipped == nullptr) return false;
  return Merge(steps).dictionary(target, previous, shipped);
}

}  // namespace tovan
