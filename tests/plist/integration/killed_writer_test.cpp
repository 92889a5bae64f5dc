// A writer that is killed at any system call leaves the old document or the new one, complete.
#include <filesystem>
#include <map>
#include <memory>

#include "tests/plist/plist_support.h"
#include "tests/support/kill_at_call.h"

namespace {

using namespace test;
using tovan::CPropertyListBasicFile;

// A file object that was made before, so that only the flush is looked at.
class Writer : public CPropertyListBasicFile {
 public:
  using CPropertyListBasicFile::CPropertyListBasicFile;
  void flush(const std::string& value) const {
    const CSharedCFRef<CFStringRef> text = str(value);
    flushSection([&text](CFMutableDictionaryRef document) { CFDictionarySetValue(document, CFSTR("a"), text.get()); });
  }
};

// Kills the writer at its stop number `last`; false when the flush was over before.
bool killAtStop(const std::string& path, const std::string& value, int last) {
  std::unique_ptr<Writer> writer;
  return killAtCall(
      last, [&] { writer = std::make_unique<Writer>(str(path).get()); }, [&] { writer->flush(value); });
}

class KilledWriterTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("killed") + "/file.plist";

  void put(const std::string& value) const {
    writeFile(path, document("<key>a</key><string>" + value + "</string><key>other</key><integer>1</integer>"));
  }
  // What a reader finds after each kill, counted.
  std::map<std::string, int> found;
  int tails = 0;

  template <class Prepare>
  void killEverywhere(const std::string& value, Prepare prepare) {
    for (int stop = 1;; ++stop) {
      ASSERT_LT(stop, 1000) << "the flush never ends";
      prepare();
      const bool killed = killAtStop(path, value, stop);
      CPropertyListBasicFile reader(str(path).get());
      const std::string seen = describe(reader.toPropertyList());
      ++found[seen.size() > 100 ? seen.substr(0, 8) + "..." + std::to_string(seen.size()) : seen];
      const std::string content = exists(path) ? readFile(path) : "";
      const std::size_t end = content.find("</plist>\n");
      if (end != std::string::npos && end + 9 != content.size()) ++tails;
      if (!killed) break;
    }
  }
};

TEST_F(KilledWriterTest, AShorterDocumentOverALongerOne) {
  const std::string old(3000, 'o');
  killEverywhere("new", [&] { put(old); });
  const std::string oldSeen = "{a: \"ooo..." + std::to_string(old.size() + 17);
  EXPECT_EQ(found.size(), 2U) << ::testing::PrintToString(found);
  EXPECT_GT(found[oldSeen], 10) << ::testing::PrintToString(found);
  EXPECT_GT(found["{a: \"new\", other: 1}"], 2) << ::testing::PrintToString(found);
  EXPECT_GE(tails, 1) << "a kill between write and truncation leaves a tail";
}

TEST_F(KilledWriterTest, ALongerDocumentOverAShorterOne) {
  const std::string value(30000, 'n');
  killEverywhere(value, [&] { put("old"); });
  const std::string newSeen = "{a: \"nnn..." + std::to_string(value.size() + 17);
  EXPECT_EQ(found.size(), 2U) << ::testing::PrintToString(found);
  EXPECT_GT(found["{a: \"old\", other: 1}"], 10) << ::testing::PrintToString(found);
  EXPECT_GT(found[newSeen], 2) << ::testing::PrintToString(found);
}

TEST_F(KilledWriterTest, TheFirstDocumentOfAFile) {
  killEverywhere("new", [&] { std::filesystem::remove(path); });
  EXPECT_EQ(found.size(), 2U) << ::testing::PrintToString(found);
  EXPECT_GT(found["{}"], 4) << ::testing::PrintToString(found);
  EXPECT_GT(found["{a: \"new\"}"], 2) << ::testing::PrintToString(found);
}

}  // namespace
