#include "storage/client_table.h"

#include <tovan/cf_util.h>

#include <plinth/string.h>

#include <string>
#include <utility>

namespace tovan {

using plinth::CSharedCFRef;
using plinth::CString;

namespace {

CFStringRef totalKey() { return CFSTR("_totalRefCount"); }
CFStringRef ticksKey() { return CFSTR("_returnedRefTicks"); }

constexpr long kUnknownProcess = -1;

bool isCounter(CFStringRef key) { return CFEqual(key, totalKey()) || CFEqual(key, ticksKey()); }

std::int32_t counter(CFDictionaryRef table, CFStringRef key) {
  std::int32_t value = 0;
  CFUtil::CFDictGetInt(table, key, value);
  return value;
}

void addToCounter(CFMutableDictionaryRef table, CFStringRef key, std::int32_t change) {
  CFUtil::CFDictSetInt(table, key, counter(table, key) + change);
}

std::int32_t stored(long pid) { return static_cast<std::int32_t>(pid); }

// Copies an array, and any other value but the counters as it is, into the dictionary that is the context.
void copyClient(const void* key, const void* value, void* context) {
  auto* const copy = static_cast<CFMutableDictionaryRef>(context);
  if (isCounter(static_cast<CFStringRef>(key))) return;
  const CSharedCFRef<CFMutableArrayRef> pids = CFUtil::CFArrayMakeMutableCopy(static_cast<CFArrayRef>(value));
  CFDictionarySetValue(copy, key, pids.get());
}

}  // namespace

void ClientTable::reset() {
  Table fresh = CFUtil::CFDictMakeMutable();
  CFUtil::CFDictSetInt(fresh.get(), totalKey(), 0);
  CFUtil::CFDictSetInt(fresh.get(), ticksKey(), 0);
  table_ = std::move(fresh);
}

std::int32_t ClientTable::addReference(CFStringRef client, long pid) {
  // A client of a counter's name would overwrite it.
  if (client == nullptr || isCounter(client)) {
    log("::addReference: no reference for client = %@ (PID = %ld)\n", client, pid);
    return counter(table_.get(), totalKey());
  }
  CFMutableArrayRef pids = pidsOf(client);
  if (pids == nullptr) {
    const CSharedCFRef<CFMutableArrayRef> fresh = CFUtil::CFArrayMakeMutable();
    CFUtil::CFDictSet(table_.get(), client, fresh.get());
    pids = fresh.get();
  }
  CFUtil::CFArrayAppendInt(pids, stored(pid));
  addToCounter(table_.get(), totalKey(), 1);
  return counter(table_.get(), totalKey());
}

std::int32_t ClientTable::deleteReference(CFStringRef client, long pid) {
  CFMutableArrayRef pids = pidsOf(client);
  if (pids == nullptr) {
    log("::deleteReference: entry for client = %@ not found (PID = %ld)\n", client, pid);
    return liveCount(table_);
  }
  if (liveCount(table_) <= 0) {
    log("::deleteReference: entry for client = %@ doesn't have any ticks left (PID = %ld)\n", client, pid);
    return liveCount(table_);
  }
  if (!removeOne(pids, client, pid)) return liveCount(table_);
  if (CFArrayGetCount(pids) == 0) CFUtil::CFDictSet(table_.get(), client, nullptr);
  return resetWhenUsedUp() ? 0 : liveCount(table_);
}

// Takes one reference away, or counts a tick; false, with a console line, when the process holds none.
bool ClientTable::removeOne(CFMutableArrayRef pids, CFStringRef client, long pid) {
  if (pid == kUnknownProcess) {
    const CFIndex count = CFArrayGetCount(pids);
    std::int32_t first = 0;
    CFUtil::CFArrayGetIntAtIndex(pids, 0, first);
    const bool isOneProcess = CFUtil::CFArrayGetCountOfIntVal(pids, first) == count;
    if (isOneProcess) CFUtil::CFArrayRemoveValueAtIndex(pids, count - 1);
    addToCounter(table_.get(), isOneProcess ? totalKey() : ticksKey(), isOneProcess ? -1 : 1);
    return true;
  }
  if (!CFUtil::CFArrayRemoveInt(pids, stored(pid))) {
    // Both kinds of entry name the published one here, on purpose.
    const auto line = CString::sprintf(
        "CSharedStoragePublishedEntry::deleteReference: PID = %ld not found (client = %@)\n", pid, client);
    CFUtil::LogToConsole(line->getUTF8Ptr());
    return false;
  }
  addToCounter(table_.get(), totalKey(), -1);
  return true;
}

void ClientTable::deleteReferences() {
  // An entry with clients is left alone, on purpose. One without has no references to take from anybody, so that only
  // the ticks are looked at.
  const CSharedCFRef<CFDictionaryRef> clients(copyClients(table_));
  if (CFDictionaryGetCount(clients.get()) == 0) resetWhenUsedUp();
}

// When ticks have eaten up all references, but not when there are neither.
bool ClientTable::resetWhenUsedUp() {
  const std::int32_t ticks = returnedTicks(table_);
  if (ticks < 1 || ticks != counter(table_.get(), totalKey())) return false;
  reset();
  return true;
}

std::int32_t ClientTable::returnedTicks(const Table& table) { return counter(table.get(), ticksKey()); }

std::int32_t ClientTable::liveCount(const Table& table) {
  return counter(table.get(), totalKey()) - returnedTicks(table);
}

CFMutableDictionaryRef ClientTable::copyClients(const Table& table) {
  Table copy = CFUtil::CFDictMakeMutable();
  CFDictionaryApplyFunction(table.get(), copyClient, copy.get());
  return copy.take();
}

ClientTable::Table ClientTable::copyWhole(const Table& table) {
  Table copy = copyClients(table);
  for (const CFStringRef key : {totalKey(), ticksKey()}) {
    CFUtil::CFDictSetInt(copy.get(), key, counter(table.get(), key));
  }
  return copy;
}

// Null when the client holds nothing.
CFMutableArrayRef ClientTable::pidsOf(CFStringRef client) const {
  CFTypeRef value = nullptr;
  if (!CFUtil::CFDictGet(table_.get(), client, value) || CFGetTypeID(value) != CFArrayGetTypeID()) return nullptr;
  // Only this class puts arrays there, and they are mutable.
  return static_cast<CFMutableArrayRef>(const_cast<void*>(value));
}

void ClientTable::log(const char* format, CFStringRef client, long pid) const {
  const std::string whole = std::string(owner_) + format;
  CFUtil::LogToConsole(CString::sprintf(whole.c_str(), client, pid)->getUTF8Ptr());
}

}  // namespace tovan
