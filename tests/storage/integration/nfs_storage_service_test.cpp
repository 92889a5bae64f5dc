// Server and clients of the storage that really exports and mounts, on one run loop: a client's wait serves the server.
#include <CoreFoundation/CFNumber.h>
#include <gtest/gtest.h>
#include <tovan/dn_shared_storage_client.h>
#include <tovan/dn_shared_storage_server.h>
#include <tovan/nfs_shared_storage.h>
#include <tovan/shared_storage_utils.h>

#include <unistd.h>

#include "tests/storage/mount_table_support.h"
#include "tests/storage/storage_support.h"
#include "tests/storage/stub_mounts.h"
#include "tests/support/private_bus.h"

namespace {

using namespace test;
using tovan::CNFSSharedStorage;
using Utils = tovan::CSharedStorageUtils;

constexpr auto kType = CNFSSharedStorage::kNotificationRPC;

class NFSStorageServiceTest : public ::testing::Test {
 protected:
  NFSStorageServiceTest() {
    publisher_->setExportsFilePath(CSTR(exports_));
    server_ = CNFSSharedStorage::NewServer(publisher_, subscriber_, kType);
    writeFile(file_, "content");
  }
  std::string exported() const { return exists(exports_) ? readFile(exports_) : ""; }
  std::string references(const std::string& folder) const {
    const tovan::CSharedStoragePublishedMap map = publisher_->getPublishedMap();
    const auto entry = map.find(folder);
    return entry == map.end() ? "none" : std::to_string(entry->second.refCount());
  }

  const PrivateBus bus_;
  const StubMounts tools_;
  const std::string exports_ = scratchFolder("exports") + "/exports";
  const std::string folder_ = Utils::normalizedPath(CSTR(scratchFolder("published")))->str();
  const std::string file_ = folder_ + "/movie.mov";
  const std::string subexports_ = folder_ + "/.mvsubexp";
  const tovan::CNFSSharedStoragePublisherRef publisher_ = plinth::makeShared<tovan::CNFSSharedStoragePublisher>();
  const tovan::CNFSSharedStorageSubscriberRef subscriber_ = plinth::makeShared<tovan::CNFSSharedStorageSubscriber>();
  tovan::ISharedStorageRef server_;
};

TEST_F(NFSStorageServiceTest, TheMakersMakeServersAndClients) {
  EXPECT_NE(dynamic_cast<tovan::CDNSharedStorageServer*>(server_.get()), nullptr);
  EXPECT_NE(dynamic_cast<tovan::CDNSharedStorageServer*>(CNFSSharedStorage::NewServer(kType).get()), nullptr);
  EXPECT_NE(dynamic_cast<tovan::CDNSharedStorageClient*>(CNFSSharedStorage::NewClient(kType).get()), nullptr);
  EXPECT_NE(dynamic_cast<tovan::CDNSharedStorageClient*>(CNFSSharedStorage::NewPublisherClient(kType).get()), nullptr);
  EXPECT_NE(dynamic_cast<tovan::CDNSharedStorageClient*>(CNFSSharedStorage::NewSubscriberClient(kType).get()), nullptr);
}

TEST_F(NFSStorageServiceTest, AClientPublishes) {
  const tovan::ISharedStoragePublisherRef client = CNFSSharedStorage::NewPublisherClient(kType);
  client->publish(folderURL(folder_ + "/f"), CSTR("client"), 0);
  EXPECT_EQ(exported(), folder_ + "/f\n");
  EXPECT_EQ(references(folder_ + "/f"), "1");
  EXPECT_EQ(client->getServerPort(), -1);
  client->unpublish(folderURL(folder_ + "/f"), CSTR("client"), 0);
  EXPECT_EQ(exported(), "");
}

TEST_F(NFSStorageServiceTest, AClientMounts) {
  const tovan::ISharedStorageSubscriberRef client = CNFSSharedStorage::NewSubscriberClient(kType);
  const std::string mountPoint = folder_ + "/mnt";
  testing::internal::CaptureStderr();  // nothing is mounted there in truth
  client->subscribe(urlOf("nfs://host/srv?port=7"), CSTR(mountPoint), CSTR("client"), 0);
  EXPECT_EQ(tools_.calls(), "mount[-o][port=7,mountport=7,soft,intr,locallocks][host:/srv][" + mountPoint + "]\n");
  EXPECT_EQ(subscriber_->getSubscribedMap().count(mountPoint), 1U);
  client->unsubscribe(urlOf("nfs://host/srv"), CSTR(mountPoint), CSTR("client"), 0);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(tools_.calls(), "umount[-f][" + mountPoint + "]\n");
}

TEST_F(NFSStorageServiceTest, AFailingMountComesBackByNumberAndMessage) {
  const tovan::ISharedStorageRef client = CNFSSharedStorage::NewClient(kType);
  tools_.makeTool("mount", "exit 32");
  testing::internal::CaptureStderr();
  try {
    client->subscribe(urlOf("nfs://host/srv"), CSTR(folder_ + "/mnt"), CSTR("client"), 0);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const plinth::CException& exception) {
    EXPECT_STREQ(exception.what(), "CNFSSharedStorage::_subscribe: command [/sbin/mount host:/srv] failed, error = 32");
    EXPECT_EQ(static_cast<std::uint32_t>(exception.getKind()),
              tovan::ISharedStorageException::numberOf(tovan::kSharedStorageExceptionExchange, 12));
  }
  testing::internal::GetCapturedStderr();
}

TEST_F(NFSStorageServiceTest, ASubexportPublishesOneFile) {
  const CURLRef link = Utils::beginSubexport(fileURL(file_));
  EXPECT_EQ(pathOf(link), subexports_ + "/movie.mov");
  EXPECT_EQ(link->getParameterValue(CSTR("port"))->str(), "-1");
  EXPECT_EQ(readFile(pathOf(link)), "content");
  EXPECT_EQ(exported(), subexports_ + "\n");
  EXPECT_EQ(references(subexports_), "1");
  EXPECT_TRUE(exists(subexports_ + "/.mervane.plist"));
  Utils::endSubexport(link, true);
  EXPECT_EQ(exported(), "");
  EXPECT_EQ(references(subexports_), "none");
  EXPECT_FALSE(exists(subexports_));
  EXPECT_EQ(readFile(file_), "content");
}

TEST_F(NFSStorageServiceTest, ASubexportIsHeldByThisProcessAsMvsubexp) {
  const CURLRef link = Utils::beginSubexport(fileURL(file_));
  const tovan::CSharedStoragePublishedMap map = publisher_->getPublishedMap();
  ASSERT_EQ(map.count(subexports_), 1U);
  const plinth::CSharedCFRef<CFMutableDictionaryRef> clients(map.at(subexports_).copyClients());
  const auto* const pids = static_cast<CFArrayRef>(CFDictionaryGetValue(clients.get(), CFSTR("mvsubexp")));
  ASSERT_NE(pids, nullptr);
  ASSERT_EQ(CFArrayGetCount(pids), 1);
  std::int32_t pid = 0;
  CFNumberGetValue(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(pids, 0)), kCFNumberSInt32Type, &pid);
  EXPECT_EQ(pid, ::getpid());
  Utils::endSubexport(link, false);
  EXPECT_TRUE(exists(subexports_ + "/.mervane.plist"));
}

