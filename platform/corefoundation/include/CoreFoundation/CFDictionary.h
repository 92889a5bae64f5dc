/* CFDictionary.h: maps from keys to values, objects unless the callbacks say otherwise.
 *
 * The pairs keep the order in which their keys were first added, and every function that gives several of them gives
 * them in that order: replacing a value keeps the pair's place, removing a key and adding it again moves it to the
 * end. A property list is therefore written in the order in which it was built or read.
 *
 * To change an immutable dictionary, or to put NULL where an object must be, is a caller's mistake and changes
 * nothing. A key must not change while it is in a dictionary. */
#ifndef COREFOUNDATION_CFDICTIONARY_H
#define COREFOUNDATION_CFDICTIONARY_H

#include <CoreFoundation/CFBase.h>

typedef const struct CFDictionaryStorage* CFDictionaryRef;
typedef struct CFDictionaryStorage* CFMutableDictionaryRef;

typedef const void* (*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void* left, const void* right);
typedef CFHashCode (*CFDictionaryHashCallBack)(const void* value);
typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

/* What a dictionary does with its keys. Each function may be NULL: keys are then kept as they are, described by
 * their address, equal when they are the same pointer and hashed by it. Equal keys must have equal hashes. The key
 * that retain gives back is the one that is kept. */
typedef struct {
  CFIndex version; /* 0 */
  CFDictionaryRetainCallBack retain;
  CFDictionaryReleaseCallBack release;
  CFDictionaryCopyDescriptionCallBack copyDescription;
  CFDictionaryEqualCallBack equal;
  CFDictionaryHashCallBack hash;
} CFDictionaryKeyCallBacks;

/* What it does with its values, in the same way. */
typedef struct {
  CFIndex version; /* 0 */
  CFDictionaryRetainCallBack retain;
  CFDictionaryReleaseCallBack release;
  CFDictionaryCopyDescriptionCallBack copyDescription;
  CFDictionaryEqualCallBack equal;
} CFDictionaryValueCallBacks;

CF_EXTERN_C_BEGIN

/* The keys are objects. */
CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
/* The keys are strings, copied when they are added, so that a mutable one may be used. */
CF_EXPORT const CFDictionaryKeyCallBacks kCFCopyStringDictionaryKeyCallBacks;
/* The values are objects. */
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

CF_EXPORT CFTypeID CFDictionaryGetTypeID(void);

/* A dictionary of the pairs, each key and value retained; of equal keys the last value counts. The callbacks are
 * copied; NULL means none of them. The caller owns the dictionary. NULL when count is negative, a list is NULL with
 * a count, or a key or value is NULL where an object must be. */
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                             CFIndex count, const CFDictionaryKeyCallBacks* keyCallBacks,
                                             const CFDictionaryValueCallBacks* valueCallBacks);
/* An immutable dictionary of the same pairs and callbacks, which may be the same object with a reference added. */
CF_EXPORT CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator, CFDictionaryRef dictionary);
/* An empty dictionary that can change. The capacity is a hint: 0 when unknown, and the dictionary grows past it when
 * needed. */
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                           const CFDictionaryKeyCallBacks* keyCallBacks,
                                                           const CFDictionaryValueCallBacks* valueCallBacks);
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                               CFDictionaryRef dictionary);

CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
/* 1 or 0. */
CF_EXPORT CFIndex CFDictionaryGetCountOfKey(CFDictionaryRef dictionary, const void* key);
CF_EXPORT CFIndex CFDictionaryGetCountOfValue(CFDictionaryRef dictionary, const void* value);
CF_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key);
CF_EXPORT Boolean CFDictionaryContainsValue(CFDictionaryRef dictionary, const void* value);
/* The value of the key, not retained; NULL when there is none. */
CF_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
/* Whether there is one; it is stored behind value unless that is NULL. When there is none nothing is stored. */
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key, const void** value);
/* Stores all keys and values, not retained, in the caller's buffers; either may be NULL. */
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values);
/* Calls the function with each pair. It must not change the dictionary. */
CF_EXPORT void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction applier,
                                         void* context);

/* Adds the pair unless the key is there. */
CF_EXPORT void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
/* Adds the pair, or replaces the value; the key that is there stays. */
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
/* Replaces the value if the key is there. */
CF_EXPORT void CFDictionaryReplaceValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key);
CF_EXPORT void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary);

CF_EXTERN_C_END

#endif
