// Creating, reading, comparing and destroying arrays. Changing them is in array_change.cpp.
#include "platform/corefoundation/array.h"

#include <algorithm>
#include <cstring>

#include "platform/corefoundation/array_storage.h"

constinit const CFArrayCallBacks kCFTypeArrayCallBacks{0, cf::retainObject, cf::releaseObject, CFCopyDescription,
                                                       CFEqual};

namespace cf {
namespace {

constinit const CFArrayCallBacks noCallBacks{0, nullptr, nullptr, nullptr, nullptr};

bool areForObjects(const CFArrayCallBacks& callBacks) noexcept {
  return callBacks.retain == retainObject && callBacks.release == releaseObject && callBacks.equal == CFEqual;
}

void finalizeArray(void* object) noexcept {
  CFArrayStorage* const array = static_cast<CFArrayStorage*>(object);
  for (const void* value : items(array)) releaseValue(array, value);
  if ((array->head.info & kArrayIsMutable) != 0) std::free(array->values);
  std::free(object);
}

bool arraysAreEqual(const void* leftObject, const void* rightObject, PendingComparisons& inside) {
  const CFArrayRef left = static_cast<CFArrayRef>(leftObject);
  const CFArrayRef right = static_cast<CFArrayRef>(rightObject);
  const CFArrayEqualCallBack equalValues = left->callBacks->equal;
  if (left->count != right->count || equalValues != right->callBacks->equal) return false;
  return std::ranges::equal(items(left), items(right), [&](const void* one, const void* other) {
    if (equalValues == CFEqual) return inside.add(one, other);
    return one == other || (equalValues != nullptr && equalValues(one, other));
  });
}

// Nested arrays are not followed: a hash has to be quick, and needs only to agree for equal arrays.
CFHashCode hashOfArray(const void* object) {
  const std::span<const void* const> values = items(static_cast<CFArrayRef>(object));
  CFHashCode result = mixBits(values.size());
  if (values.empty() || !holdsObjects(static_cast<CFArrayRef>(object))) return result;
  for (const void* value : {values.front(), values.back()}) {
    if (!head(value)->type->nests) result = mixBits(result ^ hash(value));
  }
  return result;
}

CFStringRef copyArrayDescription(const void* array) {
  std::string text;
  appendArrayDescription(text, array, 0);
  return createText(text);
}

}  // namespace

constinit const CFRuntimeClass kArrayClass{"CFArray", finalizeArray, nullptr, hashOfArray, copyArrayDescription,
                                           true,      arraysAreEqual};

CFArrayStorage* createArray(CFIndex room, const CFArrayCallBacks* callBacks) {
  const bool standard = callBacks == &kCFTypeArrayCallBacks || (callBacks != nullptr && areForObjects(*callBacks));
  const bool custom = callBacks != nullptr && !standard;
  if (room > PTRDIFF_MAX / 16) throw std::bad_alloc();
  const std::size_t valueBytes = static_cast<std::size_t>(room) * sizeof(void*);
  CFArrayStorage* const array =
      create<CFArrayStorage>(kArrayClass, valueBytes + (custom ? sizeof(CFArrayCallBacks) : 0), nullptr,
                             standard ? &kCFTypeArrayCallBacks : &noCallBacks, nullptr, 0, 0);
  array->head.info = standard ? kArrayHoldsObjects : 0;
  array->values = reinterpret_cast<const void**>(array + 1);
  if (custom) {
    void* const behindValues = reinterpret_cast<char*>(array + 1) + valueBytes;
    array->callBacks = ::new (behindValues) CFArrayCallBacks(*callBacks);
  }
  return array;
}

CFMutableArrayRef createMutableArray(const CFArrayCallBacks* callBacks) {
  CFArrayStorage* const array = createArray(0, callBacks);
  array->head.info |= kArrayIsMutable;
  array->values = nullptr;
  return array;
}

CFArrayRef createArrayTaking(std::span<const void* const> objects) {
  CFArrayStorage* const array = createArray(static_cast<CFIndex>(objects.size()), &kCFTypeArrayCallBacks);
  std::ranges::copy(objects, array->values);
  array->count = static_cast<CFIndex>(objects.size());
  return array;
}

CFMutableArrayRef createMutableArrayTaking(std::span<const void* const> objects) {
  Owned<CFMutableArrayRef> array(createMutableArray(&kCFTypeArrayCallBacks));
  reserve(array.get(), static_cast<CFIndex>(objects.size()));
  std::ranges::copy(objects, array.get()->values);
  array.get()->count = static_cast<CFIndex>(objects.size());
  return array.take();
}

std::span<const void* const> items(CFArrayRef array) {
  if (array == nullptr) return {};
  return {array->values, static_cast<std::size_t>(array->count)};
}

bool isMutable(CFArrayRef array) { return array != nullptr && (array->head.info & kArrayIsMutable) != 0; }

void appendArrayDescription(std::string& text, const void* object, int depth) {
  const CFArrayRef array = static_cast<CFArrayRef>(object);
  const char* separator = "(";
  for (const void* value : items(array)) {
    text += separator;
    separator = ", ";
    if (holdsObjects(array)) {
      appendDescription(text, value, depth + 1);
    } else {
      appendValueDescription(text, value, array->callBacks->copyDescription);
    }
  }
  text += array->count == 0 ? "()" : ")";
}

namespace {

// The values of a range; nothing when it does not lie inside the array.
std::span<const void* const> itemsOf(CFArrayRef array, CFRange range) {
  if (array == nullptr || !liesInside(range, array->count)) return {};
  return items(array).subspan(static_cast<std::size_t>(range.location), static_cast<std::size_t>(range.length));
}

// Whether an element of the array is what a caller looks for.
struct IsEqualTo {
  CFArrayRef array;
  const void* sought;
  bool operator()(const void* value) const {
    if (value == sought) return true;
    if (holdsObjects(array)) return equal(value, sought);
    return array->callBacks->equal != nullptr && array->callBacks->equal(value, sought);
  }
};

}  // namespace
}  // namespace cf

