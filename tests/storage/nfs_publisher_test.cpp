// Publishing folders, giving them back, and the map of what is published.
#include "tests/storage/mount_table_support.h"
#include "tests/storage/publisher_support.h"

#include <plinth/exception.h>

#include <gmock/gmock.h>

#include <filesystem>

namespace {

using namespace test;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class NFSPublisherTest : public PublisherTest {
 protected:
  const std::string folder_ = root_ + "/folder";
  const std::string missing_ = "3/2 entry [" + folder_ + "] not present in publishedMap";
};

TEST_F(NFSPublisherTest, APublishedFolderIsMadeAndMarkedAndListed) {
  EXPECT_EQ(publisher_->publish(folderURL(folder_), CSTR("app"), 100), 0);
  EXPECT_EQ(file(), folder_ + "\n");
  EXPECT_EQ(modeOf(folder_), "777");
  EXPECT_THAT(readFile(folder_ + "/.mervane.plist"), HasSubstr("<string>app</string>"));
  EXPECT_TRUE(exists(folder_ + "/.metadata_never_index"));
  EXPECT_EQ(countOf(folder_), 1);
  EXPECT_EQ(clientsOf(folder_), "{app: [100]}");
}

TEST_F(NFSPublisherTest, TwoClientsShareOneLineUntilBothGiveItBack) {
  publish(folder_, "app", 100);
  publish(folder_, "jobs", 200);
  EXPECT_EQ(file(), folder_ + "\n");
  EXPECT_EQ(clientsOf(folder_), "{app: [100], jobs: [200]}");
  EXPECT_THAT(readFile(folder_ + "/.mervane.plist"), HasSubstr("<string>app</string>")) << "the first one's name stays";
  unpublish(folder_, "app", 100);
  EXPECT_EQ(file(), folder_ + "\n");
  EXPECT_EQ(countOf(folder_), 1);
  unpublish(folder_, "jobs", 200);
  EXPECT_EQ(file(), "");
  EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());
  EXPECT_TRUE(exists(folder_)) << "the folder itself stays";
}

TEST_F(NFSPublisherTest, APathWithBlanksIsWrittenEscaped) {
  publish(root_ + "/a folder (2)");
  EXPECT_EQ(file(), root_ + "/a\\ folder\\ \\(2\\)\n");
  unpublish(root_ + "/a folder (2)");
  EXPECT_EQ(file(), "");
}

TEST_F(NFSPublisherTest, ForeignLinesSurvivePublishAndUnpublish) {
  const std::string foreign = "# the administrator's\n\n/srv/www 192.0.2.1(ro,sync)\n\"/srv/with blank\" *(ro)\n";
  setFile(foreign);
  publish(folder_);
  EXPECT_EQ(file(), foreign + folder_ + "\n");
  unpublish(folder_);
  EXPECT_EQ(file(), foreign);
}

TEST_F(NFSPublisherTest, TheMapIsKeyedByThePathAndACopy) {
  publish(root_ + "/b");
  publish(root_ + "/a \xC3\xA9");
  auto map = publisher_->getPublishedMap();
  ASSERT_EQ(map.size(), 2U);
  EXPECT_EQ(map.begin()->first, root_ + "/a \xC3\xA9");
  EXPECT_EQ(map.begin()->second.pathFileSystemRep(), root_ + "/a \xC3\xA9");
  map.begin()->second.resetClients();
  map.clear();
  EXPECT_EQ(publisher_->getPublishedMap().size(), 2U);
  EXPECT_EQ(countOf(root_ + "/a \xC3\xA9"), 1);
}

TEST_F(NFSPublisherTest, TheServerHasNoPortOfItsOwn) { EXPECT_EQ(publisher_->getServerPort(), -1); }

TEST_F(NFSPublisherTest, AnEntryWhoseLineIsGoneCountsAfresh) {
  publish(folder_, "app", 100);
  publish(folder_, "jobs", 200);
  setFile("# somebody took it away\n");
  publish(folder_, "third", 300);
  EXPECT_EQ(file(), "# somebody took it away\n" + folder_ + "\n");
  EXPECT_EQ(clientsOf(folder_), "{third: [300]}");
}

TEST_F(NFSPublisherTest, ALineLeftFromAnEarlierRunIsTakenOver) {
  setFile(folder_ + "\n");
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "\n") << "and not written twice";
  EXPECT_EQ(countOf(folder_), 1);
  EXPECT_TRUE(exists(folder_ + "/.mervane.plist"));
}

TEST_F(NFSPublisherTest, ALineLeftFromAnEarlierRunGoesWithOneUnpublish) {
  setFile("/srv/foreign\n" + folder_ + "\n");
  unpublish(folder_, "whoever", -1);
  EXPECT_EQ(file(), "/srv/foreign\n");
  EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());
  EXPECT_EQ(thrown([&] { unpublish(folder_); }), missing_);
}

