#include <tovan/nfs_shared_storage_subscriber.h>

#include <plinth/shared_cf_ref.h>

#include "tests/storage/mount_table_support.h"
#include "tests/storage/nfs_subscriber_support.h"
#include "tests/support/property_list_support.h"

namespace {

using namespace test;

using CNFSSharedStorageSubscriberTest = NFSSubscriberTest;

TEST_F(CNFSSharedStorageSubscriberTest, MountsTheHostsPathOnTheMountPoint) {
  subscribe("nfs://host.local/srv/media", mnt_ + "/a");
  EXPECT_EQ(tools_.calls(), mountCall("host.local:/srv/media", mnt_ + "/a"));
  EXPECT_EQ(held(), mnt_ + "/a 1 ");
}

TEST_F(CNFSSharedStorageSubscriberTest, APortGoesToBothServices) {
  subscribe("nfs://host/srv?port=2049", mnt_ + "/a");
  EXPECT_EQ(tools_.calls(), mountCall("host:/srv", mnt_ + "/a", "port=2049,mountport=2049,soft,intr,locallocks"));
  subscribe("nfs://host/srv?port=0", mnt_ + "/b");
  EXPECT_EQ(tools_.calls(), mountCall("host:/srv", mnt_ + "/b"));
}

TEST_F(CNFSSharedStorageSubscriberTest, MakesTheMountPointForEverybody) {
  subscribe("nfs://host/srv", mnt_ + "/new/one");
  EXPECT_EQ(modeOf(mnt_ + "/new/one"), "777");
  writeFile(mnt_ + "/file", "");
  EXPECT_EQ(thrown([&] { subscribe("nfs://host/srv", mnt_ + "/file"); }),
            "3/6 Path [" + mnt_ + "/file] not a directory");
  EXPECT_EQ(tools_.calls(), mountCall("host:/srv", mnt_ + "/new/one"));
  EXPECT_EQ(held(), mnt_ + "/new/one 1 ");
}

TEST_F(CNFSSharedStorageSubscriberTest, MakesTheMountPointOfAKnownEntryAgain) {
  subscribe("nfs://host/srv", mnt_ + "/a");
  ASSERT_EQ(::rmdir((mnt_ + "/a").c_str()), 0);
  subscribe("nfs://host/srv", mnt_ + "/a");
  EXPECT_TRUE(exists(mnt_ + "/a"));
}

TEST_F(CNFSSharedStorageSubscriberTest, ASecondSubscriptionMountsNothing) {
  subscribe("nfs://host/srv", mnt_ + "/a", "one", 100);
  tools_.calls();
  subscribe("nfs://host/srv", mnt_ + "/a", "two", 200);
  subscribe("nfs://other/elsewhere", mnt_ + "/a", "two", 200);
  EXPECT_EQ(tools_.calls(), "");
  EXPECT_EQ(held(), mnt_ + "/a 3 ");
}

TEST_F(CNFSSharedStorageSubscriberTest, TheEntryKnowsWhoMountedWhatWhere) {
  subscribe("nfs://host/srv?port=7", mnt_ + "/a", "somebody", 300);
  const tovan::CSharedStorageSubscribedMap map = subscriber_->getSubscribedMap();
  ASSERT_EQ(map.count(mnt_ + "/a"), 1U);
  const tovan::CSharedStorageSubscribedEntry& entry = map.begin()->second;
  EXPECT_EQ(text(entry.mountPath()), mnt_ + "/a");
  EXPECT_EQ(text(CFURLGetString(entry.exportURL())), "nfs://host/srv?port=7");
  const plinth::CSharedCFRef<CFMutableDictionaryRef> clients(entry.copyClients());
  EXPECT_EQ(CFDictionaryGetCount(clients.get()), 1);
  EXPECT_TRUE(CFDictionaryContainsKey(clients.get(), CFSTR("somebody")));
}

TEST_F(CNFSSharedStorageSubscriberTest, TheMapIsACopy) {
  subscribe("nfs://host/srv", mnt_ + "/a");
  tovan::CSharedStorageSubscribedMap map = subscriber_->getSubscribedMap();
  map.begin()->second.addReference(CFSTR("client"), 1);
  map.clear();
  EXPECT_EQ(held(), mnt_ + "/a 1 ");
}

TEST_F(CNFSSharedStorageSubscriberTest, TheLastReferenceUnmounts) {
  subscribe("nfs://host/srv", mnt_ + "/a", "one", 100);
  subscribe("nfs://host/srv", mnt_ + "/a", "two", 200);
  tools_.calls();
  unsubscribe(mnt_ + "/a", "one", 100);
  EXPECT_EQ(tools_.calls(), "");
  EXPECT_EQ(held(), mnt_ + "/a 1 ");
  unsubscribe(mnt_ + "/a", "two", -1);
  EXPECT_EQ(tools_.calls(), umountCall(mnt_ + "/a"));
  EXPECT_EQ(held(), "");
}

TEST_F(CNFSSharedStorageSubscriberTest, AReferenceThatNobodyHoldsLeavesTheMount) {
  subscribe("nfs://host/srv", mnt_ + "/a", "one", 100);
  tools_.calls();
  testing::internal::CaptureStderr();
  unsubscribe(mnt_ + "/a", "two", 100);
  unsubscribe(mnt_ + "/a", "one", 101);
  const std::string console = testing::internal::GetCapturedStderr();
  EXPECT_NE(console.find("entry for client = two not found (PID = 100)"), std::string::npos) << console;
  EXPECT_EQ(tools_.calls(), "");
  EXPECT_EQ(held(), mnt_ + "/a 1 ");
}

TEST_F(CNFSSharedStorageSubscriberTest, AnUnknownMountPointIsUnmountedAllTheSame) {
  unsubscribe("/left/over");
  EXPECT_EQ(tools_.calls(), umountCall("/left/over"));
  subscriber_->unsubscribe(CURLRef(), CSTR("/left/over"), CStringRef(), -1);
  EXPECT_EQ(tools_.calls(), umountCall("/left/over"));
  EXPECT_EQ(held(), "");
}

TEST_F(CNFSSharedStorageSubscriberTest, SlashesAtTheEndMakeNoOtherMountPoint) {
  subscribe("nfs://host/srv/", mnt_ + "/a//");
  EXPECT_EQ(tools_.calls(), mountCall("host:/srv", mnt_ + "/a"));
  subscribe("nfs://host/srv", mnt_ + "/a");
  EXPECT_EQ(held(), mnt_ + "/a 2 ");
  unsubscribe(mnt_ + "/a/");
  unsubscribe(mnt_ + "/a");
  EXPECT_EQ(tools_.calls(), umountCall(mnt_ + "/a"));
  unsubscribe("/");
  EXPECT_EQ(tools_.calls(), umountCall("/"));
}

TEST_F(CNFSSharedStorageSubscriberTest, HostileNamesAreOneArgument) {
  for (const std::string name : kHostileNames) {
    const std::string mountPoint = mnt_ + "/" + name;
    const CURLRef url = urlOf("nfs://host/")->copyAndReplaceComponents({}, {}, CSTR("/srv/" + name), {});
    subscriber_->subscribe(url, CSTR(mountPoint), CSTR("client"), 1);
    EXPECT_EQ(tools_.calls(), mountCall("host:/srv/" + name, mountPoint));
    unsubscribe(mountPoint, "client", 1);
    EXPECT_EQ(tools_.calls(), umountCall(mountPoint));
  }
  EXPECT_FALSE(exists("x"));
}

TEST_F(CNFSSharedStorageSubscriberTest, ARelativeMountPointIsNoOption) {
  ASSERT_EQ(::chdir(mnt_.c_str()), 0);
  subscribe("nfs://host/srv", "-o");
  EXPECT_EQ(tools_.calls(), mountCall("host:/srv", "./-o"));
  EXPECT_TRUE(exists(mnt_ + "/-o"));
  unsubscribe("-o");
  EXPECT_EQ(tools_.calls(), umountCall("./-o"));
  subscribe("nfs://host/srv", "plain");
  EXPECT_EQ(tools_.calls(), mountCall("host:/srv", "plain"));
  ASSERT_EQ(::chdir("/"), 0);
}

TEST_F(CNFSSharedStorageSubscriberTest, WhatIsNoPathIsNoMountPoint) {
  const UniChar half = 0xD800;
  const plinth::CSharedCFRef<CFStringRef> halfAPair(CFStringCreateWithCharacters(kCFAllocatorDefault, &half, 1));
  const CStringRef paths[] = {CStringRef(), CSTR(""), CSTR(mnt_ + std::string("/a\0b", 4)),
                              plinth::makeShared<plinth::CString>(halfAPair.get())};
  for (const CStringRef& path : paths) {
    const std::string mount = thrown([&] { subscriber_->subscribe(urlOf("nfs://host/srv"), path, CSTR("client"), 1); });
    EXPECT_EQ(mount.substr(0, 23), "3/6 path not present: [");
    const std::string unmount =
        thrown([&] { subscriber_->unsubscribe(urlOf("nfs://host/srv"), path, CSTR("client"), 1); });
    EXPECT_EQ(unmount.substr(0, 23), "3/6 path not present: [");
  }
  EXPECT_EQ(tools_.calls(), "");
  EXPECT_FALSE(exists(mnt_ + "/a"));
}

TEST_F(CNFSSharedStorageSubscriberTest, AClientThatCannotHoldAReferenceMountsNothing) {
  testing::internal::CaptureStderr();
  const std::string refused = "CNFSSharedStorageSubscriber::subscribe: client [_totalRefCount] can't hold a reference";
  EXPECT_EQ(thrown([&] { subscribe("nfs://host/srv", mnt_ + "/a", "_totalRefCount"); }), refused);
  EXPECT_EQ(thrown([&] { subscriber_->subscribe(urlOf("nfs://host/srv"), CSTR(mnt_ + "/a"), CStringRef(), 1); }),
            "Error: client is null!");
  EXPECT_EQ(tools_.calls(), "");
  subscribe("nfs://host/srv", mnt_ + "/a");
  EXPECT_EQ(thrown([&] { subscribe("nfs://host/srv", mnt_ + "/a", "_totalRefCount"); }), refused);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(held(), mnt_ + "/a 1 ");
}

TEST_F(CNFSSharedStorageSubscriberTest, AURLWithoutASourceMountsNothing) {
  EXPECT_EQ(thrown([&] { subscriber_->subscribe(CURLRef(), CSTR(mnt_ + "/a"), CSTR("client"), 1); }),
            "Error: url is null!");
  EXPECT_EQ(thrown([&] { subscribe("nfs://-oexec/srv", mnt_ + "/a"); }),
            "CNFSSharedStorage::_subscribe: [-oexec:/srv] names no host");
  EXPECT_EQ(thrown([&] { subscribe("nfs://host/srv?port=many", mnt_ + "/a"); }),
            "CNFSSharedStorage::_subscribe: [host:/srv] has a bad port: many");
  EXPECT_EQ(tools_.calls(), "");
  EXPECT_EQ(held(), "");
}

// The folder that is mounted is not touched: here it is not even there.
TEST_F(CNFSSharedStorageSubscriberTest, AServerThatHangsHoldsUpNoFurtherReference) {
  const std::string mountPoint = std::string(std::filesystem::canonical(mnt_)) + "/hanging";
  makeFolders(mountPoint);
  std::string escaped = mountPoint;
  for (std::size_t at = 0; (at = escaped.find(' ')) != std::string::npos;) escaped.replace(at, 1, "\\040");
  const std::string line = "999999 1 0:999 / " + escaped + " rw - nfs host:/srv rw";
  const std::string answer = answerWithMounts(oneMore(line), [&] {
    if (::rmdir(mountPoint.c_str()) != 0) return std::string("no folder");
    subscribe("nfs://host/srv", mountPoint);
    subscribe("nfs://host/srv", mountPoint, "another");
    return (exists(mountPoint) ? "made " : "not touched ") + held();
  });
  if (answer == "not permitted") GTEST_SKIP() << "no mount namespace of one's own here";
  EXPECT_EQ(answer, "not touched " + mountPoint + " 2 ");
}

TEST_F(CNFSSharedStorageSubscriberTest, ATerminatedProcessLeavesEntriesWithClientsAlone) {
  subscribe("nfs://host/srv", mnt_ + "/a", "one", 100);
  subscribe("nfs://host/srv", mnt_ + "/b", "two", 200);
  tools_.calls();
  subscriber_->processTerminated(100);
  EXPECT_EQ(tools_.calls(), "");
  EXPECT_EQ(held(), mnt_ + "/a 1 " + mnt_ + "/b 1 ");
}

TEST_F(CNFSSharedStorageSubscriberTest, ATerminatedProcessTakesDownEntriesWithoutReferences) {
  struct Unheld : tovan::CNFSSharedStorageSubscriber {
    void add(const std::string& mountPoint) {
      subscribedMap().emplace(
          mountPoint, tovan::CSharedStorageSubscribedEntry(nullptr, CSTR(mountPoint)->getStringRef(), nullptr, 100));
    }
  };
  testing::internal::CaptureStderr();  // a reference of no client is refused
  const auto subscriber = plinth::makeShared<Unheld>();
  subscriber->subscribe(urlOf("nfs://host/srv"), CSTR(mnt_ + "/held"), CSTR("client"), 100);
  subscriber->add("/a");
  subscriber->add("/a/inside");
  tools_.calls();
  subscriber->processTerminated(100);
  EXPECT_EQ(tools_.calls(), umountCall("/a/inside") + umountCall("/a"));
  EXPECT_EQ(textOf(subscriber->getSubscribedMap()), mnt_ + "/held 1 ");
  tools_.makeTool("umount", "exit 3");
  subscriber->add("/a");
  EXPECT_EQ(thrown([&] { subscriber->processTerminated(7); }),
            "1/12 CNFSSharedStorage::_unsubscribe: command [/sbin/umount /a] failed, error = 3");
  EXPECT_EQ(textOf(subscriber->getSubscribedMap()), mnt_ + "/held 1 ");
  testing::internal::GetCapturedStderr();
}

TEST_F(CNFSSharedStorageSubscriberTest, CleaningUnmountsAllWhatLiesInsideFirst) {
  for (const char* const name : {"/a", "/a/inside", "/b"}) subscribe("nfs://host/srv", mnt_ + name);
  subscribe("nfs://host/srv", mnt_ + "/a", "another", 7);
  tools_.calls();
  subscriber_->cleanMounts();
  EXPECT_EQ(tools_.calls(), umountCall(mnt_ + "/b") + umountCall(mnt_ + "/a/inside") + umountCall(mnt_ + "/a"));
  EXPECT_EQ(held(), "");
  subscriber_->cleanMounts();
  EXPECT_EQ(tools_.calls(), "");
}

TEST_F(CNFSSharedStorageSubscriberTest, NoServiceIsStarted) {
  subscriber_->startNFSDaemons();
  EXPECT_EQ(tools_.calls(), "");
}

// The commands can be had without the map, and be replaced.
TEST_F(CNFSSharedStorageSubscriberTest, TheCommandsAloneChangeNoReferences) {
  subscriber_->_subscribe(urlOf("nfs://host/srv"), CSTR(mnt_ + "/a"));
  subscriber_->_unsubscribe(CURLRef(), CSTR(mnt_ + "/a"));
  EXPECT_EQ(tools_.calls(), mountCall("host:/srv", mnt_ + "/a") + umountCall(mnt_ + "/a"));
  EXPECT_EQ(held(), "");
}

TEST_F(CNFSSharedStorageSubscriberTest, WhoOverridesTheCommandsGetsURLAndMountPoint) {
  struct Noting : tovan::CNFSSharedStorageSubscriber {
    explicit Noting(std::string& into) : seen(into) {}
    void _subscribe(const CURLRef& url, const CStringRef& mountPath) override {
      seen += "mount " + url->getString()->str() + " " + mountPath->str() + "\n";
    }
    void _unsubscribe(const CURLRef& url, const CStringRef& mountPath) override {
      seen += "unmount " + url->getString()->str() + " " + mountPath->str() + "\n";
    }
    std::string& seen;
  };
  std::string seen;
  const auto subscriber = plinth::makeShared<Noting>(seen);
  subscriber->subscribe(urlOf("any:/thing"), CSTR(mnt_ + "/a"), CSTR("client"), 1);
  subscriber->cleanMounts();
  EXPECT_EQ(seen, "mount any:/thing " + mnt_ + "/a\nunmount any:/thing " + mnt_ + "/a\n");
  EXPECT_EQ(tools_.calls(), "");
}

}  // namespace
