#include "foundation/runtime_path.h"

#include <plinth/shared_cf_ref.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using plinth::CSharedCFRef;

CSharedCFRef<CFURLRef> folderURL(const std::string& path) {
  return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                 static_cast<CFIndex>(path.size()), true);
}

class RuntimePathTest : public ::testing::Test {
 protected:
  std::string moved(const char* path) { return moved(path, mervane_, lumisphere_); }
  static std::string moved(const char* path, const CSharedCFRef<CFURLRef>& mervane,
                           const CSharedCFRef<CFURLRef>& lumisphere) {
    const CSharedCFRef<CFStringRef> stored =
        CFStringCreateWithCString(kCFAllocatorDefault, path, kCFStringEncodingUTF8);
    const CSharedCFRef<CFStringRef> result = tovan::getRuntimePath(stored.get(), mervane.get(), lumisphere.get());
    return result ? CFStringGetCStringPtr(result.get(), kCFStringEncodingUTF8) : "(null)";
  }
  const CSharedCFRef<CFURLRef> mervane_ = folderURL("/new/one/Frameworks/Mervane.framework");
  const CSharedCFRef<CFURLRef> lumisphere_ = folderURL("/new/two/Frameworks/Lumisphere.framework");
};

TEST_F(RuntimePathTest, APathInTheClusterFrameworkIsReRootedThere) {
  EXPECT_EQ(moved("/old/Frameworks/Mervane.framework/Resources/mervaned"),
            "/new/one/Frameworks/Mervane.framework/Resources/mervaned");
}

TEST_F(RuntimePathTest, APathInTheApplicationFrameworkIsReRootedThere) {
  EXPECT_EQ(moved("/old/Lumisphere.framework/Resources/X.bundle/Contents/Linux/X"),
            "/new/two/Frameworks/Lumisphere.framework/Resources/X.bundle/Contents/Linux/X");
}

TEST_F(RuntimePathTest, TheClusterFrameworkComesFirstWhereverItsNameStands) {
  EXPECT_EQ(moved("/a/Mervane.framework/b/Lumisphere.framework/c"),
            "/new/one/Frameworks/Mervane.framework/b/Lumisphere.framework/c");
  EXPECT_EQ(moved("/a/Lumisphere.framework/b/Mervane.framework/c"), "/new/one/Frameworks/Mervane.framework/c");
}

TEST_F(RuntimePathTest, TheFirstOccurrenceDecides) {
  EXPECT_EQ(moved("/a/Mervane.framework/b/Mervane.framework/c"),
            "/new/one/Frameworks/Mervane.framework/b/Mervane.framework/c");
}

TEST_F(RuntimePathTest, APathWithNeitherNameIsNull) {
  for (const char* path : {"/usr/bin/service", "", "Mervane.framework/x", "/Mervane.framework", "/Mervane.framework2/x",
                           "/My Mervane.framework/x", "/mervane.framework/x"}) {
    EXPECT_EQ(moved(path), "(null)") << path;
  }
}

TEST_F(RuntimePathTest, WithoutTheFrameworkItNamesAPathIsNull) {
  EXPECT_EQ(moved("/a/Mervane.framework/b", nullptr, lumisphere_), "(null)");
  EXPECT_EQ(moved("/a/Lumisphere.framework/b", mervane_, nullptr), "(null)");
  EXPECT_EQ(moved("/a/Lumisphere.framework/b/Mervane.framework/c", nullptr, lumisphere_), "(null)");
  EXPECT_EQ(moved("/a/Lumisphere.framework/b", nullptr, lumisphere_), "/new/two/Frameworks/Lumisphere.framework/b");
}

TEST_F(RuntimePathTest, ANullPathIsNull) {
  EXPECT_EQ(tovan::getRuntimePath(nullptr, mervane_.get(), lumisphere_.get()), nullptr);
}

TEST_F(RuntimePathTest, BlanksPercentSignsAndOtherLettersStay) {
  const auto base = folderURL("/neu \xC3\xB6 100%25/Mervane.framework");
  EXPECT_EQ(moved("/alt/Mervane.framework/a b/50%/\xE6\x97\xA5#?;\"'", base, nullptr),
            "/neu \xC3\xB6 100%25/Mervane.framework/a b/50%/\xE6\x97\xA5#?;\"'");
}

TEST_F(RuntimePathTest, TheCallerOwnsTheResult) {
  const CSharedCFRef<CFStringRef> result =
      tovan::getRuntimePath(CFSTR("/a/Mervane.framework/b"), mervane_.get(), lumisphere_.get());
  ASSERT_TRUE(result);
  EXPECT_EQ(CFGetRetainCount(result.get()), 1);
}

}  // namespace