TEST_F(NFSPublisherTest, AnEntryWhoseLineIsGoneCanBeGivenBack) {
  publish(folder_);
  setFile("");
  unpublish(folder_);
  EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());
  EXPECT_EQ(publisher_->unpublishes, 0) << "there is nothing to take off";
}

TEST_F(NFSPublisherTest, GivingBackWhatIsUnknownIsRefused) {
  EXPECT_EQ(thrown([&] { unpublish(folder_); }), missing_);
  EXPECT_FALSE(exists(exports_)) << "nothing is made";
  EXPECT_FALSE(exists(folder_));
}

TEST_F(NFSPublisherTest, AnotherClientOrProcessCanNotGiveItBack) {
  publish(folder_);
  EXPECT_THAT(consoleOf([&] { unpublish(folder_, "stranger", 100); }),
              HasSubstr("entry for client = stranger not found (PID = 100)"));
  EXPECT_THAT(consoleOf([&] { unpublish(folder_, "app", 999); }), HasSubstr("PID = 999 not found (client = app)"));
  EXPECT_EQ(countOf(folder_), 1);
  EXPECT_EQ(file(), folder_ + "\n");
}

TEST_F(NFSPublisherTest, TicksThatReachTheTotalTakeTheFolderDown) {
  publish(folder_, "app", 100);
  publish(folder_, "app", 200);
  unpublish(folder_, "app", -1);
  EXPECT_EQ(countOf(folder_), 1);
  EXPECT_EQ(file(), folder_ + "\n");
  unpublish(folder_, "app", -1);
  EXPECT_EQ(countOf(folder_), 0);
  EXPECT_EQ(file(), "");
}

TEST_F(NFSPublisherTest, ATerminatedProcessLeavesEntriesWithClientsAlone) {
  for (const char* const name : {"/a", "/b", "/c"}) publish(root_ + name, "app", 100);
  publish(root_ + "/b", "app", 200);
  const std::string before = file();
  publisher_->processTerminated(100);
  EXPECT_EQ(file(), before);
  EXPECT_EQ(countOf(root_ + "/a"), 1);
  EXPECT_EQ(countOf(root_ + "/b"), 2);
  publisher_->processTerminated(-1);
  EXPECT_EQ(publisher_->getPublishedMap().size(), 3U);
}

TEST_F(NFSPublisherTest, ATerminatedProcessTakesDownEveryEntryWithoutReferences) {
  for (const char* const name : {"/a", "/b c", "/d"}) publish(root_ + name, "app", 100);
  setFile("/srv/foreign\n" + file());
  for (const char* const name : {"/a", "/b c"}) publisher_->publishedMap().find(root_ + name)->second.resetClients();
  publisher_->processTerminated(100);
  EXPECT_EQ(file(), "/srv/foreign\n" + root_ + "/d\n");
  EXPECT_EQ(publisher_->getPublishedMap().size(), 1U);
}

TEST_F(NFSPublisherTest, ATerminatedProcessThatHeldNothingWritesNothing) {
  publisher_->processTerminated(100);
  EXPECT_FALSE(exists(exports_));
}

TEST_F(NFSPublisherTest, ASubclassDecidesWhatBecomesOfTheFile) {
  struct Double : tovan::CNFSSharedStoragePublisher {
    std::vector<std::string> calls;
    using CNFSSharedStoragePublisher::_unpublish;
    void _publish(const CStringRef& path, const Lines& lines) override {
      calls.push_back("publish " + path->str() + " " + std::to_string(lines.size()));
    }
    void _unpublish(const CStringRef& path, const Lines& lines) override {
      calls.push_back("unpublish " + path->str() + " " + std::to_string(lines.size()));
    }
    void _unpublish(const std::vector<CStringRef>& paths, const Lines& lines) override {
      calls.push_back("unpublish all " + std::to_string(paths.size()) + " " + std::to_string(lines.size()));
    }
    using CNFSSharedStoragePublisher::publishedMap;
  };
  const auto twin = plinth::makeShared<Double>();
  twin->setExportsFilePath(CSTR(exports_));
  setFile("/srv/foreign\n");
  twin->publish(folderURL(folder_), CSTR("app"), 100);
  EXPECT_EQ(file(), "/srv/foreign\n") << "the double wrote nothing";
  setFile("/srv/foreign\n" + folder_ + "\n");
  twin->unpublish(folderURL(folder_), CSTR("app"), 100);
  twin->publish(folderURL(folder_), CSTR("app"), 100);
  twin->publishedMap().begin()->second.resetClients();
  twin->processTerminated(100);
  EXPECT_THAT(twin->calls, ElementsAre("publish " + folder_ + " 1", "unpublish " + folder_ + " 2",
                                       "publish " + folder_ + " 2", "unpublish all 1 2"));
}

TEST_F(NFSPublisherTest, NothingIsPublishedWhenItCanNotBeListed) {
  publisher_->before = [] { throw plinth::CIOException("not now"); };
  EXPECT_EQ(thrown([&] { publish(folder_); }), "not now");
  EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());
  publisher_->before = [] {};
  publish(folder_);
  EXPECT_EQ(file(), folder_ + "\n") << "a failed change leaves no trace";
}

