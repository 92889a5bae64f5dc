/* CFArray.h: ordered lists of pointers, objects unless the callbacks say otherwise.
 *
 * An index or range that does not lie inside the array is a caller's mistake: reading answers NULL or stores
 * nothing, changing changes nothing. So it is to change an immutable array, and to put NULL into an array with
 * kCFTypeArrayCallBacks. */
#ifndef COREFOUNDATION_CFARRAY_H
#define COREFOUNDATION_CFARRAY_H

#include <CoreFoundation/CFBase.h>

typedef const struct CFArrayStorage* CFArrayRef;
typedef struct CFArrayStorage* CFMutableArrayRef;

typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* left, const void* right);
typedef void (*CFArrayApplierFunction)(const void* value, void* context);

/* What an array does with its values. Each function may be NULL: values are then kept as they are, described by
 * their address, equal when they are the same pointer. The value that retain gives back is the one that is kept. */
typedef struct {
  CFIndex version; /* 0 */
  CFArrayRetainCallBack retain;
  CFArrayReleaseCallBack release;
  CFArrayCopyDescriptionCallBack copyDescription;
  CFArrayEqualCallBack equal;
} CFArrayCallBacks;

CF_EXTERN_C_BEGIN

/* The values are objects: retained, released, described and compared as such. */
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

CF_EXPORT CFTypeID CFArrayGetTypeID(void);

/* An array of the values, each retained. The callbacks are copied; NULL means none of them. The caller owns the
 * array. NULL when count is negative, values is NULL with a count, or a value is NULL where an object must be. */
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                                   const CFArrayCallBacks* callBacks);
/* An immutable array of the same values and callbacks, which may be the same object with a reference added. */
CF_EXPORT CFArrayRef CFArrayCreateCopy(CFAllocatorRef allocator, CFArrayRef array);
/* An empty array that can change. The capacity is a hint: 0 when unknown, and the array grows past it when needed. */
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks* callBacks);
CF_EXPORT CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity, CFArrayRef array);

CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef array);
CF_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
/* Stores the values of the range, not retained, in the caller's buffer. */
CF_EXPORT void CFArrayGetValues(CFArrayRef array, CFRange range, const void** values);
/* Searches go through the range only, with the array's equal callback. */
CF_EXPORT Boolean CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value);
CF_EXPORT CFIndex CFArrayGetCountOfValue(CFArrayRef array, CFRange range, const void* value);
/* The index in the array, or kCFNotFound. */
CF_EXPORT CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value);
CF_EXPORT CFIndex CFArrayGetLastIndexOfValue(CFArrayRef array, CFRange range, const void* value);
/* Calls the function with each value of the range, in order. It must not change the array. */
CF_EXPORT void CFArrayApplyFunction(CFArrayRef array, CFRange range, CFArrayApplierFunction applier, void* context);
/* The range must be sorted by the comparator. The index of an equal value; else of the first greater one, which is
 * the range's end when there is none. kCFNotFound for a range outside the array. */
CF_EXPORT CFIndex CFArrayBSearchValues(CFArrayRef array, CFRange range, const void* value,
                                       CFComparatorFunction comparator, void* context);

CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef array, const void* value);
/* The index may be the count, which appends. */
CF_EXPORT void CFArrayInsertValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value);
/* The index may be the count, which appends. */
CF_EXPORT void CFArraySetValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value);
CF_EXPORT void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index);
CF_EXPORT void CFArrayRemoveAllValues(CFMutableArrayRef array);
/* Appends the range of the other array, which may be the same one. */
CF_EXPORT void CFArrayAppendArray(CFMutableArrayRef array, CFArrayRef other, CFRange otherRange);
/* Puts the new values in place of the range. */
CF_EXPORT void CFArrayReplaceValues(CFMutableArrayRef array, CFRange range, const void** newValues, CFIndex newCount);
CF_EXPORT void CFArrayExchangeValuesAtIndices(CFMutableArrayRef array, CFIndex first, CFIndex second);
/* Sorts the range; values that compare equal keep their order. A comparator that contradicts itself gives an order
 * that means nothing, and no worse. */
CF_EXPORT void CFArraySortValues(CFMutableArrayRef array, CFRange range, CFComparatorFunction comparator,
                                 void* context);

CF_EXTERN_C_END

#endif
