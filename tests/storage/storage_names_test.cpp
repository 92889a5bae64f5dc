// The names and places of storage folders.
#include <tovan/shared_storage_utils.h>

#include <CoreFoundation/CoreFoundation.h>

#include <chrono>
#include <cmath>
#include <limits>

#include "tests/storage/storage_support.h"

namespace {

using namespace test;
using Utils = tovan::CSharedStorageUtils;

std::string brief(const std::string& id) { return Utils::briefUniqueID(CSTR(id))->str(); }

TEST(BriefUniqueIDTest, OfAnEmptyIdentifierIsAHyphenAndEightZeros) {
  EXPECT_EQ(Utils::briefUniqueID(plinth::makeShared<plinth::CString>())->str(), "-00000000");
  EXPECT_EQ(Utils::briefUniqueID(nullptr)->str(), "-00000000");
}

TEST(BriefUniqueIDTest, TakesTheFirstEightLettersOfTen) { EXPECT_EQ(brief("abcdefghij").substr(0, 9), "abcdefgh-"); }

TEST(BriefUniqueIDTest, RotatesAndAddsEachByte) {
  EXPECT_EQ(brief("a"), "a-00000061");
  EXPECT_EQ(brief("ab"), "ab-000000A0");    // C2 ^ 62
  EXPECT_EQ(brief("abc"), "abc-00000123");  // 140 ^ 63
}

TEST(BriefUniqueIDTest, RotatesTheHighestBitBackToTheLowest) {
  // 'a' and 31 bytes that change nothing but bit 0 and up: computed with the plain definition.
  std::uint32_t hash = 0;
  const std::string id(40, 'a');
  for (const char each : id) hash = (hash << 1 | hash >> 31) ^ static_cast<std::uint32_t>(each);
  char digits[16];
  std::snprintf(digits, sizeof digits, "%08X", hash);
  EXPECT_EQ(brief(id), std::string("aaaaaaaa-") + digits);
}

TEST(BriefUniqueIDTest, SignExtendsBytesAbove127) {
  // C3 A9: FFFFFFC3, then FFFFFF87 ^ FFFFFFA9.
  EXPECT_EQ(brief("\xC3\xA9"), "\xC3\xA9-0000002E");
  EXPECT_EQ(brief("\xC3\xA9"
                  "a"),
            "\xC3\xA9"
            "a-0000003D");
}

TEST(BriefUniqueIDTest, EndsThePrefixBeforeTheFirstHyphen) {
  EXPECT_EQ(brief("ab-cd").substr(0, 3), "ab-");
  EXPECT_EQ(brief("ab-cd").size(), 11U);
  EXPECT_EQ(brief("-abc").size(), 9U);
  EXPECT_EQ(brief("-abc").front(), '-');
}

TEST(BriefUniqueIDTest, OfAUUIDIsTwiceEightHexadecimalDigits) {
  const std::string id = brief("0123ABCD-0000-1111-2222-333344445555");
  ASSERT_EQ(id.size(), 17U);
  EXPECT_EQ(id.substr(0, 9), "0123ABCD-");
  EXPECT_EQ(id.find_first_not_of("0123456789ABCDEF", 9), std::string::npos);
}

TEST(BriefUniqueIDTest, CutsNoCharacterInTwo) {
  std::string id;
  for (int i = 0; i < 9; ++i) id += "\xF0\x9F\x98\x80";
  EXPECT_EQ(brief(id).substr(0, 33), id.substr(0, 32) + "-");
}

TEST(StorageTimeTest, ARequestMayTakeSixtySeconds) { EXPECT_EQ(Utils::requestTimeout(), 60.0); }

double secondsOf(double seconds) {
  const auto begin = std::chrono::steady_clock::now();
  Utils::currentRunLoopRun(seconds);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

TEST(StorageTimeTest, TheRunLoopRunsForItsTimeWithoutAnythingToServe) { EXPECT_GE(secondsOf(0.05), 0.05); }

TEST(StorageTimeTest, NoTimeReturnsAtOnce) {
  for (const double none : {0.0, -1.0, std::nan(""), -std::numeric_limits<double>::infinity()}) {
    EXPECT_LT(secondsOf(none), 1.0) << none;
  }
}

struct Fired {
  int count = 0;
  int stopAt = 0;
};

plinth::CSharedCFRef<CFRunLoopTimerRef> timerEvery(double seconds, Fired& fired) {
  CFRunLoopTimerContext context{0, &fired, nullptr, nullptr, nullptr};
  plinth::CSharedCFRef<CFRunLoopTimerRef> timer = CFRunLoopTimerCreate(
      kCFAllocatorDefault, CFAbsoluteTimeGetCurrent(), seconds, 0, 0,
      [](CFRunLoopTimerRef, void* info) {
        auto& self = *static_cast<Fired*>(info);
        if (++self.count == self.stopAt) CFRunLoopStop(CFRunLoopGetCurrent());
      },
      &context);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer.get(), kCFRunLoopDefaultMode);
  return timer;
}

TEST(StorageTimeTest, TheRunLoopServesItsTimersUntilTheEnd) {
  Fired fired;
  const auto timer = timerEvery(0.005, fired);
  EXPECT_GE(secondsOf(0.1), 0.1);
  EXPECT_GE(fired.count, 2);
  CFRunLoopTimerInvalidate(timer.get());
}

TEST(StorageTimeTest, StoppingTheRunLoopEndsTheWait) {
  Fired fired;
  fired.stopAt = 2;
  const auto timer = timerEvery(0.005, fired);
  EXPECT_LT(secondsOf(std::numeric_limits<double>::infinity()), 60.0);
  EXPECT_EQ(fired.count, 2);
  CFRunLoopTimerInvalidate(timer.get());
}

TEST(StorageURLTest, PublishedFolderLiesBelowTheNormalizedBase) {
  const std::string folder = scratchFolder("published");
  makeFolders(folder + "/real");
  ASSERT_EQ(::symlink("real", (folder + "/link").c_str()), 0);
  const CURLRef url = Utils::publishedSharedURL(folderURL(folder + "/link"), CSTR("abc"));
  EXPECT_EQ(pathOf(url), Utils::normalizedPath(CSTR(folder))->str() + "/real/abc-00000123/shared");
  EXPECT_TRUE(CFURLHasDirectoryPath(url->getURLRef()));
}

TEST(StorageURLTest, SubscribedFolderLiesInTheSharedFolder) {
  const std::string base = "/Users/Shared/Library/Application Support/Lumisphere/Storage/abc-00000123/shared";
  EXPECT_EQ(pathOf(Utils::subscribedSharedURL(CSTR("abc"))), base);
  EXPECT_EQ(pathOf(Utils::sharedInfoURL(CSTR("abc"))), base + "/.mervane.plist");
  EXPECT_EQ(Utils::sharedInfoURL(nullptr)->getLastPathComponent()->str(), ".mervane.plist");
}

TEST(StorageURLTest, AnIdentifierThatWouldLeadElsewhereIsRefused) {
  const std::string brief = Utils::briefUniqueID(CSTR("../../etc"))->str();
  EXPECT_EQ(thrown([] { Utils::subscribedSharedURL(CSTR("../../etc")); }),
            "3/6 identifier [" + brief + "] can't name a folder");
  EXPECT_EQ(thrown([] { Utils::publishedSharedURL(folderURL("/tmp"), CSTR("a/b")); }).substr(0, 16),
            "3/6 identifier [");
}

TEST(StorageURLTest, HostileIdentifiersStayOneComponent) {
  for (const char* const name : kHostileNames) {
    const CURLRef url = Utils::subscribedSharedURL(CSTR(name));
    EXPECT_EQ(url->copyWithoutLastPathComponent()->getLastPathComponent()->str(), brief(name));
  }
}

TEST(StorageURLTest, ARemoteStorageFolderKeepsItsBriefIDHere) {
  const std::string base = "/Users/Shared/Library/Application Support/Lumisphere/Storage/";
  EXPECT_EQ(pathOf(Utils::subscribedSharedURL(urlOf("nfs://host/storage/0123ABCD-89EF0123/shared?port=2049"))),
            base + "0123ABCD-89EF0123/shared");
}

TEST(StorageURLTest, AnyOtherRemoteFolderIsNamedByItsTextWithoutThePort) {
  const std::string plain = pathOf(Utils::subscribedSharedURL(urlOf("nfs://host/folder")));
  EXPECT_EQ(plain, pathOf(Utils::subscribedSharedURL(urlOf("nfs://host/folder?port=2049"))));
  EXPECT_NE(plain, pathOf(Utils::subscribedSharedURL(urlOf("nfs://host/other"))));
  EXPECT_NE(plain.find("/Storage/url-"), std::string::npos) << plain;
  for (const char* const other : {"nfs://host/abc-123/shared", "nfs://host/ab-c-00000001/shared",
                                  "nfs://host/123456789-00000001/shared", "nfs://host/abc-0000000a/shared"}) {
    EXPECT_NE(pathOf(Utils::subscribedSharedURL(urlOf(other))).find("/url-"), std::string::npos) << other;
  }
}

TEST(StorageURLTest, LocalStorageIsTheFolderInTmp) {
  EXPECT_EQ(pathOf(Utils::localClusterStorageURL()), "/tmp/mervane");
  EXPECT_TRUE(CFURLHasDirectoryPath(Utils::localClusterStorageURL()->getURLRef()));
  EXPECT_TRUE(Utils::isLocalClusterStorageURL(folderURL("/tmp/mervane")));
  EXPECT_TRUE(Utils::isLocalClusterStorageURL(fileURL("/tmp/mervane")));
  EXPECT_FALSE(Utils::isLocalClusterStorageURL(folderURL("/tmp/mervane/below")));
  EXPECT_FALSE(Utils::isLocalClusterStorageURL(nullptr));
}

TEST(StorageURLTest, KelpStorageHasItsScheme) {
  EXPECT_TRUE(Utils::isKelpClusterStorageURL(urlOf("kelp://volume/folder")));
  EXPECT_FALSE(Utils::isKelpClusterStorageURL(urlOf("nfs://volume/kelp")));
  EXPECT_FALSE(Utils::isKelpClusterStorageURL(nullptr));
}

}  // namespace
