// storage_listing.h: what is published and mounted and who holds it, as a property list. docs/daemon.md describes it.
#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <plinth/shared_cf_ref.h>

#include <cstdint>
#include <set>

#include "tools/mervaned/storage_sides.h"

namespace mervaned {

// The members of a listing, without those that pair a reply with its request.
plinth::CSharedCFRef<CFMutableDictionaryRef> storageListing(const Publisher& publisher, const Subscriber& subscriber,
                                                            HolderWatch& holders);

// Every process id that holds something.
std::set<std::int32_t> holdersOfAll(const Publisher& publisher, const Subscriber& subscriber);
// "/a for CLIENT, ..." of what a process holds.
std::string holdingsOf(std::int32_t pid, const Publisher& publisher, const Subscriber& subscriber);

}  // namespace mervaned
