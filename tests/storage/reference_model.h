// reference_model.h: a plain model of one folder's references, to compare entries with.
#pragma once

#include <tovan/cf_util.h>
#include <tovan/shared_storage_entries.h>

#include "tests/plist/plist_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace test {

// One folder's references. Nothing is left when as many were given back as were taken.
struct Model {
  std::map<std::string, std::vector<int>> pids;
  int live = 0;
  int ticks = 0;

  void add(const std::string& client, int pid) {
    pids[client].push_back(pid);
    ++live;
  }
  // Whether the reference was taken back.
  bool giveBack(const std::string& client, int pid) {
    const auto found = pids.find(client);
    if (found == pids.end()) return false;
    std::vector<int>& held = found->second;
    if (pid == -1) {
      const bool mixed = std::any_of(held.begin(), held.end(), [&](int other) { return other != held.front(); });
      if (mixed) {
        ++ticks;
      } else {
        held.pop_back();
      }
    } else {
      const auto place = std::find(held.begin(), held.end(), pid);
      if (place == held.end()) return false;
      held.erase(place);
    }
    if (held.empty()) pids.erase(found);
    if (--live == 0) *this = Model();
    return true;
  }
  std::string text() const {
    std::string result;
    for (const auto& [client, held] : pids) {
      result += client + ":";
      for (const int pid : held) result += std::to_string(pid) + ",";
    }
    return result + " live " + std::to_string(live) + " ticks " + std::to_string(ticks);
  }
};

inline std::string textOf(const tovan::CSharedStoragePublishedEntry& entry) {
  const CSharedCFRef<CFMutableDictionaryRef> copy(entry.copyClients());
  std::map<std::string, std::string> clients;
  CFDictionaryApplyFunction(
      copy.get(),
      [](const void* key, const void* value, void* context) {
        const auto pids = static_cast<CFArrayRef>(value);
        std::string text;
        for (CFIndex index = 0; index < CFArrayGetCount(pids); ++index) {
          std::int32_t pid = 0;
          tovan::CFUtil::CFArrayGetIntAtIndex(pids, index, pid);
          text += std::to_string(pid) + ",";
        }
        (*static_cast<std::map<std::string, std::string>*>(context))[utf8(static_cast<CFStringRef>(key))] = text;
      },
      &clients);
  std::string result;
  for (const auto& [client, pids] : clients) result += client + ":" + pids;
  return result + " live " + std::to_string(entry.refCount()) + " ticks " + std::to_string(entry.returnedRefTicks());
}

// The console lines of refused calls go nowhere.
struct Quiet {
  Quiet() { ::testing::internal::CaptureStderr(); }
  ~Quiet() { ::testing::internal::GetCapturedStderr(); }
};

}  // namespace test
