// Reading and changing dictionaries.
//
// The release of a key or value may call back into the dictionary it is taken from, so it comes last, when the
// dictionary is whole again.
#include <CoreFoundation/CFDictionary.h>

#include "platform/corefoundation/dictionary_storage.h"

namespace cf {
namespace {

DictionaryEntry* find(CFDictionaryRef dictionary, const void* key) {
  if (dictionary == nullptr || dictionary->count == 0 || (key == nullptr && keysAreObjects(dictionary))) return nullptr;
  return findEntry(dictionary, key, hashOfKey(dictionary, key));
}

bool canTake(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
  return isMutable(dictionary) && accepts(dictionary, key, value);
}

// Room for one more pair. When holes are what fills the list, closing them is enough.
void makeRoomForOne(CFMutableDictionaryRef dictionary) {
  if (dictionary->used < dictionary->capacity) return;
  const bool mostlyPairs = dictionary->count >= dictionary->used - dictionary->used / 4;
  const CFIndex wanted = mostlyPairs ? dictionary->capacity * 2 : dictionary->capacity;
  rebuild(dictionary, wanted < 8 ? 8 : wanted);
}

void addPair(CFMutableDictionaryRef dictionary, const void* key, const void* value, CFHashCode hash) {
  makeRoomForOne(dictionary);
  const void* const keptKey = retainKey(dictionary, key);
  addEntry(dictionary, keptKey, retainValue(dictionary, value), hash);
}

void replaceValue(CFMutableDictionaryRef dictionary, DictionaryEntry* entry, const void* value) {
  const void* const kept = retainValue(dictionary, value);
  releaseValue(dictionary, std::exchange(entry->value, kept));
}

// The slot keeps the number of the hole, so that searches for other keys go on past it.
void removeEntry(CFMutableDictionaryRef dictionary, DictionaryEntry* entry) {
  const DictionaryEntry removed = std::exchange(*entry, {&DictionaryEntry::hole, nullptr, 0});
  --dictionary->count;
  releaseKey(dictionary, removed.key);
  releaseValue(dictionary, removed.value);
}

bool valuesAreEqual(CFDictionaryRef dictionary, const void* held, const void* sought) {
  if (held == sought) return true;
  if (valuesAreObjects(dictionary)) return equal(held, sought);
  return dictionary->valueCallBacks->equal != nullptr && dictionary->valueCallBacks->equal(held, sought);
}

}  // namespace
}  // namespace cf

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) { return dictionary == nullptr ? 0 : dictionary->count; }

CFIndex CFDictionaryGetCountOfKey(CFDictionaryRef dictionary, const void* key) {
  return cf::find(dictionary, key) != nullptr ? 1 : 0;
}

CFIndex CFDictionaryGetCountOfValue(CFDictionaryRef dictionary, const void* value) {
  CFIndex count = 0;
  for (const cf::DictionaryEntry& entry : cf::entries(dictionary)) {
    if (cf::valuesAreEqual(dictionary, entry.value, value)) ++count;
  }
  return count;
}

Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key) {
  return cf::find(dictionary, key) != nullptr;
}

Boolean CFDictionaryContainsValue(CFDictionaryRef dictionary, const void* value) {
  for (const cf::DictionaryEntry& entry : cf::entries(dictionary)) {
    if (cf::valuesAreEqual(dictionary, entry.value, value)) return true;
  }
  return false;
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  const cf::DictionaryEntry* const entry = cf::find(dictionary, key);
  return entry != nullptr ? entry->value : nullptr;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key, const void** value) {
  const cf::DictionaryEntry* const entry = cf::find(dictionary, key);
  if (entry == nullptr) return false;
  if (value != nullptr) *value = entry->value;
  return true;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values) {
  for (const cf::DictionaryEntry& entry : cf::entries(dictionary)) {
    if (keys != nullptr) *keys++ = entry.key;
    if (values != nullptr) *values++ = entry.value;
  }
}

void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction applier, void* context) {
  if (applier == nullptr) return;
  for (const cf::DictionaryEntry& entry : cf::entries(dictionary)) applier(entry.key, entry.value, context);
}

void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
  if (!cf::canTake(dictionary, key, value)) return;
  const CFHashCode hash = cf::hashOfKey(dictionary, key);
  if (cf::findEntry(dictionary, key, hash) == nullptr) cf::addPair(dictionary, key, value, hash);
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
  if (!cf::canTake(dictionary, key, value)) return;
  const CFHashCode hash = cf::hashOfKey(dictionary, key);
  if (cf::DictionaryEntry* const entry = cf::findEntry(dictionary, key, hash)) {
    cf::replaceValue(dictionary, entry, value);
  } else {
    cf::addPair(dictionary, key, value, hash);
  }
}

void CFDictionaryReplaceValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
  if (!cf::canTake(dictionary, key, value)) return;
  if (cf::DictionaryEntry* const entry = cf::find(dictionary, key)) cf::replaceValue(dictionary, entry, value);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key) {
  if (!cf::isMutable(dictionary)) return;
  if (cf::DictionaryEntry* const entry = cf::find(dictionary, key)) cf::removeEntry(dictionary, entry);
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary) {
  if (!cf::isMutable(dictionary)) return;
  cf::DictionaryEntry* const old = dictionary->entries;
  const cf::DictionaryEntries removed = cf::entries(dictionary);
  cf::useBlock(dictionary, nullptr, cf::DictionaryRoom(0));
  for (const cf::DictionaryEntry& entry : removed) {
    cf::releaseKey(dictionary, entry.key);
    cf::releaseValue(dictionary, entry.value);
  }
  std::free(old);
}
