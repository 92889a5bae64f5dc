#include <tovan/service_pid_file.h>

#include <sys/wait.h>

#include <filesystem>
#include <thread>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CServicePIDFile;
using Pids = std::vector<std::int32_t>;

// A process that was alive a moment ago and is certainly gone.
pid_t deadProcess() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return child;
}

class ServicePIDFileTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("pids") + "/pids.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);

  CServicePIDFile open(const char* key = "mervaned") const { return CServicePIDFile(str(key).get(), cfPath.get()); }
  Pids pidsOf(const char* key = "mervaned") const {
    Pids pids = {-5};
    EXPECT_TRUE(open(key).get(pids));
    return pids;
  }
  std::string attributes() const { return describe(sectionOfFile(path, "attributes")); }
};

TEST_F(ServicePIDFileTest, AMissingKeyGivesAnEmptyList) {
  EXPECT_EQ(pidsOf(), Pids{});
  EXPECT_FALSE(exists(path));
}

TEST_F(ServicePIDFileTest, PutWritesTheListUnderTheKey) {
  CServicePIDFile file = open();
  EXPECT_TRUE(file.put({17, 42}));
  EXPECT_EQ(describeFile(path), "{mervaned: [17, 42]}");
  EXPECT_EQ(pidsOf(), (Pids{17, 42}));
  EXPECT_EQ(utf8(file.key()), "mervaned");
}

TEST_F(ServicePIDFileTest, AnEmptyListAndOneOfZerosRemoveTheKey) {
  for (const Pids& none : {Pids{}, Pids{0}, Pids{0, 0}}) {
    CServicePIDFile file = open();
    file.put({17});
    file.put(none);
    EXPECT_EQ(describeFile(path), "{}");
  }
}

TEST_F(ServicePIDFileTest, ZerosAreDroppedAndOtherNumbersKept) {
  CServicePIDFile file = open();
  file.put({0, 17, 0, -3});
  EXPECT_EQ(describeFile(path), "{mervaned: [17, -3]}");
}

TEST_F(ServicePIDFileTest, PutKeepsAttributesAndAllOtherKeys) {
  writeFile(path, document("<key>Version</key><string>2</string><key>attributes</key><dict><key>1</key><dict/></dict>"
                           "<key>other</key><array><integer>5</integer></array>"));
  CServicePIDFile file = open();
  writeFile(path, document("<key>Version</key><string>3</string><key>attributes</key><dict><key>2</key><dict/></dict>"
                           "<key>other</key><array><integer>6</integer></array>"));
  file.put({17});
  EXPECT_EQ(describeFile(path), "{Version: \"3\", attributes: {2: {}}, mervaned: [17], other: [6]}");
}

TEST_F(ServicePIDFileTest, OnlyNumbersThatAreProcessIdsAreLoaded) {
  writeFile(path, document("<key>mervaned</key><array><integer>1</integer><string>2</string><integer>3</integer>"
                           "<true/><real>4.5</real><real>5.0</real><integer>99999999999</integer></array>"));
  EXPECT_EQ(pidsOf(), (Pids{1, 3, 5}));
  writeFile(path, document("<key>mervaned</key><string>7</string>"));
  EXPECT_EQ(pidsOf(), Pids{});
}

TEST_F(ServicePIDFileTest, ArraysAreConvertedBothWays) {
  const CServicePIDFile file = open();
  EXPECT_EQ(file.fromArray(nullptr), Pids{});
  const CSharedCFRef<CFArrayRef> array = file.toArray({1, 0, 2});
  EXPECT_EQ(describe(array), "[1, 2]");
  EXPECT_EQ(CFNumberGetType(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(array.get(), 0))), kCFNumberSInt32Type);
  EXPECT_EQ(file.fromArray(array.get()), (Pids{1, 2}));
}

