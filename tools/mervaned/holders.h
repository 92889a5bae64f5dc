// holders.h: the processes that hold references of the storage.
#pragma once

#include <tovan/shared_storage_entries.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace mervaned {

// What one process of one client holds of one entry. A process id of -1 stands for nobody in particular.
struct Holder {
  std::string client;
  std::int32_t pid = 0;
  std::int32_t count = 0;
};

// From an entry's table of clients, in the order in which they came.
std::vector<Holder> holdersInTable(CFDictionaryRef clients);

template <class Entry>
std::vector<Holder> holdersOf(const Entry& entry) {
  const plinth::CSharedCFRef<CFMutableDictionaryRef> clients(entry.copyClients());
  return holdersInTable(clients.get());
}

// Tells a holder that is gone from another process that got its number: each is held by a handle from the moment it
// took a reference. Beyond so many holders, which would use up the daemon's descriptors, the number alone must do.
class HolderWatch {
 public:
  HolderWatch() = default;
  ~HolderWatch();
  HolderWatch(const HolderWatch&) = delete;
  HolderWatch& operator=(const HolderWatch&) = delete;

  // That process, which lives, takes a reference. Numbers that name no process are passed over.
  void note(std::int32_t pid);
  // Whether the process that took the reference has ended.
  bool isGone(std::int32_t pid);
  // The ones that are gone, each once; forgets those that hold nothing any more.
  std::vector<std::int32_t> newlyGone(const std::set<std::int32_t>& holders);

 private:
  struct Handle {
    int descriptor = -1;   // none when the process was gone, or there was none to be had
    bool wasGone = false;  // when it was noted
    bool isTold = false;
  };
  static Handle handleOf(std::int32_t pid, bool mayTakeDescriptor);

  std::map<std::int32_t, Handle> handles_;
};

}  // namespace mervaned