TEST_F(NFSPublisherTest, AFolderThatCanNotBeMadeIsNotPublished) {
  writeFile(folder_, "a file");
  EXPECT_EQ(thrown([&] { publish(folder_); }), "3/6 Path [" + folder_ + "] not a directory");
  EXPECT_THAT(thrown([&] { publish(folder_ + "/below"); }), HasSubstr("Not a directory"));
  EXPECT_THAT(publisher_->getPublishedMap(), IsEmpty());
  EXPECT_FALSE(exists(exports_));
}

TEST_F(NFSPublisherTest, AFolderThatMayNotBeWrittenIsNotPublished) {
  makeFolders(folder_);
  std::string text;
  withoutWritePermission(folder_, [&] { text = thrown([&] { publish(folder_); }); });
  EXPECT_EQ(text, "3/5 Path [" + folder_ + "] not read/write");
  EXPECT_FALSE(exists(exports_));
}

TEST_F(NFSPublisherTest, URLsThatNameNoLocalFolderAreRefused) {
  const auto client = CSTR("app");
  EXPECT_EQ(thrown([&] { publisher_->publish(nullptr, client, 1); }), "Error: url is null!");
  EXPECT_EQ(thrown([&] { publisher_->unpublish(nullptr, client, 1); }), "Error: url is null!");
  for (const char* const url : {"nfs://host/srv/a", "http://host/", "file:///tmp/%FF/", "file:///tmp/a%00b/"}) {
    const std::string expected = std::string("3/2 Non-existent path = [") + url + "]";
    EXPECT_EQ(thrown([&] { publisher_->publish(urlOf(url), client, 1); }), expected);
    EXPECT_EQ(thrown([&] { publisher_->unpublish(urlOf(url), client, 1); }), expected);
  }
  EXPECT_FALSE(exists(exports_));
}

TEST_F(NFSPublisherTest, ClientsThatCanHoldNoReferenceAreRefused) {
  EXPECT_EQ(thrown([&] { publisher_->publish(folderURL(folder_), nullptr, 1); }), "Error: client is null!");
  EXPECT_EQ(thrown([&] { publisher_->unpublish(folderURL(folder_), nullptr, 1); }), "Error: client is null!");
  consoleOf([&] {
    for (const char* const name : {"_totalRefCount", "_returnedRefTicks"}) {
      EXPECT_EQ(thrown([&] { publish(folder_, name); }), std::string("Client [") + name + "] can't hold a reference");
    }
  });
  EXPECT_FALSE(exists(folder_)) << "nothing is made";
  EXPECT_FALSE(exists(exports_));
  publish(folder_);
  consoleOf([&] { EXPECT_NE(thrown([&] { publish(folder_, "_totalRefCount"); }), "nothing"); });
  EXPECT_EQ(countOf(folder_), 1);
}

TEST_F(NFSPublisherTest, AFolderOnExFATIsRefusedByItsPath) {
  const std::string answer = answerWithMounts(everyType("fuse.exfat"), [&] {
    const std::string text = thrown([&] { publish(folder_); });
    return text + (publisher_->getPublishedMap().empty() && !exists(exports_) ? "" : " and something is published");
  });
  if (answer == "not permitted") GTEST_SKIP() << "no mount namespace of one's own here";
  const auto format = tovan::ISharedStorage::localizedStringForKey(CSTR("ExFATExportNotSupported"));
  EXPECT_EQ(answer, "3/0 " + plinth::CString::sprintf(format->getStringRef(), CSTR(folder_)->getStringRef())->str());
  EXPECT_THAT(answer, HasSubstr(folder_));
}

TEST_F(NFSPublisherTest, ASubexportOnExFATIsRefusedByTheFolderAboveIt) {
  const std::string answer =
      answerWithMounts(everyType("exfat"), [&] { return thrown([&] { publish(folder_ + "/.mvsubexp"); }); });
  if (answer == "not permitted") GTEST_SKIP() << "no mount namespace of one's own here";
  const auto format = tovan::ISharedStorage::localizedStringForKey(CSTR("ExFATExportNotSupported"));
  EXPECT_EQ(answer, "3/0 " + plinth::CString::sprintf(format->getStringRef(), CSTR(folder_)->getStringRef())->str());
}

TEST_F(NFSPublisherTest, OneObjectIsCountedOnceHoweverItIsHeld) {
  const tovan::CNFSSharedStoragePublisherRef own = plinth::makeShared<tovan::CNFSSharedStoragePublisher>();
  const tovan::ISharedStoragePublisherRef asInterface = own;
  EXPECT_EQ(own->GetRetainCount(), 2);
  EXPECT_EQ(asInterface->getServerPort(), -1);
  EXPECT_THAT(asInterface->getPublishedMap(), IsEmpty());
}

}  // namespace