TEST_F(ServicePIDFileTest, GetReadsAfreshAndLeavesTheDocumentAlone) {
  writeFile(path, document("<key>mervaned</key><array><integer>1</integer></array>"));
  const CServicePIDFile file = open();
  writeFile(path, document("<key>mervaned</key><array><integer>2</integer></array>"));
  Pids pids;
  EXPECT_TRUE(file.get(pids));
  EXPECT_EQ(pids, Pids{2});
  EXPECT_EQ(describe(file.toPropertyList()), "{mervaned: [1]}");
}

TEST_F(ServicePIDFileTest, RefreshLoadsTheListThatAFlushThenWrites) {
  writeFile(path, document("<key>mervaned</key><array><integer>1</integer></array>"));
  CServicePIDFile file = open();
  EXPECT_TRUE(file.refresh());
  file.flush();
  EXPECT_EQ(describeFile(path), "{mervaned: [1]}");
  open().flush();
  EXPECT_EQ(describeFile(path), "{}") << "a new object has no list before it reads one";
}

TEST_F(ServicePIDFileTest, AnUnreadableFileThrowsAndIsLeftAlone) {
  CServicePIDFile file = open();
  writeFile(path, "garbage");
  Pids pids;
  EXPECT_NE(thrownBy([&] { file.get(pids); }), "nothing");
  EXPECT_NE(thrownBy([&] { file.put({1}); }), "nothing");
  EXPECT_EQ(readFile(path), "garbage");
}

// ---- Attributes ----------------------------------------------------------------------------------------------------

TEST_F(ServicePIDFileTest, AttributesAreSetInMemoryOnly) {
  CServicePIDFile file = open();
  EXPECT_EQ(file.getAttributes(), nullptr);
  file.setAttributes(dict("<key>1</key><dict/>").get());
  EXPECT_EQ(describe(file.getAttributes()), "{1: {}}");
  file.setAttributes(nullptr);
  EXPECT_EQ(file.getAttributes(), nullptr);
  EXPECT_EQ(describe(file.toPropertyList()), "{}");
  EXPECT_FALSE(exists(path));
}

TEST_F(ServicePIDFileTest, TheAttributesOfOneProcessAreSetInMemoryOnly) {
  CServicePIDFile file = open();
  file.setProcessAttributes(7, dict("<key>Kind</key><string>k</string>").get());
  file.setProcessAttributes(8, dict("").get());
  EXPECT_EQ(describe(file.getAttributes()), "{7: {Kind: \"k\"}, 8: {}}");
  EXPECT_EQ(describe(file.processAttributes(7)), "{Kind: \"k\"}");
  EXPECT_EQ(file.processAttributes(9), nullptr);
  file.setProcessAttributes(7, nullptr);
  EXPECT_EQ(describe(file.toPropertyList()), "{attributes: {8: {}}}");
  file.setProcessAttributes(8, nullptr);
  EXPECT_EQ(describe(file.toPropertyList()), "{}") << "with the last one the whole goes";
  EXPECT_FALSE(exists(path));
}

TEST_F(ServicePIDFileTest, ARegisteredProcessIsFoundAgain) {
  open().setProcessAttributes(::getpid(), CFSTR("kind"), CFSTR("na\"me"), CFSTR("2"));
  EXPECT_EQ(attributes(), "{" + pid() + ": {Kind: \"kind\", Name: \"na\"me\", Version: \"2\"}}");
  CSharedCFRef<CFStringRef> kind;
  CSharedCFRef<CFStringRef> name;
  CSharedCFRef<CFStringRef> version;
  EXPECT_TRUE(open().processAttributes(::getpid(), kind, name, version));
  EXPECT_EQ(utf8(kind.get()), "kind");
  EXPECT_EQ(utf8(name.get()), "na\"me");
  EXPECT_EQ(utf8(version.get()), "2");
}

