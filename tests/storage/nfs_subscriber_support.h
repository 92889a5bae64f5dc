// nfs_subscriber_support.h: short ways to call a subscriber and to say what it holds.
#pragma once

#include <gtest/gtest.h>
#include <tovan/nfs_shared_storage_subscriber.h>

#include <string>

#include "tests/storage/storage_support.h"
#include "tests/storage/stub_mounts.h"

namespace test {

inline std::string mountCall(const std::string& source, const std::string& mountPoint,
                             const std::string& options = "soft,intr,locallocks") {
  return "mount[-o][" + options + "][" + source + "][" + mountPoint + "]\n";
}
inline std::string umountCall(const std::string& mountPoint) { return "umount[-f][" + mountPoint + "]\n"; }

// "MOUNT-POINT references" for each, with a blank behind.
inline std::string textOf(const tovan::CSharedStorageSubscribedMap& map) {
  std::string text;
  for (const auto& [mountPoint, entry] : map) text += mountPoint + " " + std::to_string(entry.refCount()) + " ";
  return text;
}

class NFSSubscriberTest : public ::testing::Test {
 protected:
  void subscribe(const std::string& url, const std::string& mountPoint, const std::string& client = "client",
                 long pid = 100) {
    subscriber_->subscribe(urlOf(url), CSTR(mountPoint), CSTR(client), pid);
  }
  void unsubscribe(const std::string& mountPoint, const std::string& client = "client", long pid = 100) {
    subscriber_->unsubscribe(urlOf("nfs://host/srv"), CSTR(mountPoint), CSTR(client), pid);
  }
  std::string held() const { return textOf(subscriber_->getSubscribedMap()); }

  const StubMounts tools_;
  const std::string mnt_ = scratchFolder("mnt");
  const tovan::CNFSSharedStorageSubscriberRef subscriber_ = plinth::makeShared<tovan::CNFSSharedStorageSubscriber>();
};

}  // namespace test
