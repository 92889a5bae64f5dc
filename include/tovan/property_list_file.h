// property_list_file.h: CPropertyListFile, a section of a locked property-list file as an ordered list of named
// entries.
//
// The section is a dictionary of entry name and entry dictionary. Where the order of the entries matters (the
// keep-order flag), a section of two entries or more also holds "_orderList", the names in order; an entry that is
// missing from that list is not loaded. A derived class says where in the document its section lies.
//
// An entry type T offers: a default constructor (no name), T(CFStringRef name, CFDictionaryRef dictionary), copying,
// `CFStringRef name() const` and `toDict() const`, which gives a holder of a new dictionary.
//
// Entries are copied in and out by value, live in memory only, and reach the file with the derived class's flush().
// Names are compared exactly, case included. Nothing here throws but T's constructor. Threads: as for the base.
#pragma once

#include <tovan/property_list_basic_file.h>

#include <CoreFoundation/CFArray.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace tovan {

template <class T>
class TOVAN_EXPORT CPropertyListFile : public CPropertyListBasicFile {
 public:
  // Reads the file, as the base does; the entries come with the derived class's refresh().
  CPropertyListFile(CFStringRef path, bool keepOrder) : CPropertyListBasicFile(path), keepOrder_(keepOrder) {}
  ~CPropertyListFile() override = default;

  // Loads the entries from a section, which becomes the document in memory. What is no dictionary changes nothing;
  // entries that are no dictionaries are skipped.
  void fromPropertyList(CFDictionaryRef section);
  // A new section of the entries that have a name and a dictionary.
  plinth::CSharedCFRef<CFDictionaryRef> toPropertyList() const;

  // Replaces the entry of the same name, which keeps its place, or appends.
  void put(const T& entry);
  // Overwrites the entry at an index, its name included, whatever other entries are called; appends when the index is
  // the number of entries. False for any other index outside.
  bool putAtIndex(CFIndex index, const T& entry);
  // False, and `entry` as it was, when the index is outside.
  bool getAtIndex(CFIndex index, T& entry) const;
  // False, and `entry` as it was, when there is no entry of that name.
  bool get(CFStringRef name, T& entry) const;
  // Appends copies of the first `count` entries, all of them for 0. Where there are fewer than `count`, default entries
  // make up the number.
  void get(std::vector<T>& entries, std::size_t count) const;
  // False when there is no entry of that name.
  bool remove(CFStringRef name);

 protected:
  std::vector<T>& entries() noexcept { return entries_; }

 private:
  static CFStringRef orderKey() noexcept { return CFSTR("_orderList"); }
  static bool sameName(CFStringRef left, CFStringRef right) noexcept { return CFEqual(left, right) != 0; }
  template <class Vector>
  static auto find(Vector& entries, CFStringRef name) {
    return std::find_if(entries.begin(), entries.end(),
                        [name](const T& entry) { return sameName(entry.name(), name); });
  }
  static bool isKind(CFTypeRef object, CFTypeID kind) { return object != nullptr && CFGetTypeID(object) == kind; }
  void load(CFDictionaryRef section, const std::vector<CFTypeRef>& names);

  const bool keepOrder_;
  std::vector<T> entries_;
};

template <class T>
void CPropertyListFile<T>::fromPropertyList(CFDictionaryRef section) {
  if (!isKind(section, CFDictionaryGetTypeID())) return;
  CPropertyListBasicFile::fromPropertyList(section);
  // The caller's dictionary may be the document that was just replaced: from here on only the copy is read.
  const plinth::CSharedCFRef<CFDictionaryRef> copy = CPropertyListBasicFile::toPropertyList();
  const CFTypeRef order = CFDictionaryGetValue(copy.get(), orderKey());
  std::vector<CFTypeRef> names;
  if (keepOrder_ && isKind(order, CFArrayGetTypeID())) {
    const CFArrayRef list = static_cast<CFArrayRef>(order);
    names.resize(static_cast<std::size_t>(CFArrayGetCount(list)));
    for (std::size_t i = 0; i < names.size(); ++i) names[i] = CFArrayGetValueAtIndex(list, static_cast<CFIndex>(i));
  } else {
    names.resize(static_cast<std::size_t>(CFDictionaryGetCount(copy.get())));
    CFDictionaryGetKeysAndValues(copy.get(), names.data(), nullptr);
  }
  load(copy.get(), names);
}

template <class T>
void CPropertyListFile<T>::load(CFDictionaryRef section, const std::vector<CFTypeRef>& names) {
  entries_.clear();
  entries_.reserve(names.size());
  // A name that an order list repeats stands for the same value again: its first place counts.
  const plinth::CSharedCFRef<CFMutableDictionaryRef> seen = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  for (const CFTypeRef name : names) {
    if (!isKind(name, CFStringGetTypeID())) continue;
    const CFTypeRef value = CFDictionaryGetValue(section, name);
    if (!isKind(value, CFDictionaryGetTypeID()) || CFDictionaryContainsKey(seen.get(), name)) continue;
    CFDictionarySetValue(seen.get(), name, value);
    entries_.emplace_back(static_cast<CFStringRef>(name), static_cast<CFDictionaryRef>(value));
  }
}

template <class T>
plinth::CSharedCFRef<CFDictionaryRef> CPropertyListFile<T>::toPropertyList() const {
  const plinth::CSharedCFRef<CFMutableDictionaryRef> section = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  const plinth::CSharedCFRef<CFMutableArrayRef> order =
      CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
  for (const T& entry : entries_) {
    const plinth::CSharedCFRef<CFDictionaryRef> dictionary = entry.toDict();
    if (entry.name() == nullptr || dictionary.isNull()) continue;
    CFDictionarySetValue(section.get(), entry.name(), dictionary.get());
    CFArrayAppendValue(order.get(), entry.name());
  }
  if (keepOrder_ && CFDictionaryGetCount(section.get()) >= 2) {
    CFDictionarySetValue(section.get(), orderKey(), order.get());
  }
  return section;
}

template <class T>
void CPropertyListFile<T>::put(const T& entry) {
  const auto found = find(entries_, entry.name());
  if (found != entries_.end()) {
    *found = entry;
  } else {
    entries_.push_back(entry);
  }
}

template <class T>
bool CPropertyListFile<T>::putAtIndex(CFIndex index, const T& entry) {
  const CFIndex count = static_cast<CFIndex>(entries_.size());
  if (index < 0 || index > count) return false;
  if (index == count) {
    entries_.push_back(entry);
  } else {
    entries_[static_cast<std::size_t>(index)] = entry;
  }
  return true;
}

template <class T>
bool CPropertyListFile<T>::getAtIndex(CFIndex index, T& entry) const {
  if (index < 0 || index >= static_cast<CFIndex>(entries_.size())) return false;
  entry = entries_[static_cast<std::size_t>(index)];
  return true;
}

template <class T>
bool CPropertyListFile<T>::get(CFStringRef name, T& entry) const {
  const auto found = find(entries_, name);
  if (found == entries_.end()) return false;
  entry = *found;
  return true;
}

template <class T>
void CPropertyListFile<T>::get(std::vector<T>& entries, std::size_t count) const {
  const std::size_t present = count == 0 ? entries_.size() : std::min(count, entries_.size());
  const std::vector<T> copies(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(present));
  entries.insert(entries.end(), copies.begin(), copies.end());
  if (count > present) entries.resize(entries.size() + (count - present));
}

template <class T>
bool CPropertyListFile<T>::remove(CFStringRef name) {
  const auto found = find(entries_, name);
  if (found == entries_.end()) return false;
  entries_.erase(found);
  return true;
}

}  // namespace tovan
