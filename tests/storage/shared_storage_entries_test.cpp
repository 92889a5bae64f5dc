#include <tovan/shared_storage_entries.h>

#include "tests/plist/plist_support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

namespace {

using plinth::CSharedCFRef;
using test::consoleOf;
using test::describe;
using test::str;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using tovan::CSharedStoragePublishedEntry;
using tovan::CSharedStorageSubscribedEntry;

// The name of a class, and an entry of it.
struct Published : CSharedStoragePublishedEntry {
  static constexpr const char* kName = "CSharedStoragePublishedEntry";
  Published(CFStringRef client, long pid) : CSharedStoragePublishedEntry(client, CFSTR("/folder"), pid) {}
};
struct Subscribed : CSharedStorageSubscribedEntry {
  static constexpr const char* kName = "CSharedStorageSubscribedEntry";
  Subscribed(CFStringRef client, long pid) : CSharedStorageSubscribedEntry(client, CFSTR("/mount"), nullptr, pid) {}
};

// What both kinds of entry do alike. The client "app" holds one reference of process 100 at first.
template <class Entry>
class ReferencesTest : public ::testing::Test {
 protected:
  Entry entry_{CFSTR("app"), 100};

  std::string clients() const { return clientsOf(entry_); }
  static std::string clientsOf(const Entry& entry) {
    return describe(CSharedCFRef<CFMutableDictionaryRef>(entry.copyClients()));
  }
  // Gives back, and expects one console line that ends in the text, and nothing changed.
  void expectRefused(CFStringRef client, long pid, const std::string& text) {
    const std::string before = clients();
    const std::int32_t count = entry_.refCount();
    const std::int32_t ticks = entry_.returnedRefTicks();
    std::int32_t result = -1;
    EXPECT_THAT(consoleOf([&] { result = entry_.deleteReference(client, pid); }), EndsWith("] " + text + "\n"));
    EXPECT_EQ(result, count);
    EXPECT_EQ(entry_.refCount(), count);
    EXPECT_EQ(entry_.returnedRefTicks(), ticks);
    EXPECT_EQ(clients(), before);
  }
};
using Entries = ::testing::Types<Published, Subscribed>;
TYPED_TEST_SUITE(ReferencesTest, Entries);

TYPED_TEST(ReferencesTest, NewEntryHoldsOneReference) {
  EXPECT_EQ(this->entry_.refCount(), 1);
  EXPECT_EQ(this->entry_.returnedRefTicks(), 0);
  EXPECT_EQ(this->clients(), "{app: [100]}");
}

TYPED_TEST(ReferencesTest, AddingGivesTheNewTotal) {
  EXPECT_EQ(this->entry_.addReference(CFSTR("app"), 200), 2);
  EXPECT_EQ(this->entry_.addReference(CFSTR("app"), 100), 3);
  EXPECT_EQ(this->entry_.addReference(CFSTR("jobs"), 300), 4);
  EXPECT_EQ(this->clients(), "{app: [100, 200, 100], jobs: [300]}");
  EXPECT_EQ(this->entry_.refCount(), 4);
}

TYPED_TEST(ReferencesTest, AddingGivesTheTotalWhateverTheTicksAre) {
  this->entry_.addReference(CFSTR("app"), 200);
  this->entry_.deleteReference(CFSTR("app"), -1);
  EXPECT_EQ(this->entry_.addReference(CFSTR("app"), 300), 3);
  EXPECT_EQ(this->entry_.refCount(), 2);
}

TYPED_TEST(ReferencesTest, GivingBackTakesTheFirstReferenceOfTheProcess) {
  for (const long pid : {200L, 100L}) this->entry_.addReference(CFSTR("app"), pid);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), 100), 2);
  EXPECT_EQ(this->clients(), "{app: [200, 100]}");
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), 200), 1);
  EXPECT_EQ(this->clients(), "{app: [100]}");
}