CFTypeID CFArrayGetTypeID() { return cf::typeID(cf::kArrayClass); }

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count, const CFArrayCallBacks* callBacks) {
  if (count < 0 || (values == nullptr && count > 0)) return nullptr;
  cf::Owned<CFArrayStorage*> owner(cf::createArray(count, callBacks));
  CFArrayStorage* const array = owner.get();
  if (cf::holdsObjects(array) && std::find(values, values + count, nullptr) != values + count) return nullptr;
  for (; array->count < count; ++array->count) {
    array->values[array->count] = cf::retainValue(array, values[array->count]);
  }
  return owner.take();
}

CFArrayRef CFArrayCreateCopy(CFAllocatorRef allocator, CFArrayRef array) {
  if (array == nullptr) return nullptr;
  if (!cf::isMutable(array)) return static_cast<CFArrayRef>(CFRetain(array));
  return CFArrayCreate(allocator, array->values, array->count, array->callBacks);
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex capacity, const CFArrayCallBacks* callBacks) {
  constexpr CFIndex greatestRoomAhead = 4096;
  cf::Owned<CFMutableArrayRef> array(cf::createMutableArray(callBacks));
  if (capacity > 0) cf::reserve(array.get(), std::min(capacity, greatestRoomAhead));
  return array.take();
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef, CFIndex, CFArrayRef array) {
  if (array == nullptr) return nullptr;
  cf::Owned<CFMutableArrayRef> copy(cf::createMutableArray(array->callBacks));
  CFArrayAppendArray(copy.get(), array, CFRangeMake(0, array->count));
  return copy.take();
}

CFIndex CFArrayGetCount(CFArrayRef array) { return array == nullptr ? 0 : array->count; }

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return array != nullptr && index >= 0 && index < array->count ? array->values[index] : nullptr;
}

void CFArrayGetValues(CFArrayRef array, CFRange range, const void** values) {
  if (values != nullptr) std::ranges::copy(cf::itemsOf(array, range), values);
}

Boolean CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value) {
  return CFArrayGetFirstIndexOfValue(array, range, value) != kCFNotFound;
}

CFIndex CFArrayGetCountOfValue(CFArrayRef array, CFRange range, const void* value) {
  return std::ranges::count_if(cf::itemsOf(array, range), cf::IsEqualTo{array, value});
}

CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value) {
  const auto values = cf::itemsOf(array, range);
  const auto found = std::ranges::find_if(values, cf::IsEqualTo{array, value});
  return found == values.end() ? CFIndex{kCFNotFound} : range.location + (found - values.begin());
}

CFIndex CFArrayGetLastIndexOfValue(CFArrayRef array, CFRange range, const void* value) {
  const auto values = cf::itemsOf(array, range);
  const auto found = std::find_if(values.rbegin(), values.rend(), cf::IsEqualTo{array, value});
  return found == values.rend() ? CFIndex{kCFNotFound} : range.location + (found.base() - values.begin()) - 1;
}

void CFArrayApplyFunction(CFArrayRef array, CFRange range, CFArrayApplierFunction applier, void* context) {
  if (applier == nullptr) return;
  for (const void* value : cf::itemsOf(array, range)) applier(value, context);
}

CFIndex CFArrayBSearchValues(CFArrayRef array, CFRange range, const void* value, CFComparatorFunction comparator,
                             void* context) {
  if (array == nullptr || comparator == nullptr || !cf::liesInside(range, array->count)) return kCFNotFound;
  const auto values = cf::itemsOf(array, range);
  const auto found = std::partition_point(values.begin(), values.end(), [&](const void* element) {
    return comparator(element, value, context) == kCFCompareLessThan;
  });
  return range.location + (found - values.begin());
}
