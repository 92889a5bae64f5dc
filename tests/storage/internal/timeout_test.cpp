// CDNSharedStorageClient: what happens when nobody answers. The standard time-out is made short here.
#include <tovan/dn_shared_storage_client.h>
#include <tovan/shared_storage_utils.h>

#include <CoreFoundation/CFBundle.h>

#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "storage/request_timeout.h"
#include "tests/storage/protocol_support.h"
#include "tests/storage/storage_support.h"
#include "tests/support/private_bus.h"

namespace {

using namespace test;
using tovan::CDNSharedStorageClient;

const std::string kFramework =
    TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Versions/A/Frameworks/TovanCore.framework";

// The library's bundle is known, as it is where the library is loaded from its framework.
class StorageTimeoutTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bundle_ = CFBundleCreate(kCFAllocatorDefault, folderURL(kFramework)->getURLRef());
    ASSERT_TRUE(bundle_) << "no bundle at " << kFramework;
    tovan::internal::setStandardRequestTimeout(1);
  }
  void TearDown() override { tovan::internal::setStandardRequestTimeout(-1); }

  plinth::CSharedCFRef<CFBundleRef> bundle_;
  PrivateBus bus_;
  const CURLRef folder_ = folderURL("/srv/a b");
  const CURLRef remote_ = urlOf("nfs://host/srv?port=2049");
};

TEST(StorageTimeoutLengthTest, IsTheStandardOneOfAMinuteUnlessATestSaysOtherwise) {
  EXPECT_EQ(tovan::internal::standardRequestTimeout(), 60);
  EXPECT_EQ(tovan::CSharedStorageUtils::requestTimeout(), 60.0);
  tovan::internal::setStandardRequestTimeout(2);
  EXPECT_EQ(tovan::internal::standardRequestTimeout(), 2);
  tovan::internal::setStandardRequestTimeout(-1);
  EXPECT_EQ(tovan::internal::standardRequestTimeout(), 60);
}

TEST_F(StorageTimeoutTest, EachOperationThrowsItsOwnTextWithTheURL) {
  tovan::internal::setStandardRequestTimeout(0);
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  EXPECT_EQ(thrown([&] { client->publish(folder_, CSTR("app"), 1); }),
            "3/12 The storage \"file:///srv/a%20b/\" could not be published: the cluster daemon did not answer in "
            "time.");
  EXPECT_EQ(thrown([&] { client->unpublish(folder_, CSTR("app"), 1); }),
            "3/12 The storage \"file:///srv/a%20b/\" could not be taken off: the cluster daemon did not answer in "
            "time.");
  EXPECT_EQ(thrown([&] { client->subscribe(remote_, CSTR("/mnt"), CSTR("app"), 1); }),
            "3/12 The storage \"nfs://host/srv?port=2049\" could not be mounted: the cluster daemon did not answer in "
            "time.");
  EXPECT_EQ(thrown([&] { client->unsubscribe(remote_, CSTR("/mnt"), CSTR("app"), 1); }),
            "3/12 The storage \"nfs://host/srv?port=2049\" could not be unmounted: the cluster daemon did not answer "
            "in time.");
  EXPECT_EQ(thrown([&] { client->getServerPort(); }),
            "3/12 The server port for the storage \"mervane\" is not known: the cluster daemon did not answer in "
            "time.");
}

TEST_F(StorageTimeoutTest, AnOperationTurnsTheRunLoopUntilItsTimeIsOver) {
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  NotificationLog daemon;
  daemon.observe(name("unpublish"), nullptr);
  tovan::internal::setStandardRequestTimeout(2);
  EXPECT_EQ(thrown([&] { client->unpublish(folder_, CSTR("app"), 1); }).substr(0, 5), "3/12 ");
  EXPECT_EQ(daemon.all.size(), 1U) << "the run loop was not turned";
}

TEST_F(StorageTimeoutTest, ASubscriptionThatTimedOutIsNotLookedAt) {
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  const std::string console =
      consoleOf([&] { thrown([&] { client->subscribe(remote_, CSTR("/mnt"), CSTR("app"), 1); }); });
  EXPECT_EQ(console.find("still local"), std::string::npos) << console;
  EXPECT_EQ(console.find("info file"), std::string::npos) << console;
}

TEST_F(StorageTimeoutTest, ALateReplyDoesNotDisturbTheNextRequest) {
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  NotificationLog daemon;
  daemon.observe(name("publish"), nullptr);
  daemon.observe(name("port"), nullptr);
  EXPECT_NE(thrown([&] { client->publish(folder_, CSTR("app"), 1); }), "nothing");
  ASSERT_TRUE(daemon.await(1));
  const auto answer = [](const Notification& request, std::int32_t port) {
    const Dictionary reply = tovan::CFUtil::CFDictMakeMutable();
    set(reply, "requestID", stringIn(request.userInfo.get(), "requestID"));
    set(reply, "result", 0);
    set(reply, "serverPort", port);
    post(name("port result"), request.object.get(), reply.get());
  };
  tovan::internal::setStandardRequestTimeout(20);
  const Notification late = daemon.all.at(0);
  daemon.then = [&](const Notification& request) {
    answer(late, 1);
    answer(request, 2);
    answer(late, 3);
  };
  EXPECT_EQ(client->getServerPort(), 2);
}

TEST_F(StorageTimeoutTest, AThreadWhoseClientNobodyServesTimesOutWithTheTextToo) {
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  std::string failure;
  std::thread other([&] { failure = thrown([&] { client->unpublish(folder_, CSTR("app"), 1); }); });
  other.join();
  EXPECT_EQ(failure.substr(0, 5), "3/12 ") << failure;
}

// A bundle that was found is kept for the life of the process, so this test is for a process of its own.
TEST(StorageTimeoutWithoutBundleTest, TheTimeOutSaysThatTheBundleIsMissing) {
  if (CFBundleGetBundleWithIdentifier(CFSTR("com.brant.mervane.TovanCore")) != nullptr) {
    GTEST_SKIP() << "another test of this process has brought the bundle in";
  }
  const PrivateBus bus;
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  tovan::internal::setStandardRequestTimeout(0);
  const std::string failure = thrown([&] { client->publish(folderURL("/srv"), CSTR("app"), 1); });
  tovan::internal::setStandardRequestTimeout(-1);
  EXPECT_EQ(failure, "5/2 TovanCore.framework not found");
}

TEST(StorageTimeoutWithoutBusTest, AnOperationTimesOutWithItsText) {
  const NoSessionBus noBus;
  ::setenv("TOVAN_BUS_FOLDER", "relative, and so of no use", 1);
  const plinth::CSharedCFRef<CFBundleRef> bundle =
      CFBundleCreate(kCFAllocatorDefault, folderURL(kFramework)->getURLRef());
  tovan::internal::setStandardRequestTimeout(1);
  std::string failure;
  const std::string console = consoleOf([&] {
    const auto client = plinth::makeShared<CDNSharedStorageClient>();
    failure = thrown([&] { client->publish(folderURL("/srv"), CSTR("app"), 1); });
  });
  tovan::internal::setStandardRequestTimeout(-1);
  EXPECT_EQ(failure,
            "3/12 The storage \"file:///srv/\" could not be published: the cluster daemon did not answer in time.")
      << console;
}

}  // namespace
