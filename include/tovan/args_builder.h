// args_builder.h: CArgsBuilder, the null-terminated array of C strings that execve takes, for arguments and for an
// environment (entries NAME=VALUE).
//
// The builder owns a copy of every string it is given. The array that it hands out, and the strings in it, live until
// the builder is next changed or destroyed. One builder is used by one thread at a time.
//
// Running out of memory throws std::bad_alloc and leaves the builder as it was; nothing else fails.
#pragma once

#include <tovan/export.h>

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFArray.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tovan {

class TOVAN_EXPORT CArgsBuilder {
 public:
  // Room for `capacity` entries before the array grows; a negative capacity is none.
  explicit CArgsBuilder(int capacity);
  CArgsBuilder(const CArgsBuilder&) = delete;
  CArgsBuilder& operator=(const CArgsBuilder&) = delete;
  ~CArgsBuilder();

  // Frees every entry, from the last to the first. The capacity stays.
  void clear() noexcept;

  // Appends a copy of the text; null appends nothing. A full array doubles its capacity, from 0 to 1 first.
  void addArg(const char* text);
  // Appends a copy of each string of a null-terminated list, which may be this builder's own; a null list adds nothing.
  void addArgs(const char* const* list);
  // The first `count` strings of a list at most, stopping at a null entry.
  void addArgs(unsigned int count, const char* const* list);
  // The UTF-8 text of each string, passing over empty holders.
  void addArgs(const std::vector<plinth::CStringRef>& texts);

  // The index of the first entry that begins with `name` and "=" (for environments: HOME finds "HOME=/Users/x", not
  // "HOMEDIR=x"); -1 when there is none, and for a null name.
  int findArg(const char* name) const noexcept;
  // Puts a copy of the text in the place of the entry at an index. An index outside the entries and a null text change
  // nothing. The text may be the entry itself.
  void replaceArg(int index, const char* text);

  // Entries that fit before the array grows, and entries held.
  int capacity() const noexcept { return capacity_; }
  int size() const noexcept { return count_; }

  // The array: size() strings and a null pointer. Never null itself.
  char* const* getArgs() const noexcept { return array_.get(); }
  operator const char* const*() const noexcept { return array_.get(); }
  operator char* const*() const noexcept { return array_.get(); }

  // The entries joined by single blanks; an empty holder when there are none. Here and below, an entry that is not
  // UTF-8 is read as ISO Latin 1, so that every entry has its place.
  operator plinth::CStringRef() const;
  // One string per entry, in order.
  operator std::vector<plinth::CStringRef>() const;
  operator plinth::CSharedCFRef<CFArrayRef>() const;

 private:
  using OwnedText = std::unique_ptr<char[]>;

  static OwnedText copyOf(const char* text);
  void append(std::vector<OwnedText> texts);
  void reserve(std::size_t more);

  std::int32_t capacity_;
  std::int32_t count_ = 0;
  std::unique_ptr<char*[]> array_;  // capacity_ + 1 slots, each entry allocated by copyOf
};

}  // namespace tovan
