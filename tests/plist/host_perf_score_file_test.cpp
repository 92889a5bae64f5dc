#include <gmock/gmock.h>
#include <tovan/cf_util.h>
#include <tovan/host_perf_score_file.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/plist/plist_support.h"
#include "tests/support/processor_host.h"

namespace {

using namespace test;
using testing::HasSubstr;
using tovan::CCPUTypePerfScoreEntry;
using tovan::CFUtil;
using tovan::CHostPerfScoreEntry;
using tovan::CHostPerfScoreFile;

TEST(HostPerfScoreEntryTest, ANewEntryIsEmpty) {
  const CHostPerfScoreEntry entry;
  EXPECT_EQ(entry.name(), nullptr);
  EXPECT_TRUE(entry.toDict().isNull());
}

TEST(HostPerfScoreEntryTest, KeepsACopyOfItsDictionary) {
  const CSharedCFRef<CFMutableDictionaryRef> given(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSetInt(given.get(), CFSTR("a"), 1);
  CHostPerfScoreEntry entry(CFSTR("n"), given.get());
  CFUtil::CFDictSetInt(given.get(), CFSTR("a"), 2);
  EXPECT_EQ(utf8(entry.name()), "n");
  EXPECT_EQ(describe(entry.toDict()), "{a: 1}");
  entry.fromDict(given.get());
  EXPECT_EQ(describe(entry.toDict()), "{a: 2}");
  entry.fromDict(entry.toDict().get());
  EXPECT_EQ(describe(entry.toDict()), "{a: 2}");
  EXPECT_EQ(utf8(entry.name()), "n");
  entry.fromDict(nullptr);
  EXPECT_TRUE(entry.toDict().isNull());
}

TEST(HostPerfScoreEntryTest, ItsDictionaryCanBeChangedInPlace) {
  const CHostPerfScoreEntry entry(CFSTR("n"), dict("").get());
  CFUtil::CFDictSetInt(entry.toDict().get(), CFSTR("a"), 1);
  EXPECT_EQ(describe(entry.toDict()), "{a: 1}");
}

TEST(HostPerfScoreEntryTest, ACopyIsAValueOfItsOwn) {
  const CHostPerfScoreEntry entry(CFSTR("n"), dict("").get());
  CHostPerfScoreEntry copy = entry;
  CHostPerfScoreEntry assigned;
  assigned = entry;
  const CHostPerfScoreEntry& itself = assigned;
  assigned = itself;
  for (const CHostPerfScoreEntry* const other : {&copy, &assigned}) {
    CFUtil::CFDictSetInt(other->toDict().get(), CFSTR("a"), 1);
    EXPECT_EQ(describe(other->toDict()), "{a: 1}");
    EXPECT_EQ(utf8(other->name()), "n");
  }
  copy.setName(CFSTR("m"));
  EXPECT_EQ(utf8(copy.name()), "m");
  copy.setName(nullptr);
  EXPECT_EQ(copy.name(), nullptr);
  EXPECT_EQ(describe(entry.toDict()), "{}");
  EXPECT_EQ(utf8(entry.name()), "n");
}

class HostPerfScoreFileTest : public ::testing::Test {
 protected:
  // The scores' section of the file at the path, with these weights.
  void writeWeights(const std::string& weights) const {
    writeFile(path, document("<key>hostperfscore</key><dict><key>CPUTypes</key><dict>" + weights + "</dict></dict>"));
  }
  double score() const { return CHostPerfScoreFile(cfPath.get()).cpuPerfScore(); }

  const std::string path = scratchFolder("score") + "/config.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);
};

// An x86 processor of no family that has a name of its own.
class HostPerfScoreTest : public HostPerfScoreFileTest {
 protected:
  HostPerfScoreTest() { host.list(x86Listing(85, "Intel(R) Xeon(R) CPU", "2000.000")); }
  const ProcessorHost host{"x86_64", 4};
};

TEST_F(HostPerfScoreTest, WithoutTheSectionEveryTypeWeighsOneAndTheConsoleSaysSo) {
  for (const std::string body : {"", "<key>hostperfscore</key><dict/>", "<key>hostperfscore</key><array/>",
                                 "<key>hostperfscore</key><dict><key>CPUTypes</key><string>x</string></dict>"}) {
    writeFile(path, document(body));
    EXPECT_THAT(consoleOf([this] { EXPECT_DOUBLE_EQ(score(), 2.0 * 4 * 1.0); }),
                HasSubstr("] CCPUTypePerfScoreEntry::cpuTypeScore: unknown CPU type \"Intel X86\".\n"))
        << body;
  }
}

TEST_F(HostPerfScoreTest, WithoutTheFileItScoresTheSameAndCreatesNothing) {
  consoleOf([this] { EXPECT_DOUBLE_EQ(score(), 8.0); });
  EXPECT_FALSE(exists(path));
}

TEST_F(HostPerfScoreTest, ATypeThatIsConfiguredCountsWithItsWeight) {
  writeWeights("<key>Current</key><string>Intel Core 2</string><key>Intel Core 2</key><real>1.5</real>");
  EXPECT_EQ(consoleOf([this] { EXPECT_DOUBLE_EQ(score(), 2.0 * 4 * 1.5); }), "");
}

TEST_F(HostPerfScoreTest, ATypeWithoutAWeightCountsWithTheDefault) {
  writeWeights("<key>Default</key><real>0.8</real>");
  EXPECT_THAT(consoleOf([this] { EXPECT_DOUBLE_EQ(score(), 2.0 * 4 * 0.8); }),
              HasSubstr("unknown CPU type \"Intel X86\"."));
}

TEST_F(HostPerfScoreTest, TheDetectedTypeCountsWithItsWeight) {
  writeWeights("<key>Current</key><string>RuntimeCheck</string><key>Intel X86</key><real>0.25</real>");
  EXPECT_EQ(consoleOf([this] { EXPECT_DOUBLE_EQ(score(), 2.0); }), "");
}

TEST_F(HostPerfScoreTest, AHostWithoutAClockScoresBelowZero) {
  host.list("");
  writeWeights("<key>Intel X86</key><real>2</real>");
  EXPECT_THAT(consoleOf([this] { EXPECT_DOUBLE_EQ(score(), -1.0 * 4 * 2); }), HasSubstr("hw.cpufrequency"));
}

TEST_F(HostPerfScoreFileTest, TheWeightsComeFromTheEntryOfThatName) {
  writeWeights("<key>Default</key><real>0.8</real>");
  CHostPerfScoreFile file(cfPath.get());
  const CCPUTypePerfScoreEntry entry = file.cpuTypes();
  EXPECT_EQ(utf8(entry.name()), "CPUTypes");
  EXPECT_EQ(describe(entry.toDict()), "{Default: 0.800000}");
  EXPECT_TRUE(file.remove(CFSTR("CPUTypes")));
  EXPECT_TRUE(file.cpuTypes().toDict().isNull());
  EXPECT_EQ(file.cpuTypes().name(), nullptr);
}

TEST_F(HostPerfScoreFileTest, AFlushKeepsAllOtherEntriesAndSectionsAndWritesNoOrderList) {
  writeFile(path, document("<key>Version</key><string>2</string><key>other</key><true/><key>hostperfscore</key><dict>"
                           "<key>HostList</key><dict><key>HostName</key><string>a</string></dict></dict>"));
  CHostPerfScoreFile file(cfPath.get());
  file.put(CHostPerfScoreEntry(CFSTR("CPUTypes"), dict("<key>Default</key><integer>2</integer>").get()));
  file.flush();
  EXPECT_EQ(describeFile(path),
            "{Version: \"2\", hostperfscore: {CPUTypes: {Default: 2}, HostList: {HostName: \"a\"}}, other: true}");
}

TEST_F(HostPerfScoreFileTest, AnEntryWithoutADictionaryIsNotWritten) {
  CHostPerfScoreFile file(cfPath.get());
  file.put(CHostPerfScoreEntry(CFSTR("empty"), dict("").get()));
  file.put(CHostPerfScoreEntry(CFSTR("none"), nullptr));
  CHostPerfScoreEntry kept;
  EXPECT_TRUE(file.get(CFSTR("none"), kept));
  file.flush();
  EXPECT_EQ(describeFile(path), "{hostperfscore: {empty: {}}}");
}

TEST_F(HostPerfScoreFileTest, ARefreshWithoutTheSectionKeepsTheEntries) {
  writeWeights("<key>Default</key><integer>2</integer>");
  CHostPerfScoreFile file(cfPath.get());
  writeFile(path, document(""));
  EXPECT_TRUE(file.refresh());
  EXPECT_EQ(describe(file.cpuTypes().toDict()), "{Default: 2}");
}

TEST_F(HostPerfScoreFileTest, ChangingAWeightIsAnEntryReadChangedAndPut) {
  writeWeights("<key>Intel Core</key><real>1.5</real>");
  CHostPerfScoreFile file(cfPath.get());
  const CCPUTypePerfScoreEntry entry = file.cpuTypes();
  CFUtil::CFDictSetDouble(entry.toDict().get(), CFSTR("Intel Core"), 1.75);
  file.put(entry);
  file.flush();
  EXPECT_EQ(CHostPerfScoreFile(cfPath.get()).cpuTypes().cpuTypeScore(CFSTR("Intel Core")), 1.75);
}

TEST_F(HostPerfScoreFileTest, AFileThatCannotBeUnderstoodIsAnErrorAndStaysAsItIs) {
  writeFile(path, "<plist><dict><key>hostperfscore</key>");
  const std::string before = readFile(path);
  ::testing::internal::CaptureStderr();
  EXPECT_THAT(thrownBy([this] { CHostPerfScoreFile file(cfPath.get()); }),
              HasSubstr("255: CPropertyListBasicFile::refresh[" + pid() + "](" + path +
                        "): CFPropertyListCreateFromXMLData() failed, error = "));
  std::filesystem::remove(path);
  CHostPerfScoreFile file(cfPath.get());
  writeFile(path, before);
  EXPECT_THAT(thrownBy([&] { file.flush(); }), HasSubstr("255: "));
  ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(readFile(path), before);
}

TEST_F(HostPerfScoreFileTest, LiesInTheSharedConfigurationFile) {
  const std::string shared = scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist";
  std::filesystem::remove(shared);
  CHostPerfScoreFile file;
  EXPECT_EQ(utf8(file.filePath()), shared);
  EXPECT_TRUE(file.fileLock().isNull());
  file.put(CHostPerfScoreEntry(CFSTR("CPUTypes"), dict("").get()));
  file.flush();
  EXPECT_EQ(describe(sectionOfFile(shared, "hostperfscore")), "{CPUTypes: {}}");
  std::filesystem::remove(shared);
}

}  // namespace