TEST_F(ServicePIDFileTest, AnUnknownProcessIsNotFound) {
  CSharedCFRef<CFStringRef> kind = str("before");
  CSharedCFRef<CFStringRef> name = str("before");
  CSharedCFRef<CFStringRef> version = str("before");
  EXPECT_FALSE(open().processAttributes(1, kind, name, version));
  EXPECT_TRUE(kind.isNull());
  EXPECT_TRUE(name.isNull());
  EXPECT_TRUE(version.isNull());
}

TEST_F(ServicePIDFileTest, MissingAndMistypedAttributesAreNull) {
  writeFile(path, document("<key>attributes</key><dict><key>5</key><dict><key>Kind</key><integer>1</integer>"
                           "<key>Version</key><string>2</string></dict><key>6</key><string/></dict>"));
  CSharedCFRef<CFStringRef> kind;
  CSharedCFRef<CFStringRef> name;
  CSharedCFRef<CFStringRef> version;
  CServicePIDFile file = open();
  EXPECT_TRUE(file.processAttributes(5, kind, name, version));
  EXPECT_TRUE(kind.isNull());
  EXPECT_TRUE(name.isNull());
  EXPECT_EQ(utf8(version.get()), "2");
  EXPECT_FALSE(file.processAttributes(6, kind, name, version)) << "no dictionary";
  EXPECT_TRUE(version.isNull());
}

TEST_F(ServicePIDFileTest, ANullArgumentLeavesItsKeyOut) {
  open().setProcessAttributes(::getpid(), CFSTR("kind"), CFSTR("name"), CFSTR("1"));
  open().setProcessAttributes(::getpid(), nullptr, nullptr, CFSTR("2"));
  EXPECT_EQ(attributes(), "{" + pid() + ": {Version: \"2\"}}");
}

TEST_F(ServicePIDFileTest, AttributesThatOthersAddedToAProcessStay) {
  writeFile(path,
            document("<key>attributes</key><dict><key>" + pid() + "</key><dict><key>Own</key><true/></dict></dict>"));
  open().setProcessAttributes(::getpid(), CFSTR("kind"), nullptr, nullptr);
  EXPECT_EQ(attributes(), "{" + pid() + ": {Kind: \"kind\", Own: true}}");
}

TEST_F(ServicePIDFileTest, RegisteringRemovesTheDeadAndKeepsTheLiving) {
  const std::string dead = std::to_string(deadProcess());
  const std::string parent = std::to_string(::getppid());
  writeFile(path, document("<key>attributes</key><dict><key>" + dead + "</key><dict/><key>" + parent +
                           "</key><dict/></dict>"));
  open().setProcessAttributes(::getpid(), CFSTR("k"), nullptr, nullptr);
  const std::string written = attributes();
  EXPECT_EQ(written.find(dead + ": "), std::string::npos) << written;
  EXPECT_NE(written.find(parent + ": {}"), std::string::npos) << written;
  EXPECT_NE(written.find(pid() + ": {Kind: \"k\"}"), std::string::npos) << written;
}

TEST_F(ServicePIDFileTest, WhatIsNoProcessIdCountsAsDeadAndIsNeverSignalled) {
  std::string body;
  for (const char* const key : {"0", "-1", "-0", "+5", "007", " 5", "5 ", "", "abc", "5x", "4294967296", "2147483648",
                                "99999999999999999999", "-2147483648"}) {
    body += "<key>" + std::string(key) + "</key><dict/>";
  }
  writeFile(path, document("<key>attributes</key><dict>" + body + "</dict>"));
  open().setProcessAttributes(::getpid(), CFSTR("k"), nullptr, nullptr);
  EXPECT_EQ(attributes(), "{" + pid() + ": {Kind: \"k\"}}");
}

