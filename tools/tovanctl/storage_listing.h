// storage_listing.h: the daemon's list of what is published and mounted, and who holds it.
#pragma once

#include <CoreFoundation/CFDictionary.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tools/tovanctl/values.h"

namespace tovanctl {

struct StorageListing {
  struct Holder {
    std::string client;
    std::int32_t pid = -1;  // -1: nobody in particular
    std::string process;    // "alive", "gone", or "none" without a process
    std::int32_t count = 0;
  };
  // An export or a mount.
  struct Entry {
    std::string path;
    std::string url;         // of a mount
    std::int32_t total = 0;  // references taken and not removed
    std::int32_t returned = 0;
    bool isInPlace = false;  // in the exports file, or mounted
    bool isLeftOver = false;
    std::vector<Holder> holders;
  };
  std::int32_t daemon = 0;
  std::string exportsFile;
  std::string exportsProblem;  // why it cannot be used; empty when it can
  std::vector<Entry> exports;
  std::vector<Entry> mounts;
};

// From the daemon's reply; what is missing there or is of another kind stays empty.
StorageListing readStorageListing(CFDictionaryRef reply);
Json listingAsJson(const StorageListing& listing);
std::string listingAsText(const StorageListing& listing, bool colour);

}  // namespace tovanctl
