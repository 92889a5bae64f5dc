// The table inside a dictionary: finding and adding entries.
#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/corefoundation/dictionary_storage.h"
#include "platform/corefoundation/string.h"

namespace cf {

constinit const char DictionaryEntry::hole = 0;

namespace {

// Up to so many entries are scanned.
constexpr CFIndex kScannedEntries = 8;
constexpr CFIndex kGreatestCapacity = CFIndex{1} << 31;

std::size_t firstSlot(CFHashCode hash, std::uint32_t slotBits) noexcept {
  return (hash * 0x9E3779B97F4A7C15ULL) >> (64 - slotBits);
}

// Of keys with the same hash.
bool keysAreEqual(CFDictionaryRef dictionary, const void* held, const void* sought) {
  if (held == sought) return true;
  if (keysAreObjects(dictionary)) {
    if (isString(held) && isString(sought)) {
      return stringsAreEqual(static_cast<CFStringRef>(held), static_cast<CFStringRef>(sought));
    }
    return equal(held, sought);
  }
  return dictionary->keyCallBacks->equal != nullptr && dictionary->keyCallBacks->equal(held, sought);
}

bool isEntryOf(CFDictionaryRef dictionary, const DictionaryEntry& entry, const void* key, CFHashCode hash) {
  return entry.hash == hash && !entry.isHole() && keysAreEqual(dictionary, entry.key, key);
}

void addSlot(CFDictionaryStorage* dictionary, CFIndex number, CFHashCode hash) noexcept {
  const std::size_t mask = (std::size_t{1} << dictionary->slotBits) - 1;
  std::size_t slot = firstSlot(hash, dictionary->slotBits);
  while (dictionary->slots[slot] != 0) slot = (slot + 1) & mask;
  dictionary->slots[slot] = static_cast<std::uint32_t>(number + 1);
}

}  // namespace

// At most two thirds of the slots are taken.
DictionaryRoom::DictionaryRoom(CFIndex pairs) : capacity(pairs), slotBits(0) {
  if (pairs > kGreatestCapacity) throw std::bad_alloc();
  if (pairs > kScannedEntries) {
    slotBits = static_cast<std::uint32_t>(std::bit_width(static_cast<std::uint64_t>(pairs + pairs / 2)));
  }
}

void useBlock(CFDictionaryStorage* dictionary, void* block, const DictionaryRoom& room) noexcept {
  dictionary->entries = static_cast<DictionaryEntry*>(block);
  dictionary->slots = nullptr;
  if (room.slotBits != 0) {
    dictionary->slots = reinterpret_cast<std::uint32_t*>(dictionary->entries + room.capacity);
    std::memset(dictionary->slots, 0, room.slotBytes());
  }
  dictionary->count = 0;
  dictionary->used = 0;
  dictionary->capacity = room.capacity;
  dictionary->slotBits = room.slotBits;
}

void rebuild(CFMutableDictionaryRef dictionary, CFIndex pairs) {
  const DictionaryRoom room(std::max(pairs, dictionary->count));
  DictionaryEntry* const old = dictionary->entries;
  const DictionaryEntries live = entries(dictionary);
  void* const block = std::malloc(room.bytes());
  if (block == nullptr) throw std::bad_alloc();
  useBlock(dictionary, block, room);
  for (const DictionaryEntry& entry : live) addEntry(dictionary, entry.key, entry.value, entry.hash);
  std::free(old);
}

CFHashCode hashOfKey(CFDictionaryRef dictionary, const void* key) {
  if (keysAreObjects(dictionary)) {
    return isString(key) ? stringHash(static_cast<CFStringRef>(key)) : hash(key);
  }
  const CFDictionaryHashCallBack hashByCallBack = dictionary->keyCallBacks->hash;
  return hashByCallBack != nullptr ? hashByCallBack(key) : mixBits(reinterpret_cast<std::uintptr_t>(key));
}

DictionaryEntry* findEntry(CFDictionaryRef dictionary, const void* key, CFHashCode hash) {
  if (dictionary->slots == nullptr) {
    for (CFIndex i = 0; i < dictionary->used; ++i) {
      if (isEntryOf(dictionary, dictionary->entries[i], key, hash)) return &dictionary->entries[i];
    }
    return nullptr;
  }
  const std::size_t mask = (std::size_t{1} << dictionary->slotBits) - 1;
  for (std::size_t slot = firstSlot(hash, dictionary->slotBits);; slot = (slot + 1) & mask) {
    const std::uint32_t number = dictionary->slots[slot];
    if (number == 0) return nullptr;
    if (isEntryOf(dictionary, dictionary->entries[number - 1], key, hash)) return &dictionary->entries[number - 1];
  }
}

void addEntry(CFDictionaryStorage* dictionary, const void* key, const void* value, CFHashCode hash) noexcept {
  dictionary->entries[dictionary->used] = {key, value, hash};
  if (dictionary->slots != nullptr) addSlot(dictionary, dictionary->used, hash);
  ++dictionary->used;
  ++dictionary->count;
}

void setRetaining(CFDictionaryStorage* dictionary, const void* key, const void* value) {
  const CFHashCode hash = hashOfKey(dictionary, key);
  const void* const kept = retainValue(dictionary, value);
  if (DictionaryEntry* const entry = findEntry(dictionary, key, hash)) {
    const void* const old = std::exchange(entry->value, kept);
    releaseValue(dictionary, old);
  } else {
    addEntry(dictionary, retainKey(dictionary, key), kept, hash);
  }
}

}  // namespace cf
