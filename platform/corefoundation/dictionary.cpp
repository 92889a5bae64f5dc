// Creating, comparing and destroying dictionaries. The table is in dictionary_table.cpp, reading and changing in
// dictionary_access.cpp.
#include "platform/corefoundation/dictionary.h"

#include "platform/corefoundation/dictionary_storage.h"
#include "platform/corefoundation/string.h"

namespace cf {
namespace {

const void* copyStringKey(CFAllocatorRef allocator, const void* key) {
  return isString(key) ? CFStringCreateCopy(allocator, static_cast<CFStringRef>(key)) : CFRetain(key);
}

}  // namespace
}  // namespace cf

constinit const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks{
    0, cf::retainObject, cf::releaseObject, CFCopyDescription, CFEqual, CFHash};
constinit const CFDictionaryKeyCallBacks kCFCopyStringDictionaryKeyCallBacks{
    0, cf::copyStringKey, cf::releaseObject, CFCopyDescription, CFEqual, CFHash};
constinit const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks{0, cf::retainObject, cf::releaseObject,
                                                                           CFCopyDescription, CFEqual};

namespace cf {
namespace {

constinit const CFDictionaryKeyCallBacks noKeyCallBacks{0, nullptr, nullptr, nullptr, nullptr, nullptr};
constinit const CFDictionaryValueCallBacks noValueCallBacks{0, nullptr, nullptr, nullptr, nullptr};

std::uint32_t infoOf(const CFDictionaryKeyCallBacks* callBacks) noexcept {
  if (callBacks == nullptr || callBacks->release != releaseObject || callBacks->equal != CFEqual ||
      callBacks->hash != CFHash) {
    return 0;
  }
  if (callBacks->retain == retainObject) return kDictionaryKeysAreObjects;
  return callBacks->retain == copyStringKey ? kDictionaryKeysAreObjects | kDictionaryCopiesKeys : 0;
}

std::uint32_t infoOf(const CFDictionaryValueCallBacks* callBacks) noexcept {
  const bool standard = callBacks != nullptr && callBacks->retain == retainObject &&
                        callBacks->release == releaseObject && callBacks->equal == CFEqual;
  return standard ? kDictionaryValuesAreObjects : 0;
}

void finalizeDictionary(void* object) noexcept {
  CFDictionaryStorage* const dictionary = static_cast<CFDictionaryStorage*>(object);
  for (const DictionaryEntry& entry : entries(dictionary)) {
    releaseKey(dictionary, entry.key);
    releaseValue(dictionary, entry.value);
  }
  if ((dictionary->head.info & kDictionaryIsMutable) != 0) std::free(dictionary->entries);
  std::free(object);
}

bool dictionariesAreEqual(const void* leftObject, const void* rightObject, PendingComparisons& inside) {
  const CFDictionaryRef left = static_cast<CFDictionaryRef>(leftObject);
  const CFDictionaryRef right = static_cast<CFDictionaryRef>(rightObject);
  const CFDictionaryEqualCallBack equalValues = left->valueCallBacks->equal;
  if (left->count != right->count || left->keyCallBacks->equal != right->keyCallBacks->equal ||
      left->keyCallBacks->hash != right->keyCallBacks->hash || equalValues != right->valueCallBacks->equal) {
    return false;
  }
  for (const DictionaryEntry& entry : entries(left)) {
    const DictionaryEntry* const other = findEntry(right, entry.key, entry.hash);
    if (other == nullptr) return false;
    const bool same = equalValues == CFEqual ? inside.add(entry.value, other->value)
                                             : entry.value == other->value ||
                                                   (equalValues != nullptr && equalValues(entry.value, other->value));
    if (!same) return false;
  }
  return true;
}

// By the keys, in any order.
CFHashCode hashOfDictionary(const void* object) {
  CFHashCode sum = static_cast<CFHashCode>(static_cast<CFDictionaryRef>(object)->count);
  for (const DictionaryEntry& entry : entries(static_cast<CFDictionaryRef>(object))) sum += mixBits(entry.hash);
  return mixBits(sum);
}

CFStringRef copyDictionaryDescription(const void* dictionary) {
  std::string text;
  appendDictionaryDescription(text, dictionary, 0);
  return createText(text);
}

}  // namespace

constinit const CFRuntimeClass kDictionaryClass{"CFDictionary",      finalizeDictionary,        nullptr,
                                                hashOfDictionary,    copyDictionaryDescription, true,
                                                dictionariesAreEqual};

const void* retainKey(CFDictionaryRef dictionary, const void* key) {
  if ((dictionary->head.info & kDictionaryCopiesKeys) != 0) return copyStringKey(nullptr, key);
  if (keysAreObjects(dictionary)) {
    retain(key);
    return key;
  }
  const CFDictionaryRetainCallBack retainByCallBack = dictionary->keyCallBacks->retain;
  return retainByCallBack != nullptr ? retainByCallBack(nullptr, key) : key;
}

void releaseKey(CFDictionaryRef dictionary, const void* key) {
  if (keysAreObjects(dictionary)) {
    release(key);
  } else if (dictionary->keyCallBacks->release != nullptr) {
    dictionary->keyCallBacks->release(nullptr, key);
  }
}

const void* retainValue(CFDictionaryRef dictionary, const void* value) {
  if (valuesAreObjects(dictionary)) {
    retain(value);
    return value;
  }
  const CFDictionaryRetainCallBack retainByCallBack = dictionary->valueCallBacks->retain;
  return retainByCallBack != nullptr ? retainByCallBack(nullptr, value) : value;
}

void releaseValue(CFDictionaryRef dictionary, const void* value) {
  if (valuesAreObjects(dictionary)) {
    release(value);
  } else if (dictionary->valueCallBacks->release != nullptr) {
    dictionary->valueCallBacks->release(nullptr, value);
  }
}

CFDictionaryStorage* createDictionary(const DictionaryRoom& room, const CFDictionaryKeyCallBacks* keyCallBacks,
                                      const CFDictionaryValueCallBacks* valueCallBacks) {
  const std::uint32_t info = infoOf(keyCallBacks) | infoOf(valueCallBacks);
  const bool customKeys = keyCallBacks != nullptr && (info & kDictionaryKeysAreObjects) == 0;
  const bool customValues = valueCallBacks != nullptr && (info & kDictionaryValuesAreObjects) == 0;
  const std::size_t tableBytes = (room.bytes() + 7) & ~std::size_t{7};
  const std::size_t extra =
      tableBytes + (customKeys ? sizeof *keyCallBacks : 0) + (customValues ? sizeof *valueCallBacks : 0);
  CFDictionaryStorage* const dictionary =
      create<CFDictionaryStorage>(kDictionaryClass, extra, nullptr, &noKeyCallBacks, &noValueCallBacks);
  dictionary->head.info = info;
  if ((info & kDictionaryKeysAreObjects) != 0) {
    dictionary->keyCallBacks =
        (info & kDictionaryCopiesKeys) != 0 ? &kCFCopyStringDictionaryKeyCallBacks : &kCFTypeDictionaryKeyCallBacks;
  }
  if ((info & kDictionaryValuesAreObjects) != 0) dictionary->valueCallBacks = &kCFTypeDictionaryValueCallBacks;
  char* behind = reinterpret_cast<char*>(dictionary + 1);
  useBlock(dictionary, behind, room);
  behind += tableBytes;
  if (customKeys) {
    dictionary->keyCallBacks = ::new (static_cast<void*>(behind)) CFDictionaryKeyCallBacks(*keyCallBacks);
    behind += sizeof *keyCallBacks;
  }
  if (customValues) {
    dictionary->valueCallBacks = ::new (static_cast<void*>(behind)) CFDictionaryValueCallBacks(*valueCallBacks);
  }
  return dictionary;
}

CFMutableDictionaryRef createMutableDictionary(const CFDictionaryKeyCallBacks* keyCallBacks,
                                               const CFDictionaryValueCallBacks* valueCallBacks) {
  CFDictionaryStorage* const dictionary = createDictionary(DictionaryRoom(0), keyCallBacks, valueCallBacks);
  dictionary->head.info |= kDictionaryIsMutable;
  dictionary->entries = nullptr;
  return dictionary;
}

namespace {

void takePairs(CFDictionaryStorage* dictionary, std::span<const KeyAndValue> pairs) {
  for (const KeyAndValue& pair : pairs) {
    const CFHashCode hash = hashOfKey(dictionary, pair.key);
    if (DictionaryEntry* const entry = findEntry(dictionary, pair.key, hash)) {
      release(pair.key);
      release(std::exchange(entry->value, pair.value));
    } else {
      addEntry(dictionary, pair.key, pair.value, hash);
    }
  }
}

}  // namespace

CFDictionaryRef createDictionaryTaking(std::span<const KeyAndValue> pairs) {
  CFDictionaryStorage* const dictionary =
      createDictionary(DictionaryRoom(static_cast<CFIndex>(pairs.size())), &kCFTypeDictionaryKeyCallBacks,
                       &kCFTypeDictionaryValueCallBacks);
  takePairs(dictionary, pairs);
  return dictionary;
}

CFMutableDictionaryRef createMutableDictionaryTaking(std::span<const KeyAndValue> pairs) {
  Owned<CFMutableDictionaryRef> dictionary(
      createMutableDictionary(&kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  if (!pairs.empty()) rebuild(dictionary.get(), static_cast<CFIndex>(pairs.size()));
  takePairs(dictionary.get(), pairs);
  return dictionary.take();
}

DictionaryEntries entries(CFDictionaryRef dictionary) {
  if (dictionary == nullptr) return {nullptr, nullptr};
  return {dictionary->entries, dictionary->entries + dictionary->used};
}

bool isMutable(CFDictionaryRef dictionary) {
  return dictionary != nullptr && (dictionary->head.info & kDictionaryIsMutable) != 0;
}

void appendDictionaryDescription(std::string& text, const void* object, int depth) {
  const CFDictionaryRef dictionary = static_cast<CFDictionaryRef>(object);
  const auto append = [&](const void* value, bool isObject, CFStringRef (*copyDescription)(const void*)) {
    if (isObject) {
      appendDescription(text, value, depth + 1);
    } else {
      appendValueDescription(text, value, copyDescription);
    }
  };
  const char* separator = "{";
  for (const DictionaryEntry& entry : entries(dictionary)) {
    text += separator;
    separator = ", ";
    append(entry.key, keysAreObjects(dictionary), dictionary->keyCallBacks->copyDescription);
    text += " = ";
    append(entry.value, valuesAreObjects(dictionary), dictionary->valueCallBacks->copyDescription);
  }
  text += dictionary->count == 0 ? "{}" : "}";
}

}  // namespace cf

CFTypeID CFDictionaryGetTypeID() { return cf::typeID(cf::kDictionaryClass); }

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex count,
                                   const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks) {
  if (count < 0 || (count > 0 && (keys == nullptr || values == nullptr))) return nullptr;
  cf::Owned<CFDictionaryStorage*> dictionary(
      cf::createDictionary(cf::DictionaryRoom(count), keyCallBacks, valueCallBacks));
  for (CFIndex i = 0; i < count; ++i) {
    if (!cf::accepts(dictionary.get(), keys[i], values[i])) return nullptr;
    cf::setRetaining(dictionary.get(), keys[i], values[i]);
  }
  return dictionary.take();
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef, CFDictionaryRef dictionary) {
  if (dictionary == nullptr) return nullptr;
  if (!cf::isMutable(dictionary)) return static_cast<CFDictionaryRef>(CFRetain(dictionary));
  cf::Owned<CFDictionaryStorage*> copy(cf::createDictionary(cf::DictionaryRoom(dictionary->count),
                                                            dictionary->keyCallBacks, dictionary->valueCallBacks));
  for (const cf::DictionaryEntry& entry : cf::entries(dictionary)) {
    cf::setRetaining(copy.get(), entry.key, entry.value);
  }
  return copy.take();
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
  constexpr CFIndex greatestRoomAhead = 4096;
  cf::Owned<CFMutableDictionaryRef> dictionary(cf::createMutableDictionary(keyCallBacks, valueCallBacks));
  if (capacity > 0) cf::rebuild(dictionary.get(), capacity < greatestRoomAhead ? capacity : greatestRoomAhead);
  return dictionary.take();
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex, CFDictionaryRef dictionary) {
  if (dictionary == nullptr) return nullptr;
  cf::Owned<CFMutableDictionaryRef> copy(
      cf::createMutableDictionary(dictionary->keyCallBacks, dictionary->valueCallBacks));
  if (dictionary->count > 0) cf::rebuild(copy.get(), dictionary->count);
  for (const cf::DictionaryEntry& entry : cf::entries(dictionary)) {
    cf::setRetaining(copy.get(), entry.key, entry.value);
  }
  return copy.take();
}
