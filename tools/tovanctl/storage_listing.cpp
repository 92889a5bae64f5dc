#include "tools/tovanctl/storage_listing.h"

#include <CoreFoundation/CoreFoundation.h>
#include <tovan/cf_util.h>

#include <functional>

#include "tools/support/storage_contract.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {

namespace contract = tools::storage_contract;
using tovan::CFUtil;

namespace {

using Entry = StorageListing::Entry;
using Holder = StorageListing::Holder;

std::string textIn(CFDictionaryRef dictionary, CFStringRef key) {
  CFStringRef value = nullptr;
  CFUtil::CFDictGetString(dictionary, key, value);
  return text(value);
}

std::int32_t integerIn(CFDictionaryRef dictionary, CFStringRef key) {
  std::int32_t value = 0;
  CFUtil::CFDictGetInt(dictionary, key, value);
  return value;
}

bool booleanIn(CFDictionaryRef dictionary, CFStringRef key) {
  bool value = false;
  CFUtil::CFDictGetBoolean(dictionary, key, value);
  return value;
}

// Calls `visit` with each dictionary in the array under the key.
void forEachIn(CFDictionaryRef dictionary, CFStringRef key, const std::function<void(CFDictionaryRef)>& visit) {
  CFTypeRef value = nullptr;
  if (!CFUtil::CFDictGet(dictionary, key, value) || CFGetTypeID(value) != CFArrayGetTypeID()) return;
  const auto array = static_cast<CFArrayRef>(value);
  for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
    const void* const element = CFArrayGetValueAtIndex(array, i);
    if (CFGetTypeID(element) == CFDictionaryGetTypeID()) visit(static_cast<CFDictionaryRef>(element));
  }
}

Entry readEntry(CFDictionaryRef list, CFStringRef inPlace) {
  Entry entry;
  entry.path = textIn(list, contract::path());
  entry.url = textIn(list, contract::url());
  entry.total = integerIn(list, contract::total());
  entry.returned = integerIn(list, contract::returned());
  entry.isInPlace = booleanIn(list, inPlace);
  entry.isLeftOver = booleanIn(list, contract::leftOver());
  forEachIn(list, contract::holders(), [&entry](CFDictionaryRef holder) {
    entry.holders.push_back({textIn(holder, contract::client()), integerIn(holder, contract::pid()),
                             textIn(holder, contract::process()), integerIn(holder, contract::count())});
  });
  return entry;
}

Json entryAsJson(const Entry& entry, const char* inPlace) {
  Json object = {{"path", entry.path}};
  if (!entry.url.empty()) object["url"] = entry.url;
  object["references"] = entry.total - entry.returned;
  object["total"] = entry.total;
  object["returned"] = entry.returned;
  object[inPlace] = entry.isInPlace;
  object["leftOver"] = entry.isLeftOver;
  object["holders"] = Json::array();
  for (const Holder& holder : entry.holders) {
    object["holders"].push_back({{"client", holder.client},
                                 {"pid", holder.pid > 0 ? Json(holder.pid) : Json(nullptr)},
                                 {"process", holder.process},
                                 {"count", holder.count}});
  }
  return object;
}

std::string stateOf(const Entry& entry, const char* inPlace, const char* notInPlace) {
  std::string state = entry.isLeftOver ? "left over from an earlier run" : entry.isInPlace ? inPlace : notInPlace;
  if (entry.returned > 0) state += ", " + std::to_string(entry.returned) + " given back by nobody knows whom";
  return state;
}

Style styleOf(const Entry& entry) {
  if (!entry.isLeftOver && !entry.isInPlace) return Style::bad;
  return entry.isLeftOver ? Style::warning : Style::good;
}

// The first row of an entry names it, and says how it is; each holder has one.
void addRows(Table& table, const Entry& entry, std::vector<std::string> names, const std::string& state) {
  const std::vector<Holder> nobody = {{"-", -1, "-", 0}};
  bool isFirst = true;
  for (const Holder& holder : entry.holders.empty() ? nobody : entry.holders) {
    std::vector<std::string> row = names;
    row.insert(row.end(), {onOneLine(holder.client), holder.pid > 0 ? std::to_string(holder.pid) : "-", holder.process,
                           std::to_string(holder.count),
                           isFirst                    ? state
                           : holder.process == "gone" ? "its process is gone"
                                                      : ""});
    table.add(std::move(row), isFirst ? styleOf(entry) : Style::warning);
    names.assign(names.size(), "");
    isFirst = false;
  }
}

}  // namespace

StorageListing readStorageListing(CFDictionaryRef reply) {
  StorageListing listing;
  listing.daemon = integerIn(reply, contract::pid());
  CFTypeRef file = nullptr;
  if (CFUtil::CFDictGet(reply, contract::exportsFile(), file) && CFGetTypeID(file) == CFDictionaryGetTypeID()) {
    listing.exportsFile = textIn(static_cast<CFDictionaryRef>(file), contract::path());
    listing.exportsProblem = textIn(static_cast<CFDictionaryRef>(file), contract::problem());
  }
  forEachIn(reply, contract::exports(),
            [&listing](CFDictionaryRef one) { listing.exports.push_back(readEntry(one, contract::inExportsFile())); });
  forEachIn(reply, contract::mounts(),
            [&listing](CFDictionaryRef one) { listing.mounts.push_back(readEntry(one, contract::mounted())); });
  return listing;
}

Json listingAsJson(const StorageListing& listing) {
  Json exports = Json::array();
  for (const Entry& entry : listing.exports) exports.push_back(entryAsJson(entry, "inExportsFile"));
  Json mounts = Json::array();
  for (const Entry& entry : listing.mounts) mounts.push_back(entryAsJson(entry, "mounted"));
  return {{"daemon", {{"pid", listing.daemon}}},
          {"exportsFile",
           {{"path", listing.exportsFile},
            {"problem", listing.exportsProblem.empty() ? Json(nullptr) : Json(listing.exportsProblem)}}},
          {"exports", std::move(exports)},
          {"mounts", std::move(mounts)}};
}

std::string listingAsText(const StorageListing& listing, bool colour) {
  std::string out;
  if (!listing.exportsProblem.empty()) out += "nothing can be published: " + onOneLine(listing.exportsProblem) + "\n";
  Table exports({"EXPORT", "CLIENT", "PID", "PROCESS", "COUNT", "STATE"});
  for (const Entry& entry : listing.exports) {
    addRows(exports, entry, {onOneLine(entry.path)}, stateOf(entry, "published", "its line is missing"));
  }
  out += listing.exports.empty() ? "nothing is published\n" : exports.render(colour);
  Table mounts({"MOUNT POINT", "FROM", "CLIENT", "PID", "PROCESS", "COUNT", "STATE"});
  for (const Entry& entry : listing.mounts) {
    addRows(mounts, entry, {onOneLine(entry.path), onOneLine(entry.url)}, stateOf(entry, "mounted", "not mounted"));
  }
  return out + (listing.mounts.empty() ? "nothing is mounted\n" : "\n" + mounts.render(colour));
}

}  // namespace tovanctl
