// dictionary.h: direct access to dictionaries for the rest of this folder.
#pragma once

#include <CoreFoundation/CFDictionary.h>

#include <cstddef>
#include <iterator>
#include <span>

namespace cf {

// One pair, for building.
struct KeyAndValue {
  const void* key;
  const void* value;
};

// A dictionary of objects in the order given that takes over the caller's references to every key and value; none
// may be null. Of equal keys the first keeps its place and gets the last value. The caller owns the dictionary.
// Should memory run out, the exception leaves the references with the caller.
CFDictionaryRef createDictionaryTaking(std::span<const KeyAndValue> pairs);
// The same, as a dictionary that can change.
CFMutableDictionaryRef createMutableDictionaryTaking(std::span<const KeyAndValue> pairs);

// One pair as it is held. A removed pair leaves a hole until the dictionary is packed again.
struct DictionaryEntry {
  const void* key;
  const void* value;
  CFHashCode hash;

  bool isHole() const noexcept { return key == &hole; }

  static const char hole;  // the key of a hole: no caller can know its address
};

// The pairs in order, for `for (const DictionaryEntry& entry : entries(dictionary))`; good until the dictionary
// changes or goes.
class DictionaryEntries {
 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = DictionaryEntry;
    using difference_type = std::ptrdiff_t;
    using pointer = const DictionaryEntry*;
    using reference = const DictionaryEntry&;

    Iterator() noexcept = default;
    Iterator(const DictionaryEntry* at, const DictionaryEntry* end) noexcept : at_(at), end_(end) { skipHoles(); }
    reference operator*() const noexcept { return *at_; }
    pointer operator->() const noexcept { return at_; }
    Iterator& operator++() noexcept {
      ++at_;
      skipHoles();
      return *this;
    }
    Iterator operator++(int) noexcept {
      Iterator old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(const Iterator& left, const Iterator& right) noexcept { return left.at_ == right.at_; }

   private:
    void skipHoles() noexcept {
      while (at_ != end_ && at_->isHole()) ++at_;
    }
    const DictionaryEntry* at_ = nullptr;
    const DictionaryEntry* end_ = nullptr;
  };

  DictionaryEntries(const DictionaryEntry* begin, const DictionaryEntry* end) noexcept : begin_(begin), end_(end) {}
  Iterator begin() const noexcept { return {begin_, end_}; }
  Iterator end() const noexcept { return {end_, end_}; }

 private:
  const DictionaryEntry* begin_;
  const DictionaryEntry* end_;
};

// Null gives no pairs.
DictionaryEntries entries(CFDictionaryRef dictionary);

// Whether the dictionary can change.
bool isMutable(CFDictionaryRef dictionary);

}  // namespace cf
