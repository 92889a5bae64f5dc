#include <gtest/gtest.h>
#include <tovan/nfs_shared_storage.h>

#include <string>
#include <type_traits>

#include "tests/storage/storage_support.h"
#include "tests/storage/stub_mounts.h"

namespace {

using namespace test;
using tovan::CNFSSharedStorage;

// Both sides note what they are asked into one text.
class Publisher : public tovan::CNFSSharedStoragePublisher {
 public:
  explicit Publisher(std::string& into) : seen_(into) {}
  OSStatus publish(const CURLRef& url, const CStringRef& client, long pid) override {
    seen_ += "publish " + pathOf(url) + " " + client->str() + " " + std::to_string(pid) + "\n";
    return 7;
  }
  void unpublish(const CURLRef& url, const CStringRef& client, long pid) override {
    seen_ += "unpublish " + pathOf(url) + " " + client->str() + " " + std::to_string(pid) + "\n";
  }
  std::int32_t getServerPort() override { return 2049; }
  void processTerminated(long pid) override {
    seen_ += "publisher: terminated " + std::to_string(pid) + "\n";
    if (fails) throw plinth::CException(plinth::kExceptionTypeUnknown, "publisher failed");
  }
  tovan::CSharedStoragePublishedMap getPublishedMap() const override {
    return {{"published", tovan::CSharedStoragePublishedEntry(CFSTR("client"), CFSTR("published"), 1)}};
  }
  bool fails = false;

 private:
  std::string& seen_;
};

class Subscriber : public tovan::CNFSSharedStorageSubscriber {
 public:
  explicit Subscriber(std::string& into) : seen_(into) {}
  void subscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client, long pid) override {
    seen_ += "subscribe " + url->getString()->str() + " " + mountPath->str() + " " + client->str() + " " +
             std::to_string(pid) + "\n";
  }
  void unsubscribe(const CURLRef& url, const CStringRef& mountPath, const CStringRef& client, long pid) override {
    seen_ += "unsubscribe " + url->getString()->str() + " " + mountPath->str() + " " + client->str() + " " +
             std::to_string(pid) + "\n";
  }
  void processTerminated(long pid) override {
    seen_ += "subscriber: terminated " + std::to_string(pid) + "\n";
    if (fails) throw plinth::CException(plinth::kExceptionTypeUnknown, "subscriber failed");
  }
  tovan::CSharedStorageSubscribedMap getSubscribedMap() const override {
    return {{"mounted", tovan::CSharedStorageSubscribedEntry(CFSTR("client"), CFSTR("mounted"), nullptr, 1)}};
  }
  bool fails = false;

 private:
  std::string& seen_;
};

class CNFSSharedStorageTest : public ::testing::Test {
 protected:
  std::string seen_;
  const plinth::CSharedObjectRef<Publisher> publisher_ = plinth::makeShared<Publisher>(seen_);
  const plinth::CSharedObjectRef<Subscriber> subscriber_ = plinth::makeShared<Subscriber>(seen_);
  const tovan::ISharedStorageRef storage_ = plinth::makeShared<CNFSSharedStorage>(
      tovan::CNFSSharedStoragePublisherRef(publisher_), tovan::CNFSSharedStorageSubscriberRef(subscriber_));
};

TEST_F(CNFSSharedStorageTest, PublishingIsThePublishers) {
  EXPECT_EQ(storage_->publish(folderURL("/a"), CSTR("one"), 1), 7);
  storage_->unpublish(folderURL("/b"), CSTR("two"), -1);
  EXPECT_EQ(seen_, "publish /a one 1\nunpublish /b two -1\n");
  EXPECT_EQ(storage_->getServerPort(), 2049);
  EXPECT_EQ(storage_->getPublishedMap().count("published"), 1U);
}

TEST_F(CNFSSharedStorageTest, MountingIsTheSubscribers) {
  storage_->subscribe(urlOf("nfs://host/a"), CSTR("/m"), CSTR("one"), 1);
  storage_->unsubscribe(urlOf("nfs://host/b"), CSTR("/n"), CSTR("two"), -1);
  EXPECT_EQ(seen_, "subscribe nfs://host/a /m one 1\nunsubscribe nfs://host/b /n two -1\n");
  EXPECT_EQ(storage_->getSubscribedMap().count("mounted"), 1U);
}

TEST_F(CNFSSharedStorageTest, ATerminatedProcessGoesToTheSubscriberFirst) {
  storage_->processTerminated(300);
  EXPECT_EQ(seen_, "subscriber: terminated 300\npublisher: terminated 300\n");
}

