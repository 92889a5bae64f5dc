#include <tovan/service_cache_file.h>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using tovan::CServiceCacheEntry;
using tovan::CServiceCacheFile;

class ServiceCacheFileTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("cache") + "/config.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);
};

std::string named(const std::string& name, const std::string& body) {
  return "<key>" + name + "</key><dict>" + body + "</dict>";
}

std::string namesOf(const CServiceCacheFile& file) {
  std::vector<CServiceCacheEntry> entries;
  file.get(entries, 0);
  std::string names;
  for (const CServiceCacheEntry& entry : entries) names += utf8(entry.name()) + " ";
  return names;
}

TEST_F(ServiceCacheFileTest, EntriesLoadInTheOrderOfTheFile) {
  writeFile(path, document("<key>mervaneservices</key><dict>" + named("b", "") + named("a", "") +
                           "<key>_orderList</key><array><string>a</string></array></dict>"));
  EXPECT_EQ(namesOf(CServiceCacheFile(cfPath.get())), "b a ");
}

TEST_F(ServiceCacheFileTest, AFlushKeepsAllOtherSectionsAndWritesNoOrderList) {
  writeFile(path, document("<key>serviceconfig</key><dict/><key>Version</key><string>2</string>"));
  CServiceCacheFile file(cfPath.get());
  file.put(CServiceCacheEntry(CFSTR("x"), nullptr));
  file.put(CServiceCacheEntry(CFSTR("y"), nullptr));
  file.flush();
  const std::string plain = describe(CServiceCacheEntry().toDict());
  EXPECT_EQ(describeFile(path),
            "{Version: \"2\", mervaneservices: {x: " + plain + ", y: " + plain + "}, serviceconfig: {}}");
  EXPECT_EQ(namesOf(CServiceCacheFile(cfPath.get())), "x y ");
}

TEST_F(ServiceCacheFileTest, ARefreshWithoutTheSectionKeepsTheEntries) {
  CServiceCacheFile file(cfPath.get());
  file.put(CServiceCacheEntry(CFSTR("x"), nullptr));
  file.flush();
  for (const std::string body : {"", "<key>mervaneservices</key><array/>"}) {
    writeFile(path, document(body));
    EXPECT_TRUE(file.refresh());
    EXPECT_EQ(namesOf(file), "x ") << body;
  }
}

TEST_F(ServiceCacheFileTest, AConvertedInstanceCountIsWrittenBackConverted) {
  writeFile(path, document("<key>mervaneservices</key><dict>" +
                           named("x", "<key>Instances</key><integer>-1000000</integer>") + "</dict>"));
  CServiceCacheFile file(cfPath.get());
  file.flush();
  EXPECT_NE(describeFile(path).find("Instances: 1,"), std::string::npos) << describeFile(path);
}

TEST_F(ServiceCacheFileTest, EntriesThatAreNoDictionariesAreDropped) {
  writeFile(path,
            document("<key>mervaneservices</key><dict><key>n</key><integer>5</integer>" + named("x", "") + "</dict>"));
  EXPECT_EQ(namesOf(CServiceCacheFile(cfPath.get())), "x ");
}

TEST_F(ServiceCacheFileTest, RemovingAnEntryRemovesItFromTheFile) {
  CServiceCacheFile file(cfPath.get());
  file.put(CServiceCacheEntry(CFSTR("x"), nullptr));
  file.flush();
  EXPECT_TRUE(file.remove(CFSTR("x")));
  EXPECT_FALSE(file.remove(CFSTR("x")));
  file.flush();
  EXPECT_EQ(describeFile(path), "{mervaneservices: {}}");
}

TEST_F(ServiceCacheFileTest, AFlushUnderAHeldLockWritesTheSectionAsTheWholeFile) {
  writeFile(path, document("<key>other</key><true/><key>mervaneservices</key><dict>" + named("x", "") + "</dict>"));
  CServiceCacheFile file(cfPath.get());
  ASSERT_TRUE(file.lockForRW());
  file.refresh();
  file.flush();
  file.unlock();
  EXPECT_EQ(describeFile(path), "{mervaneservices: {x: " + describe(CServiceCacheEntry().toDict()) + "}, x: {}}");
}

TEST_F(ServiceCacheFileTest, TheDefaultPathIsTheSharedFile) {
  EXPECT_EQ(utf8(CServiceCacheFile().filePath()),
            scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist");
  EXPECT_EQ(utf8(CServiceCacheFile(CFSTR("~/c.plist")).filePath()), scratchHome() + "/c.plist");
}

TEST_F(ServiceCacheFileTest, RuntimePathsOfAllEntriesAreUpdated) {
  CServiceCacheFile file(cfPath.get());
  for (const char* const name : {"x", "y"}) {
    CServiceCacheEntry entry(str(name).get(), nullptr);
    entry.setPath(CFSTR("/old/place/Mervane.framework/Resources/tool"));
    file.put(entry);
  }
  file.updateRuntimeServicePaths();
  std::vector<CServiceCacheEntry> entries;
  file.get(entries, 0);
  for (const CServiceCacheEntry& entry : entries) {
    const std::string updated = utf8(entry.path());
    EXPECT_EQ(updated.find("/old/place"), std::string::npos) << updated;
    EXPECT_NE(updated.find("/Frameworks/Mervane.framework/Resources/tool"), std::string::npos) << updated;
  }
}

}  // namespace