TYPED_TEST(ReferencesTest, LastReferenceOfAClientTakesTheClientAway) {
  this->entry_.addReference(CFSTR("jobs"), 300);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), 100), 1);
  EXPECT_EQ(this->clients(), "{jobs: [300]}");
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("jobs"), 300), 0);
  EXPECT_EQ(this->clients(), "{}");
}

TYPED_TEST(ReferencesTest, MixedProcessesGiveBackATick) {
  for (const long pid : {100L, 200L}) this->entry_.addReference(CFSTR("app"), pid);
  ASSERT_EQ(this->entry_.refCount(), 3);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), -1), 2);
  EXPECT_EQ(this->entry_.returnedRefTicks(), 1);
  EXPECT_EQ(this->entry_.refCount(), 2);
  EXPECT_EQ(this->clients(), "{app: [100, 100, 200]}");
}

TYPED_TEST(ReferencesTest, TicksThatReachTheTotalStartTheTableAfresh) {
  this->entry_.addReference(CFSTR("app"), 200);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), -1), 1);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), -1), 0);
  EXPECT_EQ(this->entry_.refCount(), 0);
  EXPECT_EQ(this->entry_.returnedRefTicks(), 0);
  EXPECT_EQ(this->clients(), "{}");
  EXPECT_EQ(this->entry_.addReference(CFSTR("app"), 1), 1) << "the total is 0 again";
}

TYPED_TEST(ReferencesTest, TotalThatFallsToTheTicksStartsTheTableAfreshToo) {
  this->entry_.addReference(CFSTR("app"), 200);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), -1), 1);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), 100), 0);
  EXPECT_EQ(this->entry_.returnedRefTicks(), 0);
  EXPECT_EQ(this->clients(), "{}") << "200 is forgotten";
}

TYPED_TEST(ReferencesTest, TicksCountForTheWholeEntry) {
  this->entry_.addReference(CFSTR("app"), 200);
  this->entry_.addReference(CFSTR("jobs"), 300);
  for (const int left : {2, 1, 0}) EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), -1), left);
  EXPECT_EQ(this->clients(), "{}");
}

TYPED_TEST(ReferencesTest, OneProcessGivesBackItsReferencesWithoutNamingItself) {
  this->entry_.addReference(CFSTR("app"), 100);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), -1), 1);
  EXPECT_EQ(this->clients(), "{app: [100]}");
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), -1), 0);
  EXPECT_EQ(this->entry_.returnedRefTicks(), 0);
  EXPECT_EQ(this->clients(), "{}");
}

TYPED_TEST(ReferencesTest, OtherClientsDoNotMakeAClientsProcessesMixed) {
  this->entry_.addReference(CFSTR("jobs"), 300);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), -1), 1);
  EXPECT_EQ(this->entry_.returnedRefTicks(), 0);
  EXPECT_EQ(this->clients(), "{jobs: [300]}");
}

TYPED_TEST(ReferencesTest, UnknownClientIsRefused) {
  const std::string name = TypeParam::kName;
  this->expectRefused(CFSTR("other"), 100, name + "::deleteReference: entry for client = other not found (PID = 100)");
  this->expectRefused(CFSTR("other"), -1, name + "::deleteReference: entry for client = other not found (PID = -1)");
}

TYPED_TEST(ReferencesTest, UnknownClientIsRefusedWithTheLiveCountNotTheTotal) {
  this->entry_.addReference(CFSTR("app"), 200);
  this->entry_.addReference(CFSTR("app"), 200);
  this->entry_.deleteReference(CFSTR("app"), -1);
  const std::string name = TypeParam::kName;
  this->expectRefused(CFSTR("other"), 1, name + "::deleteReference: entry for client = other not found (PID = 1)");
}

// Both name the published entry, on purpose.
TYPED_TEST(ReferencesTest, ProcessWithoutAReferenceIsRefused) {
  this->expectRefused(CFSTR("app"), 7,
                      "CSharedStoragePublishedEntry::deleteReference: PID = 7 not found (client = app)");
}