TEST_F(CNFSSharedStorageTest, AFailingSideDoesNotKeepTheOther) {
  subscriber_->fails = true;
  EXPECT_EQ(thrown([&] { storage_->processTerminated(300); }), "code 255 subscriber failed");
  EXPECT_EQ(seen_, "subscriber: terminated 300\npublisher: terminated 300\n");
  publisher_->fails = true;
  testing::internal::CaptureStderr();
  EXPECT_EQ(thrown([&] { storage_->processTerminated(300); }), "code 255 subscriber failed");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("publisher failed"), std::string::npos);
  subscriber_->fails = false;
  EXPECT_EQ(thrown([&] { storage_->processTerminated(300); }), "code 255 publisher failed");
}

TEST_F(CNFSSharedStorageTest, HoldsBothSides) {
  EXPECT_EQ(publisher_->GetRetainCount(), 2);
  EXPECT_EQ(subscriber_->GetRetainCount(), 2);
  {
    const auto another = plinth::makeShared<CNFSSharedStorage>(tovan::CNFSSharedStoragePublisherRef(publisher_),
                                                               tovan::CNFSSharedStorageSubscriberRef(subscriber_));
    EXPECT_EQ(publisher_->GetRetainCount(), 3);
  }
  EXPECT_EQ(publisher_->GetRetainCount(), 2);
  EXPECT_EQ(subscriber_->GetRetainCount(), 2);
}

TEST_F(CNFSSharedStorageTest, ASideThatIsMissingIsNamed) {
  const tovan::CNFSSharedStoragePublisherRef publisher(publisher_);
  const tovan::CNFSSharedStorageSubscriberRef subscriber(subscriber_);
  EXPECT_EQ(thrown([&] { plinth::makeShared<CNFSSharedStorage>(nullptr, subscriber); }), "Error: publisher is null!");
  EXPECT_EQ(thrown([&] { plinth::makeShared<CNFSSharedStorage>(publisher, nullptr); }), "Error: subscriber is null!");
  EXPECT_EQ(thrown([&] { CNFSSharedStorage::NewServer(publisher, nullptr, CNFSSharedStorage::kNotificationRPC); }),
            "Error: subscriber is null!");
  EXPECT_EQ(publisher_->GetRetainCount(), 3);
}

// One's own publisher and subscriber are the real ones.
TEST_F(CNFSSharedStorageTest, AloneItHasAPublisherAndASubscriberOfItsOwn) {
  const StubMounts tools;
  const auto storage = plinth::makeShared<CNFSSharedStorage>();
  EXPECT_EQ(storage->getServerPort(), -1);
  EXPECT_TRUE(storage->getPublishedMap().empty());
  const std::string mountPoint = scratchFolder("mnt");
  storage->subscribe(urlOf("nfs://host/srv"), CSTR(mountPoint), CSTR("client"), 1);
  EXPECT_EQ(tools.calls(), "mount[-o][soft,intr,locallocks][host:/srv][" + mountPoint + "]\n");
  EXPECT_EQ(storage->getSubscribedMap().count(mountPoint), 1U);
  storage->unsubscribe(CURLRef(), CSTR(mountPoint), CSTR("client"), 1);
  EXPECT_TRUE(storage->getSubscribedMap().empty());
}

TEST_F(CNFSSharedStorageTest, AnUnknownTypeOfServerIsRefused) {
  const auto type = static_cast<CNFSSharedStorage::ServerRPCType>(5);
  const tovan::CNFSSharedStoragePublisherRef publisher(publisher_);
  const tovan::CNFSSharedStorageSubscriberRef subscriber(subscriber_);
  const std::string refused = "Invalid serverRPCType: 5";
  EXPECT_EQ(thrown([&] { CNFSSharedStorage::NewServer(type); }), refused);
  EXPECT_EQ(thrown([&] { CNFSSharedStorage::NewServer(publisher, subscriber, type); }), refused);
  EXPECT_EQ(thrown([&] { CNFSSharedStorage::NewClient(type); }), refused);
  EXPECT_EQ(thrown([&] { CNFSSharedStorage::NewPublisherClient(type); }), refused);
  EXPECT_EQ(thrown([&] { CNFSSharedStorage::NewSubscriberClient(type); }), refused);
}

static_assert(std::is_base_of_v<tovan::ISharedStorage, CNFSSharedStorage>);

}  // namespace