TEST_F(NFSStorageServiceTest, TwoSubexportsAreOneExport) {
  writeFile(folder_ + "/other.mov", "other");
  const CURLRef first = Utils::beginSubexport(fileURL(file_));
  const CURLRef second = Utils::beginSubexport(fileURL(folder_ + "/other.mov"));
  EXPECT_EQ(exported(), subexports_ + "\n");
  EXPECT_EQ(references(subexports_), "2");
  Utils::endSubexport(first, true);
  EXPECT_EQ(exported(), subexports_ + "\n");
  EXPECT_EQ(readFile(pathOf(second)), "other");
  Utils::endSubexport(second, true);
  EXPECT_EQ(exported(), "");
  EXPECT_FALSE(exists(subexports_));
}

TEST_F(NFSStorageServiceTest, ASubexportThatCannotBePublishedLeavesNoLink) {
  publisher_->setExportsFilePath(CSTR(folder_ + "/no such folder/exports"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(thrown([&] { Utils::beginSubexport(fileURL(file_)); }),
            "code 255 CNFSSharedStoragePublisher::writeExportFile(): couldn't write file \"/etc/exports\"");
  testing::internal::GetCapturedStderr();
  EXPECT_FALSE(exists(subexports_ + "/movie.mov"));
  EXPECT_EQ(references(subexports_), "none");
}

TEST_F(NFSStorageServiceTest, ASubexportThatFailsBeforeItIsPublishedAsksNobody) {
  EXPECT_EQ(thrown([] { Utils::beginSubexport(CURLRef()); }), "Error: url is null!");
  EXPECT_EQ(thrown([] { Utils::endSubexport(CURLRef(), true); }), "Error: url is null!");
  makeFolders(folder_ + "/a folder");
  EXPECT_EQ(thrown([&] { Utils::beginSubexport(fileURL(folder_ + "/a folder")); }),
            "code 4 Source subexp link(" + folder_ + "/a folder, " + subexports_ +
                "/a folder) failed: Operation not permitted");
  EXPECT_EQ(thrown([&] { Utils::endSubexport(fileURL(file_), true); }),
            "3/0 Couldn't remove subexp link: " + fileURL(file_)->getString()->str() + " (Invalid argument)");
  EXPECT_EQ(exported(), "");
}

TEST_F(NFSStorageServiceTest, ASubexportOnAnExFATVolumeIsRefused) {
  const std::string answer =
      answerWithMounts(everyType("exfat"), [&] { return thrown([&] { Utils::beginSubexport(fileURL(file_)); }); });
  if (answer == "not permitted") GTEST_SKIP() << "no mount namespace of one's own here";
  EXPECT_EQ(answer, "3/0 The folder \"" + file_ +
                        "\" cannot be published: it lies on an exFAT volume, which the NFS server does not export. Use "
                        "a folder on another volume.");
  EXPECT_FALSE(exists(subexports_));
}

TEST_F(NFSStorageServiceTest, ATakenNameIsAnotherLink) {
  const CURLRef first = Utils::beginSubexport(fileURL(file_));
  testing::internal::CaptureStderr();
  const CURLRef second = Utils::beginSubexport(fileURL(file_));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("already exists, trying to link again as " + pathOf(second)),
            std::string::npos);
  EXPECT_EQ(readFile(pathOf(second)), "content");
  EXPECT_EQ(second->getParameterValue(CSTR("port"))->str(), "-1");
  Utils::endSubexport(second, true);
  EXPECT_EQ(readFile(pathOf(first)), "content");
  Utils::endSubexport(first, true);
  EXPECT_FALSE(exists(subexports_));
}

TEST_F(NFSStorageServiceTest, AnEndOfASubexportThatTheServerDoesNotKnowSaysSo) {
  const CURLRef link = Utils::beginSubexport(fileURL(file_));
  Utils::endSubexport(link, false);
  testing::internal::CaptureStderr();
  EXPECT_NE(
      thrown([&] { Utils::endSubexport(link, true); }).find("entry [" + subexports_ + "] not present in publishedMap"),
      std::string::npos);
  testing::internal::GetCapturedStderr();
}

}  // namespace
