// client_table.h: the references that the clients of an entry hold.
//
// A dictionary of three kinds of keys: "_totalRefCount", the references added and not removed; "_returnedRefTicks",
// those given back without knowing by which process; and by the name of each client an array of integers, the process
// id of each reference. The live count is the first less the second.
#pragma once

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <cstdint>

namespace tovan {

// Works on the table that an entry holds; lives as long as one operation of the entry.
class ClientTable {
 public:
  using Table = plinth::CSharedCFRef<CFMutableDictionaryRef>;

  // The owner is the entry's class, as its console lines name it.
  ClientTable(Table& table, const char* owner) : table_(table), owner_(owner) {}

  // Puts a table without references into the entry.
  void reset();
  // The operations of the entries.
  std::int32_t addReference(CFStringRef client, long pid);
  std::int32_t deleteReference(CFStringRef client, long pid);
  void deleteReferences();

  static std::int32_t returnedTicks(const Table& table);
  static std::int32_t liveCount(const Table& table);
  // The clients without the counters. The caller owns the copy, whose arrays are copies too.
  static CFMutableDictionaryRef copyClients(const Table& table);
  // The whole, for the copy of an entry.
  static Table copyWhole(const Table& table);

 private:
  CFMutableArrayRef pidsOf(CFStringRef client) const;
  bool removeOne(CFMutableArrayRef pids, CFStringRef client, long pid);
  bool resetWhenUsedUp();
  // One console line; the format takes the client and the process id, in this order.
  void log(const char* format, CFStringRef client, long pid) const;

  Table& table_;
  const char* owner_;
};

}  // namespace tovan