TYPED_TEST(ReferencesTest, NamesOfTheCountersHoldNothing) {
  const std::string name = TypeParam::kName;
  for (const std::string client : {"_totalRefCount", "_returnedRefTicks"}) {
    const auto key = str(client);
    const std::string console = consoleOf([&] { EXPECT_EQ(this->entry_.addReference(key.get(), 5), 1); });
    EXPECT_THAT(console,
                EndsWith("] " + name + "::addReference: no reference for client = " + client + " (PID = 5)\n"));
    this->expectRefused(key.get(), 5,
                        name + "::deleteReference: entry for client = " + client + " not found (PID = 5)");
  }
  EXPECT_EQ(this->clients(), "{app: [100]}");
}

TYPED_TEST(ReferencesTest, NoClientHoldsNothing) {
  const std::string name = TypeParam::kName;
  const std::string console = consoleOf([&] { EXPECT_EQ(this->entry_.addReference(nullptr, 5), 1); });
  EXPECT_THAT(console, EndsWith("] " + name + "::addReference: no reference for client = (null) (PID = 5)\n"));
  this->expectRefused(nullptr, 5, name + "::deleteReference: entry for client = (null) not found (PID = 5)");
}

TYPED_TEST(ReferencesTest, DeletingAProcessLeavesAnEntryWithClientsAlone) {
  this->entry_.addReference(CFSTR("app"), 200);
  this->entry_.addReference(CFSTR("jobs"), 100);
  this->entry_.deleteReference(CFSTR("app"), -1);
  for (const long pid : {100L, 200L, -1L}) this->entry_.deleteReferences(pid);
  EXPECT_EQ(this->clients(), "{app: [100, 200], jobs: [100]}");
  EXPECT_EQ(this->entry_.refCount(), 2);
  EXPECT_EQ(this->entry_.returnedRefTicks(), 1);
}

TYPED_TEST(ReferencesTest, DeletingAProcessOfAnEntryWithoutClientsIsQuiet) {
  this->entry_.deleteReference(CFSTR("app"), 100);
  EXPECT_THAT(consoleOf([&] { this->entry_.deleteReferences(100); }), IsEmpty());
  EXPECT_EQ(this->entry_.refCount(), 0);
  EXPECT_EQ(this->clients(), "{}");
}

TYPED_TEST(ReferencesTest, ResettingForgetsEverything) {
  this->entry_.addReference(CFSTR("app"), 200);
  this->entry_.deleteReference(CFSTR("app"), -1);
  this->entry_.resetClients();
  EXPECT_EQ(this->entry_.refCount(), 0);
  EXPECT_EQ(this->entry_.returnedRefTicks(), 0);
  EXPECT_EQ(this->clients(), "{}");
}

TYPED_TEST(ReferencesTest, CopyOfTheClientsNeverHasTheCounters) {
  this->entry_.addReference(CFSTR("app"), 200);
  this->entry_.deleteReference(CFSTR("app"), -1);
  const CSharedCFRef<CFMutableDictionaryRef> copy(this->entry_.copyClients());
  EXPECT_FALSE(CFDictionaryContainsKey(copy.get(), CFSTR("_totalRefCount")));
  EXPECT_FALSE(CFDictionaryContainsKey(copy.get(), CFSTR("_returnedRefTicks")));
  EXPECT_EQ(CFGetRetainCount(copy.get()), 1);
}

TYPED_TEST(ReferencesTest, CopyOfTheClientsIsTheCallers) {
  const CSharedCFRef<CFMutableDictionaryRef> copy(this->entry_.copyClients());
  const auto pids = static_cast<CFMutableArrayRef>(const_cast<void*>(CFDictionaryGetValue(copy.get(), CFSTR("app"))));
  CFArrayRemoveAllValues(pids);
  CFDictionarySetValue(copy.get(), CFSTR("jobs"), pids);
  EXPECT_EQ(this->clients(), "{app: [100]}");
}

