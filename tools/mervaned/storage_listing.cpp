#include "tools/mervaned/storage_listing.h"

#include <CoreFoundation/CoreFoundation.h>
#include <tovan/cf_util.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tools/support/storage_contract.h"
#include "tools/support/text.h"

namespace mervaned {

namespace contract = tools::storage_contract;
using plinth::CSharedCFRef;
using tools::stringOf;
using tovan::CFUtil;

namespace {

using Dictionary = CSharedCFRef<CFMutableDictionaryRef>;
using Array = CSharedCFRef<CFMutableArrayRef>;

Dictionary newDictionary() { return Dictionary(CFUtil::CFDictMakeMutable()); }
Array newArray() { return Array(CFUtil::CFArrayMakeMutable()); }

void setText(const Dictionary& dictionary, CFStringRef key, const std::string& text) {
  CFUtil::CFDictSetString(dictionary.get(), key, stringOf(text).get());
}

Dictionary describe(const Holder& holder, HolderWatch& watch) {
  Dictionary list = newDictionary();
  setText(list, contract::client(), holder.client);
  CFUtil::CFDictSetInt(list.get(), contract::pid(), holder.pid);
  CFUtil::CFDictSetString(list.get(), contract::process(),
                          holder.pid <= 0            ? contract::none()
                          : watch.isGone(holder.pid) ? contract::gone()
                                                     : contract::alive());
  CFUtil::CFDictSetInt(list.get(), contract::count(), holder.count);
  return list;
}

// What exports and mounts have in common.
Dictionary describe(const std::string& path, const std::vector<Holder>& holders, std::int32_t returned,
                    HolderWatch& watch) {
  Dictionary list = newDictionary();
  setText(list, contract::path(), path);
  std::int32_t total = 0;
  const Array described = newArray();
  for (const Holder& holder : holders) {
    total += holder.count;
    CFArrayAppendValue(described.get(), describe(holder, watch).get());
  }
  CFUtil::CFDictSetInt(list.get(), contract::total(), total);
  CFUtil::CFDictSetInt(list.get(), contract::returned(), returned);
  CFUtil::CFDictSet(list.get(), contract::holders(), described.get());
  return list;
}

Array exportsOf(const Publisher& publisher, HolderWatch& watch) {
  Array exports = newArray();
  const std::vector<std::string> listed = publisher.listedFolders();
  const tovan::CSharedStoragePublishedMap held = publisher.getPublishedMap();
  const auto add = [&exports](const Dictionary& one, bool isListed, bool isLeftOver) {
    CFUtil::CFDictSetBoolean(one.get(), contract::inExportsFile(), isListed);
    CFUtil::CFDictSetBoolean(one.get(), contract::leftOver(), isLeftOver);
    CFArrayAppendValue(exports.get(), one.get());
  };
  for (const auto& [path, entry] : held) {
    add(describe(path, holdersOf(entry), entry.returnedRefTicks(), watch),
        std::find(listed.begin(), listed.end(), path) != listed.end(), false);
  }
  for (const std::string& path : listed) {
    if (held.count(path) == 0) add(describe(path, {}, 0, watch), true, true);
  }
  return exports;
}

Array mountsOf(const Subscriber& subscriber, HolderWatch& watch) {
  Array mounts = newArray();
  const MountTable table = mountTable();
  const auto add = [&mounts](const Dictionary& one, const std::string& url, bool isThere, bool isLeftOver) {
    setText(one, contract::url(), url);
    CFUtil::CFDictSetBoolean(one.get(), contract::mounted(), isThere);
    CFUtil::CFDictSetBoolean(one.get(), contract::leftOver(), isLeftOver);
    CFArrayAppendValue(mounts.get(), one.get());
  };
  for (const auto& [path, entry] : subscriber.getSubscribedMap()) {
    add(describe(path, holdersOf(entry), entry.returnedRefTicks(), watch),
        entry.exportURL() != nullptr ? tools::textOf(CFURLGetString(entry.exportURL())) : "",
        subscriber.isMounted(table, path), false);
  }
  for (const auto& [path, url] : subscriber.leftOvers()) add(describe(path, {}, 0, watch), url, true, true);
  return mounts;
}

// Calls visit(path, holder) with every holder of every entry.
template <class Map, class Visit>
void forEachHolder(const Map& entries, const Visit& visit) {
  for (const auto& [path, entry] : entries) {
    for (const Holder& holder : holdersOf(entry)) visit(path, holder);
  }
}

template <class Visit>
void forEachHolder(const Publisher& publisher, const Subscriber& subscriber, const Visit& visit) {
  forEachHolder(publisher.getPublishedMap(), visit);
  forEachHolder(subscriber.getSubscribedMap(), visit);
}

}  // namespace

Dictionary storageListing(const Publisher& publisher, const Subscriber& subscriber, HolderWatch& holders) {
  Dictionary listing = newDictionary();
  const Dictionary file = newDictionary();
  setText(file, contract::path(), publisher.exportsFile());
  const std::string problem = publisher.problem();
  if (!problem.empty()) setText(file, contract::problem(), problem);
  CFUtil::CFDictSetInt(listing.get(), contract::pid(), ::getpid());
  CFUtil::CFDictSet(listing.get(), contract::exportsFile(), file.get());
  CFUtil::CFDictSet(listing.get(), contract::exports(), exportsOf(publisher, holders).get());
  CFUtil::CFDictSet(listing.get(), contract::mounts(), mountsOf(subscriber, holders).get());
  return listing;
}

std::set<std::int32_t> holdersOfAll(const Publisher& publisher, const Subscriber& subscriber) {
  std::set<std::int32_t> pids;
  forEachHolder(publisher, subscriber, [&pids](const std::string&, const Holder& holder) { pids.insert(holder.pid); });
  return pids;
}

std::string holdingsOf(std::int32_t pid, const Publisher& publisher, const Subscriber& subscriber) {
  std::string text;
  forEachHolder(publisher, subscriber, [&](const std::string& path, const Holder& holder) {
    if (holder.pid == pid) text += (text.empty() ? "" : ", ") + path + " for " + holder.client;
  });
  return text;
}

}  // namespace mervaned
