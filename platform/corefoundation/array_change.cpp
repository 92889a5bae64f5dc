// Changing arrays.
//
// The release of a value may call back into the array it is taken from, so values are released only when the array is
// whole again.
#include <CoreFoundation/CFArray.h>

#include <algorithm>
#include <vector>

#include "platform/corefoundation/array_storage.h"

namespace cf {

void reserve(CFMutableArrayRef array, CFIndex count) {
  if (count <= array->capacity) return;
  const CFIndex capacity = std::max({count, array->capacity + array->capacity / 2, CFIndex{4}});
  if (capacity > PTRDIFF_MAX / 16) throw std::bad_alloc();
  void* const block = std::realloc(array->values, static_cast<std::size_t>(capacity) * sizeof(void*));
  if (block == nullptr) throw std::bad_alloc();
  array->values = static_cast<const void**>(block);
  array->capacity = capacity;
}

namespace {

// Whether the array can change, and may take the values.
bool canTake(CFMutableArrayRef array, std::span<const void* const> values) {
  return isMutable(array) && !(holdsObjects(array) && std::ranges::find(values, nullptr) != values.end());
}

bool canChange(CFMutableArrayRef array, CFRange range) { return isMutable(array) && liesInside(range, array->count); }

// Puts the values in place of the range.
void replaceValues(CFMutableArrayRef array, CFRange range, std::span<const void* const> newValues) {
  if (!canChange(array, range) || !canTake(array, newValues)) return;
  const CFIndex newCount = static_cast<CFIndex>(newValues.size());
  std::vector<const void*> coming(newValues.begin(), newValues.end());
  const std::vector<const void*> going(array->values + range.location, array->values + range.location + range.length);
  reserve(array, array->count - range.length + newCount);
  for (const void*& value : coming) value = retainValue(array, value);
  const void** const place = array->values + range.location;
  if (newCount <= range.length) {
    std::copy(place + range.length, array->values + array->count, place + newCount);
  } else {
    std::copy_backward(place + range.length, array->values + array->count,
                       array->values + array->count + (newCount - range.length));
  }
  std::ranges::copy(coming, place);
  array->count += newCount - range.length;
  for (const void* value : going) releaseValue(array, value);
}

// Stable, and within bounds whatever the comparator answers.
void mergeSort(std::vector<const void*>& values, CFComparatorFunction comparator, void* context) {
  const std::size_t count = values.size();
  std::vector<const void*> merged(count);
  for (std::size_t width = 1; width < count; width *= 2) {
    for (std::size_t begin = 0; begin < count; begin += 2 * width) {
      const std::size_t middle = std::min(begin + width, count);
      const std::size_t end = std::min(begin + 2 * width, count);
      std::size_t left = begin;
      std::size_t right = middle;
      for (std::size_t at = begin; at < end; ++at) {
        const bool takeRight = left == middle || (right < end && comparator(values[left], values[right], context) ==
                                                                     kCFCompareGreaterThan);
        merged[at] = takeRight ? values[right++] : values[left++];
      }
    }
    values.swap(merged);
  }
}

}  // namespace
}  // namespace cf

void CFArrayAppendValue(CFMutableArrayRef array, const void* value) {
  if (!cf::canTake(array, {&value, 1})) return;
  cf::reserve(array, array->count + 1);
  const void* const kept = cf::retainValue(array, value);
  array->values[array->count++] = kept;
}

void CFArrayInsertValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value) {
  cf::replaceValues(array, CFRangeMake(index, 0), {&value, 1});
}

void CFArraySetValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value) {
  cf::replaceValues(array, CFRangeMake(index, index == CFArrayGetCount(array) ? 0 : 1), {&value, 1});
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index) {
  cf::replaceValues(array, CFRangeMake(index, 1), {});
}

void CFArrayRemoveAllValues(CFMutableArrayRef array) {
  if (cf::isMutable(array)) cf::replaceValues(array, CFRangeMake(0, array->count), {});
}

void CFArrayAppendArray(CFMutableArrayRef array, CFArrayRef other, CFRange otherRange) {
  if (!cf::isMutable(array) || other == nullptr || !cf::liesInside(otherRange, other->count)) return;
  const auto values = cf::items(other).subspan(static_cast<std::size_t>(otherRange.location),
                                               static_cast<std::size_t>(otherRange.length));
  cf::replaceValues(array, CFRangeMake(array->count, 0), values);
}

void CFArrayReplaceValues(CFMutableArrayRef array, CFRange range, const void** newValues, CFIndex newCount) {
  if (newCount < 0 || (newValues == nullptr && newCount > 0)) return;
  cf::replaceValues(array, range, {newValues, static_cast<std::size_t>(newCount)});
}

void CFArrayExchangeValuesAtIndices(CFMutableArrayRef array, CFIndex first, CFIndex second) {
  if (!cf::canChange(array, CFRangeMake(first, 1)) || !cf::canChange(array, CFRangeMake(second, 1))) return;
  std::swap(array->values[first], array->values[second]);
}

void CFArraySortValues(CFMutableArrayRef array, CFRange range, CFComparatorFunction comparator, void* context) {
  if (comparator == nullptr || !cf::canChange(array, range)) return;
  const void** const begin = array->values + range.location;
  std::vector<const void*> values(begin, begin + range.length);
  cf::mergeSort(values, comparator, context);
  std::ranges::copy(values, array->values + range.location);
}