TYPED_TEST(ReferencesTest, CopyOfAnEntryCountsForItself) {
  this->entry_.addReference(CFSTR("app"), 200);
  this->entry_.deleteReference(CFSTR("app"), -1);
  TypeParam copy(this->entry_);
  EXPECT_EQ(copy.refCount(), 1);
  EXPECT_EQ(copy.returnedRefTicks(), 1);
  copy.addReference(CFSTR("app"), 300);
  EXPECT_EQ(this->clients(), "{app: [100, 200]}");
  EXPECT_EQ(this->clientsOf(copy), "{app: [100, 200, 300]}");
  copy = this->entry_;
  this->entry_.resetClients();
  EXPECT_EQ(this->clientsOf(copy), "{app: [100, 200]}");
  EXPECT_EQ(copy.refCount(), 1);
}

TYPED_TEST(ReferencesTest, AssigningAnEntryToItselfKeepsIt) {
  TypeParam& same = this->entry_;
  this->entry_ = same;
  EXPECT_EQ(this->clients(), "{app: [100]}");
}

TYPED_TEST(ReferencesTest, ProcessIdsAreStoredAs32BitNumbers) {
  const CSharedCFRef<CFMutableDictionaryRef> copy(this->entry_.copyClients());
  const auto pids = static_cast<CFArrayRef>(CFDictionaryGetValue(copy.get(), CFSTR("app")));
  const auto pid = static_cast<CFNumberRef>(CFArrayGetValueAtIndex(pids, 0));
  EXPECT_EQ(CFNumberGetByteSize(pid), 4);
  // The upper half is dropped, and only the -1 that the caller says is the unknown process.
  this->entry_.addReference(CFSTR("app"), 0x1'0000'0007L);
  this->entry_.addReference(CFSTR("app"), 0xFFFF'FFFFL);
  EXPECT_EQ(this->clients(), "{app: [100, 7, -1]}");
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), 0xFFFF'FFFFL), 2);
  EXPECT_EQ(this->entry_.deleteReference(CFSTR("app"), 7), 1);
  EXPECT_EQ(this->clients(), "{app: [100]}");
}

TEST(CSharedStoragePublishedEntryTest, KnowsItsFolder) {
  const auto path = str("/Folders/b\xc3\xa4r");
  const CSharedStoragePublishedEntry entry(CFSTR("app"), path.get(), 1);
  EXPECT_TRUE(CFEqual(entry.path(), path.get()));
  EXPECT_STREQ(entry.pathFileSystemRep(), "/Folders/b\xc3\xa4r");
}

TEST(CSharedStoragePublishedEntryTest, KeepsThePathItWasMadeWith) {
  const CSharedCFRef<CFMutableStringRef> path = CFStringCreateMutableCopy(nullptr, 0, CFSTR("/a"));
  const CSharedStoragePublishedEntry entry(CFSTR("app"), path.get(), 1);
  CFStringAppend(path.get(), CFSTR("/b"));
  EXPECT_STREQ(entry.pathFileSystemRep(), "/a");
}

TEST(CSharedStoragePublishedEntryTest, PathThatNoFileSystemTakesHasNoBytes) {
  EXPECT_EQ(CSharedStoragePublishedEntry(CFSTR("app"), str(std::string("/a\0b", 4)).get(), 1).pathFileSystemRep(),
            nullptr);
  const UniChar half[] = {'/', 0xD800};
  const CSharedCFRef<CFStringRef> halfPair = CFStringCreateWithCharacters(nullptr, half, 2);
  EXPECT_EQ(CSharedStoragePublishedEntry(CFSTR("app"), halfPair.get(), 1).pathFileSystemRep(), nullptr);
  const CSharedStoragePublishedEntry none(CFSTR("app"), nullptr, 1);
  EXPECT_EQ(none.path(), nullptr);
  EXPECT_EQ(none.pathFileSystemRep(), nullptr);
}

