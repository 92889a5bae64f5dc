// Files that cannot be understood are never overwritten.
#include <tovan/service_cache_file.h>
#include <tovan/tovan_config_file.h>

#include <filesystem>
#include <fstream>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;

class CorruptFileTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("corrupt") + "/config.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);
  std::string whole;

  void SetUp() override {
    tovan::CServiceCacheFile cache(cfPath.get());
    tovan::CServiceCacheEntry entry(CFSTR("jobcontroller:com.example.x"), nullptr);
    entry.setPath(CFSTR("/a b/ü"));
    entry.instances = 2;
    cache.put(entry);
    cache.flush();
    tovan::CTovanConfigFile config(cfPath.get());
    config.stdoutPath = str("/tmp/out");
    config.flush();
    whole = readFile(path);
    ::testing::internal::CaptureStderr();  // thousands of console lines
  }
  void TearDown() override { ::testing::internal::GetCapturedStderr(); }

  // Flushes another section over the content. Either the content was understood, and its sections are carried through,
  // or every byte stays.
  void flushOver(const std::string& content, const std::string& what) {
    overwrite(content);
    const std::string thrown = thrownBy([this] {
      tovan::CTovanConfigFile file(cfPath.get());
      file.flush();
    });
    if (thrown != "nothing") {
      ++refused;
      EXPECT_EQ(readFile(path), content) << what << ": " << thrown;
      EXPECT_NE(thrown.find("(" + path + ")"), std::string::npos) << what << ": " << thrown;
      EXPECT_NE(thrown.find("line "), std::string::npos) << what << ": " << thrown;
    } else {
      ++understood;
    }
  }

  // Without emptying the file first, which some file systems answer with a wait for the disk.
  void overwrite(const std::string& content) const {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file << content;
    file.close();
    EXPECT_TRUE(file.good());
    std::filesystem::resize_file(path, content.size());
  }

  int refused = 0;
  int understood = 0;
};

TEST_F(CorruptFileTest, AFileCutShortAtAnyByteIsLeftAsItIs) {
  const std::size_t end = whole.rfind("</plist>");
  for (std::size_t length = 1; length < end; ++length) {
    flushOver(whole.substr(0, length), "the first " + std::to_string(length) + " bytes");
  }
  EXPECT_EQ(understood, 0) << "of " << end;
}

TEST_F(CorruptFileTest, AFileWithOneBitFlippedIsUnderstoodOrLeftAsItIs) {
  for (std::size_t byte = 0; byte < whole.size(); ++byte) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string flipped = whole;
      flipped[byte] = static_cast<char>(flipped[byte] ^ (1 << bit));
      flushOver(flipped, "bit " + std::to_string(bit) + " of byte " + std::to_string(byte));
    }
  }
  EXPECT_GT(refused, 1000);
  EXPECT_GT(understood, 100) << "flips inside texts are texts again";
}

TEST_F(CorruptFileTest, HostileFilesAreRefusedWithLineAndColumn) {
  std::string nested;
  for (int i = 0; i < 100000; ++i) nested += "<array>";
  for (const std::string& content :
       {std::string("\xff\xfe\x00x", 4), std::string("<plist><dict><key>a</key>"), std::string("<plist>") + nested,
        std::string("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><dict><key>&a;</key><true/></dict></plist>"),
        std::string("<plist><dict><key>a</key><integer>99999999999999999999999</integer></dict></plist>"),
        std::string("<plist><dict><key>\xc3\x28</key><true/></dict></plist>"),
        std::string("<plist><dict><key>a</key></dict></plist>"), std::string("\0\0\0", 3)}) {
    flushOver(content, content.substr(0, 60));
  }
  EXPECT_EQ(refused, 8);
}

}  // namespace