TEST_F(ServicePIDFileTest, AProcessThatMayNotBeSignalledCountsAsDead) {
  if (::getuid() != 0) GTEST_SKIP() << "needs root, to become a user who may not signal this process";
  const std::string open_ = scratchFolder("shared");
  std::filesystem::permissions(scratchHome(), std::filesystem::perms::all);
  std::filesystem::permissions(open_, std::filesystem::perms::all);
  const std::string file = open_ + "/pids.plist";
  writeFile(file, document("<key>attributes</key><dict><key>" + pid() + "</key><dict/></dict>"));
  std::filesystem::permissions(file, std::filesystem::perms::owner_all | std::filesystem::perms::others_read |
                                         std::filesystem::perms::others_write);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(2);
    CServicePIDFile(CFSTR("k"), str(file).get()).setProcessAttributes(::getpid(), CFSTR("k"), nullptr, nullptr);
    ::_exit(0);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(describe(sectionOfFile(file, "attributes")), "{" + std::to_string(child) + ": {Kind: \"k\"}}");
}

TEST_F(ServicePIDFileTest, RegisteringKeepsThePidListOfTheKey) {
  open().put({17});
  open().setProcessAttributes(::getpid(), CFSTR("k"), nullptr, nullptr);
  open().clearProcessAttributes(::getpid());
  EXPECT_EQ(describeFile(path), "{mervaned: [17]}");
}

TEST_F(ServicePIDFileTest, ClearingTheLastProcessRemovesAttributes) {
  CServicePIDFile file = open();
  file.setProcessAttributes(::getpid(), CFSTR("k"), nullptr, nullptr);
  EXPECT_TRUE(file.fileLock().isNull()) << "the lock is given back";
  file.clearProcessAttributes(::getpid());
  EXPECT_TRUE(file.fileLock().isNull());
  EXPECT_EQ(describeFile(path), "{}");
}

TEST_F(ServicePIDFileTest, UnderAHeldLockNothingIsReadAgainAndTheLockStays) {
  CServicePIDFile file = open();
  writeFile(path, document("<key>other</key><array><integer>5</integer></array>"));
  ASSERT_TRUE(file.lockForRW());
  file.refresh();
  file.setProcessAttributes(::getpid(), CFSTR("k"), nullptr, nullptr);
  EXPECT_FALSE(file.fileLock().isNull());
  file.clearProcessAttributes(::getpid());
  EXPECT_FALSE(file.fileLock().isNull());
  EXPECT_TRUE(file.unlock());
  EXPECT_EQ(describeFile(path), "{other: [5]}");
}

TEST_F(ServicePIDFileTest, ThreadsRegisteringAtTheSameTimeAllEndUpInTheFile) {
  // Living processes to register: this one's own children.
  std::vector<pid_t> children(8);
  for (pid_t& child : children) {
    child = ::fork();
    if (child == 0) {
      ::pause();
      ::_exit(0);
    }
  }
  std::vector<std::thread> threads;
  for (const pid_t child : children) {
    threads.emplace_back([this, child] { open().setProcessAttributes(child, CFSTR("k"), nullptr, nullptr); });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string written = attributes();
  for (const pid_t child : children) {
    EXPECT_NE(written.find(std::to_string(child) + ": {Kind: \"k\"}"), std::string::npos) << written;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
}

TEST_F(ServicePIDFileTest, ThePathIsACopy) {
  const CSharedCFRef<CFMutableStringRef> given = CFStringCreateMutableCopy(kCFAllocatorDefault, 0, cfPath.get());
  CServicePIDFile file(CFSTR("k"), given.get());
  CFStringAppend(given.get(), CFSTR(".other"));
  EXPECT_EQ(utf8(file.filePath()), path);
  file.put({17});
  EXPECT_EQ(describeFile(path), "{k: [17]}");
}

TEST_F(ServicePIDFileTest, TheDefaultPathIsThePidFile) {
  EXPECT_EQ(utf8(CServicePIDFile(CFSTR("k")).filePath()),
            scratchHome() + "/Library/Application Support/Lumisphere/LumispherePID.plist");
}

}  // namespace