TEST(CSharedStoragePublishedEntryTest, NodeHostsStayEmpty) {
  CSharedStoragePublishedEntry entry(CFSTR("app"), CFSTR("/a"), 1);
  EXPECT_EQ(entry.nodeHosts(), nullptr);
  entry.addNodeHosts(test::dict("<key>host</key><string>a</string>").get());
  EXPECT_EQ(entry.nodeHosts(), nullptr);
}

class MountedEntryTest : public ::testing::Test {
 protected:
  // A folder, and a link that leads to it.
  const std::string folder_ = test::scratchFolder("mounted");
  const std::string link_ = test::scratchHome() + "/link";
  MountedEntryTest() {
    ::unlink(link_.c_str());
    EXPECT_EQ(::symlink(folder_.c_str(), link_.c_str()), 0);
  }
  static CSharedStorageSubscribedEntry entry(const std::string& path, CFURLRef url = nullptr) {
    return {CFSTR("app"), str(path).get(), url, 1};
  }
};

TEST_F(MountedEntryTest, KnowsItsMountPointAndItsStorage) {
  const CSharedCFRef<CFURLRef> url = CFURLCreateWithString(nullptr, CFSTR("nfs://host/a?port=2049"), nullptr);
  {
    const CSharedStorageSubscribedEntry made = entry("/mnt/x", url.get());
    EXPECT_TRUE(CFEqual(made.mountPath(), CFSTR("/mnt/x")));
    EXPECT_STREQ(made.mountPathFileSystemRep(), "/mnt/x");
    EXPECT_EQ(made.exportURL(), url.get());
    EXPECT_EQ(CFGetRetainCount(url.get()), 2);
  }
  EXPECT_EQ(CFGetRetainCount(url.get()), 1);
}

TEST_F(MountedEntryTest, StorageMayBeUnknown) {
  EXPECT_EQ(entry("/mnt/x").exportURL(), nullptr);
  const CSharedStorageSubscribedEntry none(CFSTR("app"), nullptr, nullptr, 1);
  EXPECT_EQ(none.mountPath(), nullptr);
  EXPECT_EQ(none.mountPathFileSystemRep(), nullptr);
}

TEST_F(MountedEntryTest, NormalizedPathIsThereOnceItWasAskedFor) {
  CSharedStorageSubscribedEntry made = entry(link_ + "/./");
  EXPECT_EQ(made.normalizedMountPathFileSystemRep(), nullptr);
  made.normalizeMountPath();
  EXPECT_EQ(made.normalizedMountPathFileSystemRep(), folder_);
  EXPECT_EQ(made.mountPathFileSystemRep(), link_ + "/./") << "the path itself stays";
  EXPECT_EQ(CSharedStorageSubscribedEntry(made).normalizedMountPathFileSystemRep(), folder_);
}

TEST_F(MountedEntryTest, PathThatCannotBeResolvedIsAConsoleLine) {
  CSharedStorageSubscribedEntry made = entry(folder_ + "/none");
  const std::string console = consoleOf([&] { made.normalizeMountPath(); });
  EXPECT_THAT(console, EndsWith("] Couldn't get realpath for file: " + folder_ + "/none (errno = 2)\n"));
  EXPECT_EQ(made.normalizedMountPathFileSystemRep(), nullptr);
}

TEST_F(MountedEntryTest, NormalizedPathSurvivesAMountPointThatIsGone) {
  CSharedStorageSubscribedEntry made = entry(link_);
  made.normalizeMountPath();
  ::unlink(link_.c_str());
  consoleOf([&] { made.normalizeMountPath(); });
  EXPECT_EQ(made.normalizedMountPathFileSystemRep(), folder_);
}

}  // namespace
