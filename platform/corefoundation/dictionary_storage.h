// dictionary_storage.h: how a dictionary is laid out, for the files that are the dictionary.
//
// The pairs stand in the order in which they were added, in one list of entries; beyond a handful of them an
// open-addressing table of entry numbers finds a key. Removing a pair leaves a hole in the list, which goes when the
// list is built anew.
#pragma once

#include <cstdint>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/dictionary.h"

// The entries and the slots lie behind an immutable dictionary's object, or in a block of their own that begins with
// the entries. Copies of the callbacks, where they are not the standard ones, come last in the object's block.
struct CFDictionaryStorage {
  CFObjectHead head;
  CFObjectHead* nextToDestroy;
  const CFDictionaryKeyCallBacks* keyCallBacks;
  const CFDictionaryValueCallBacks* valueCallBacks;
  cf::DictionaryEntry* entries = nullptr;
  std::uint32_t* slots = nullptr;  // an entry's number plus one, 0 where free; null while a scan is quicker
  CFIndex count = 0;               // pairs
  CFIndex used = 0;                // entries, holes included
  CFIndex capacity = 0;            // entries that there is room for
  std::uint32_t slotBits = 0;      // there are 2 to this power of slots
};

namespace cf {

// The bits of the head's info.
constexpr std::uint32_t kDictionaryIsMutable = 1;
constexpr std::uint32_t kDictionaryKeysAreObjects = 2;  // retained, released, compared and hashed as such
constexpr std::uint32_t kDictionaryValuesAreObjects = 4;
constexpr std::uint32_t kDictionaryCopiesKeys = 8;  // besides kDictionaryKeysAreObjects

inline bool keysAreObjects(CFDictionaryRef dictionary) noexcept {
  return (dictionary->head.info & kDictionaryKeysAreObjects) != 0;
}
inline bool valuesAreObjects(CFDictionaryRef dictionary) noexcept {
  return (dictionary->head.info & kDictionaryValuesAreObjects) != 0;
}
// Whether the dictionary can hold such a pair.
inline bool accepts(CFDictionaryRef dictionary, const void* key, const void* value) noexcept {
  return (key != nullptr || !keysAreObjects(dictionary)) && (value != nullptr || !valuesAreObjects(dictionary));
}

const void* retainKey(CFDictionaryRef dictionary, const void* key);
void releaseKey(CFDictionaryRef dictionary, const void* key);
const void* retainValue(CFDictionaryRef dictionary, const void* value);
void releaseValue(CFDictionaryRef dictionary, const void* value);
CFHashCode hashOfKey(CFDictionaryRef dictionary, const void* key);

// How the entries and slots for a number of pairs share a block.
struct DictionaryRoom {
  CFIndex capacity;
  std::uint32_t slotBits;  // 0: no slots

  // Throws std::bad_alloc beyond what a table can number.
  explicit DictionaryRoom(CFIndex pairs);
  std::size_t slotBytes() const noexcept { return slotBits == 0 ? 0 : sizeof(std::uint32_t) << slotBits; }
  std::size_t bytes() const noexcept {
    return static_cast<std::size_t>(capacity) * sizeof(DictionaryEntry) + slotBytes();
  }
};

// An empty dictionary with this room behind it.
CFDictionaryStorage* createDictionary(const DictionaryRoom& room, const CFDictionaryKeyCallBacks* keyCallBacks,
                                      const CFDictionaryValueCallBacks* valueCallBacks);
// An empty mutable dictionary.
CFMutableDictionaryRef createMutableDictionary(const CFDictionaryKeyCallBacks* keyCallBacks,
                                               const CFDictionaryValueCallBacks* valueCallBacks);
// Makes the block, which has this room, the dictionary's empty table.
void useBlock(CFDictionaryStorage* dictionary, void* block, const DictionaryRoom& room) noexcept;
// Makes room for so many pairs in a mutable dictionary, and closes the holes.
void rebuild(CFMutableDictionaryRef dictionary, CFIndex pairs);

// The entry of the key; null when there is none.
DictionaryEntry* findEntry(CFDictionaryRef dictionary, const void* key, CFHashCode hash);
// Adds an entry for a key that is not there; there must be room. Takes key and value as they are.
void addEntry(CFDictionaryStorage* dictionary, const void* key, const void* value, CFHashCode hash) noexcept;
// Adds a pair of the caller's, or replaces the value; there must be room.
void setRetaining(CFDictionaryStorage* dictionary, const void* key, const void* value);

}  // namespace cf
