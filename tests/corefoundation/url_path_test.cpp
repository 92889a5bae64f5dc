// URLs and file-system paths.
#include "tests/corefoundation/url_support.h"
#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

using test::fileURL;
using test::Held;
using test::pathOf;
using test::string;
using test::textOf;
using test::textOfOwned;
using test::url;

std::string bytesOf(CFURLRef made, bool resolve = false) {
  UInt8 buffer[1024];
  if (!CFURLGetFileSystemRepresentation(made, resolve, buffer, sizeof buffer)) return "(none)";
  return reinterpret_cast<const char*>(buffer);
}

struct PathExample {
  std::string path;
  bool isDirectory;
  std::string text;
  std::string back;
};

void PrintTo(const PathExample& example, std::ostream* out) { *out << example.path; }

class CFURLPathTest : public testing::TestWithParam<PathExample> {};

TEST_P(CFURLPathTest, GoesToAURLAndBack) {
  const PathExample& example = GetParam();
  const Held<CFURLRef> made(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, string(example.path).get(),
                                                          kCFURLPOSIXPathStyle, example.isDirectory));
  ASSERT_TRUE(made) << example.path;
  EXPECT_EQ(textOf(made.get()), example.text);
  EXPECT_EQ(pathOf(made.get()), example.back);
  EXPECT_EQ(bytesOf(made.get()), example.back);
  EXPECT_EQ(textOf(fileURL(example.path, example.isDirectory).get()), example.text);
  // The text that came out is a URL that goes in again.
  const auto again = url(example.text, CFURLGetBaseURL(made.get()));
  ASSERT_TRUE(again) << example.text;
  EXPECT_TRUE(CFEqual(again.get(), made.get()));
}

INSTANTIATE_TEST_SUITE_P(
    OfEveryKind, CFURLPathTest,
    testing::Values(
        PathExample{"/", false, "file:///", "/"}, PathExample{"/", true, "file:///", "/"},
        PathExample{"///", false, "file:///", "/"}, PathExample{"/a/b", false, "file:///a/b", "/a/b"},
        PathExample{"/a/b", true, "file:///a/b/", "/a/b"}, PathExample{"/a/b/", false, "file:///a/b", "/a/b"},
        PathExample{"/a/b//", true, "file:///a/b/", "/a/b"}, PathExample{"//a//b", false, "file:////a//b", "//a//b"},
        PathExample{"/a/../b/./c", false, "file:///a/../b/./c", "/a/../b/./c"},
        PathExample{"/with blank", false, "file:///with%20blank", "/with blank"},
        PathExample{"/100%/#1?", false, "file:///100%25/%231%3F", "/100%/#1?"},
        PathExample{"/%41", false, "file:///%2541", "/%41"},
        PathExample{"/'q'\"d\"", false, "file:///'q'%22d%22", "/'q'\"d\""},
        PathExample{"/line\nbreak\ttab", false, "file:///line%0Abreak%09tab", "/line\nbreak\ttab"},
        PathExample{"/a;b:c@d&e=f+g,h$i!j*k(l)~m", false, "file:///a%3Bb:c@d&e=f+g,h$i!j*k(l)~m",
                    "/a;b:c@d&e=f+g,h$i!j*k(l)~m"},
        PathExample{"/<>\\^`{|}[]", false, "file:///%3C%3E%5C%5E%60%7B%7C%7D%5B%5D", "/<>\\^`{|}[]"},
        PathExample{"/Grüße/日本/😀", true, "file:///Gr%C3%BC%C3%9Fe/%E6%97%A5%E6%9C%AC/%F0%9F%98%80/", "/Grüße/日本/😀"},
        PathExample{"/-x/~y/$(z)", false, "file:///-x/~y/$(z)", "/-x/~y/$(z)"},
        PathExample{"rel/x", false, "rel/x", "rel/x"}, PathExample{"rel/", true, "rel/", "rel"},
        PathExample{"..", true, "../", ".."}, PathExample{"a:b/c", false, "a%3Ab/c", "a:b/c"}));

TEST(CFURLPathsTest, KeepEveryByteThatAFileNameCanHave) {
  std::string path = "/";
  for (int byte = 1; byte < 256; ++byte) path += static_cast<char>(byte);
  const auto made = fileURL(path, false);
  ASSERT_TRUE(made);
  EXPECT_EQ(bytesOf(made.get()), path);
  EXPECT_EQ(pathOf(made.get()), "(null)") << "the bytes are not UTF-8";
  ASSERT_TRUE(url(textOf(made.get()))) << textOf(made.get());
}

TEST(CFURLPathsTest, RefuseWhatIsNoPath) {
  EXPECT_FALSE(fileURL("", false));
  EXPECT_FALSE(fileURL(std::string("/a\0b", 4), false));
  EXPECT_FALSE(fileURL("a", false, reinterpret_cast<CFURLRef>(CFSTR("b"))));
  EXPECT_EQ(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, nullptr, kCFURLPOSIXPathStyle, false), nullptr);
  EXPECT_EQ(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR(""), kCFURLPOSIXPathStyle, true), nullptr);
  EXPECT_EQ(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/a"), kCFURLHFSPathStyle, false), nullptr);
  EXPECT_EQ(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("C:\\a"), kCFURLWindowsPathStyle, false), nullptr);
  EXPECT_EQ(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, nullptr, 1, false), nullptr);
}

TEST(CFURLPathsTest, HaveOnlyThePOSIXStyle) {
  const auto made = url("file:///a");
  EXPECT_EQ(CFURLCopyFileSystemPath(made.get(), kCFURLHFSPathStyle), nullptr);
  EXPECT_EQ(CFURLCopyFileSystemPath(made.get(), kCFURLWindowsPathStyle), nullptr);
}

TEST(CFURLPathsTest, AreRelativeToTheCurrentDirectoryOfTheMoment) {
  const std::string folder = test::scratchFolder("current folder");
  char before[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(::chdir(folder.c_str()), 0);
  const auto made = fileURL("x y/z", false);
  ASSERT_EQ(::chdir(before), 0);
  ASSERT_TRUE(made);
  EXPECT_EQ(textOf(made.get()), "x%20y/z");
  EXPECT_EQ(pathOf(made.get()), "x y/z") << "the path is not resolved";
  EXPECT_EQ(bytesOf(made.get(), true), folder + "/x y/z");
  EXPECT_EQ(test::pathOfOwned(CFURLCopyAbsoluteURL(made.get())), folder + "/x y/z");
}

TEST(CFURLPathsTest, AreRelativeToTheBaseGiven) {
  const auto base = fileURL("/a b/c", true);
  const auto made = fileURL("../d", true, base.get());
  EXPECT_EQ(textOf(made.get()), "../d/");
  EXPECT_EQ(CFURLGetBaseURL(made.get()), base.get());
  EXPECT_EQ(bytesOf(made.get(), true), "/a b/d");
  EXPECT_EQ(bytesOf(made.get(), false), "../d");
  const auto absolute = fileURL("/x", false, base.get());
  EXPECT_EQ(CFURLGetBaseURL(absolute.get()), nullptr);
}

TEST(CFURLPathsTest, HaveNoneWithoutACurrentDirectory) {
  const std::string folder = test::scratchFolder("gone");
  char before[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(::chdir(folder.c_str()), 0);
  ASSERT_EQ(::rmdir(folder.c_str()), 0);
  const auto made = fileURL("x", false);
  ASSERT_EQ(::chdir(before), 0);
  EXPECT_FALSE(made);
}

TEST(CFURLPathsTest, FitTheBufferOrLeaveItAlone) {
  const auto made = url("file:///abc");
  UInt8 buffer[6] = "#####";
  EXPECT_FALSE(CFURLGetFileSystemRepresentation(made.get(), true, buffer, 4));
  EXPECT_STREQ(reinterpret_cast<const char*>(buffer), "#####");
  EXPECT_TRUE(CFURLGetFileSystemRepresentation(made.get(), true, buffer, 5));
  EXPECT_STREQ(reinterpret_cast<const char*>(buffer), "/abc");
  EXPECT_FALSE(CFURLGetFileSystemRepresentation(made.get(), true, buffer, 0));
  EXPECT_FALSE(CFURLGetFileSystemRepresentation(made.get(), true, nullptr, 5));
}

TEST(CFURLPathsTest, WithANulOrMissingAreNone) {
  EXPECT_EQ(pathOf(url("file:///a%00b").get()), "(null)");
  EXPECT_EQ(bytesOf(url("file:///a%00b").get()), "(none)");
  EXPECT_EQ(pathOf(url("http://h").get()), "(null)");
  EXPECT_EQ(pathOf(url("mailto:x").get()), "(null)");
  EXPECT_EQ(bytesOf(url("file:///caf%E9").get()), "/caf\xE9");
}

TEST(CFURLPathsTest, OfDirectoriesEndInASlashOrInDots) {
  for (const char* const text : {"file:///", "file:///a/", "a/", ".", "..", "a/..", "http://h/?q"}) {
    EXPECT_TRUE(CFURLHasDirectoryPath(url(text).get())) << text;
  }
  for (const char* const text : {"file:///a", "a", "http://h", "a...", "mailto:x/", "http://h/a?b/"}) {
    EXPECT_FALSE(CFURLHasDirectoryPath(url(text).get())) << text;
  }
}

struct ComponentExample {
  const char* text;
  const char* last;
  const char* extension;
  const char* parent;
  const char* withoutExtension;
  const char* withExtension;  // "x y" appended
};

void PrintTo(const ComponentExample& example, std::ostream* out) { *out << example.text; }

class CFURLComponentTest : public testing::TestWithParam<ComponentExample> {};

TEST_P(CFURLComponentTest, IsFoundTakenOffAndExtended) {
  const ComponentExample& example = GetParam();
  const auto made = url(example.text, url("file:///base/").get());
  ASSERT_TRUE(made);
  EXPECT_EQ(textOfOwned(CFURLCopyLastPathComponent(made.get())), example.last);
  EXPECT_EQ(textOfOwned(CFURLCopyPathExtension(made.get())), example.extension);
  EXPECT_EQ(textOfOwned(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, made.get())), example.parent);
  EXPECT_EQ(textOfOwned(CFURLCreateCopyDeletingPathExtension(kCFAllocatorDefault, made.get())),
            example.withoutExtension);
  EXPECT_EQ(textOfOwned(CFURLCreateCopyAppendingPathExtension(kCFAllocatorDefault, made.get(), CFSTR("x y"))),
            example.withExtension);
}

constexpr const char* kNone = "(null)";

INSTANTIATE_TEST_SUITE_P(
    OfEveryShape, CFURLComponentTest,
    testing::Values(
        ComponentExample{"file:///a/b.txt", "b.txt", "txt", "file:///a/", "file:///a/b", "file:///a/b.txt.x%20y"},
        ComponentExample{"file:///a/b.d/", "b.d", "d", "file:///a/", "file:///a/b/", "file:///a/b.d.x%20y/"},
        ComponentExample{"file:///a//b//", "b", kNone, "file:///a/", "file:///a//b//", "file:///a//b.x%20y/"},
        ComponentExample{"file:///a", "a", kNone, "file:///", "file:///a", "file:///a.x%20y"},
        ComponentExample{"file:///", "/", kNone, "file:///", "file:///", kNone},
        ComponentExample{"http://h", "", kNone, "http://h/", "http://h", kNone},
        ComponentExample{"http://h/a/b.c?q#f", "b.c", "c", "http://h/a/?q#f", "http://h/a/b?q#f",
                         "http://h/a/b.c.x%20y?q#f"},
        ComponentExample{"file:///a/.profile", ".profile", kNone, "file:///a/", "file:///a/.profile",
                         "file:///a/.profile.x%20y"},
        ComponentExample{"file:///a/b.", "b.", kNone, "file:///a/", "file:///a/b.", "file:///a/b..x%20y"},
        ComponentExample{"file:///a.b/c", "c", kNone, "file:///a.b/", "file:///a.b/c", "file:///a.b/c.x%20y"},
        ComponentExample{"file:///a.tar.gz", "a.tar.gz", "gz", "file:///", "file:///a.tar", "file:///a.tar.gz.x%20y"},
        ComponentExample{"file:///x%20y.%C3%A9", "x y.é", "é", "file:///", "file:///x%20y",
                         "file:///x%20y.%C3%A9.x%20y"},
        ComponentExample{"file:///a/..", "..", kNone, "file:///a/../../", "file:///a/..", kNone},
        ComponentExample{"file:///a/.", ".", kNone, "file:///", "file:///a/.", kNone},
        ComponentExample{"a", "a", kNone, "./", "a", "a.x%20y"},
        ComponentExample{"a/b", "b", kNone, "a/", "a/b", "a/b.x%20y"},
        ComponentExample{"./", ".", kNone, "../", "./", kNone},
        ComponentExample{"..", "..", kNone, "../../", "..", kNone}, ComponentExample{"", "", kNone, "../", "", kNone}));

TEST(CFURLComponentsTest, AreNotThereInAURLThatCannotBeDecomposed) {
  const auto made = url("mailto:a.b");
  EXPECT_EQ(textOfOwned(CFURLCopyLastPathComponent(made.get())), kNone);
  EXPECT_EQ(textOfOwned(CFURLCopyPathExtension(made.get())), kNone);
  EXPECT_EQ(textOfOwned(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, made.get())), kNone);
  EXPECT_EQ(textOfOwned(CFURLCreateCopyDeletingPathExtension(kCFAllocatorDefault, made.get())), kNone);
  EXPECT_EQ(textOfOwned(CFURLCreateCopyAppendingPathExtension(kCFAllocatorDefault, made.get(), CFSTR("c"))), kNone);
  EXPECT_EQ(textOfOwned(CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, made.get(), CFSTR("c"), false)),
            kNone);
}

struct AppendExample {
  const char* text;
  const char* component;
  bool isDirectory;
  const char* result;
};

void PrintTo(const AppendExample& example, std::ostream* out) { *out << example.text << " + " << example.component; }

class CFURLAppendTest : public testing::TestWithParam<AppendExample> {};

TEST_P(CFURLAppendTest, JoinsWithOneSlash) {
  const AppendExample& example = GetParam();
  const auto base = url("file:///base/");
  const auto made = url(example.text, base.get());
  ASSERT_TRUE(made);
  const Held<CFURLRef> longer(CFURLCreateCopyAppendingPathComponent(
      kCFAllocatorDefault, made.get(), string(example.component).get(), example.isDirectory));
  EXPECT_EQ(textOf(longer.get()), example.result);
  EXPECT_EQ(CFURLGetBaseURL(longer.get()), CFURLGetBaseURL(made.get()));
  EXPECT_TRUE(url(textOf(longer.get()), base.get())) << "the result is a URL";
}

INSTANTIATE_TEST_SUITE_P(
    OfEveryShape, CFURLAppendTest,
    testing::Values(
        AppendExample{"file:///a", "b", false, "file:///a/b"}, AppendExample{"file:///a/", "b", false, "file:///a/b"},
        AppendExample{"file:///a/", "b", true, "file:///a/b/"},
        AppendExample{"file:///a/", "/b/", false, "file:///a/b"},
        AppendExample{"file:///a", "b/", true, "file:///a/b/"},
        AppendExample{"file:///a", "b/c", false, "file:///a/b/c"}, AppendExample{"file:///", "b", false, "file:///b"},
        AppendExample{"file:///a", "..", true, "file:///a/../"},
        AppendExample{"file:///a", "x y#?%\n", false, "file:///a/x%20y%23%3F%25%0A"},
        AppendExample{"file:///a", "é", false, "file:///a/%C3%A9"},
        AppendExample{"file:///a", "b:c", false, "file:///a/b:c"}, AppendExample{"file:///a", "", false, "file:///a"},
        AppendExample{"file:///a", "", true, "file:///a/"}, AppendExample{"file:///a", "/", true, "file:///a/"},
        AppendExample{"http://h", "b", false, "http://h/b"}, AppendExample{"http://h", "", true, "http://h/"},
        AppendExample{"http://h/a?q#f", "b", true, "http://h/a/b/?q#f"}, AppendExample{"a", "b", false, "a/b"},
        AppendExample{"", "b:c", false, "b%3Ac"}, AppendExample{"", "b", true, "b/"}, AppendExample{"", "", true, ""}));

TEST(CFURLComponentsTest, RefuseWhatCannotBeAppended) {
  const auto made = url("file:///a");
  EXPECT_EQ(CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, made.get(), nullptr, false), nullptr);
  EXPECT_EQ(CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, made.get(),
                                                  string(std::string_view("x\0y", 3)).get(), false),
            nullptr);
  EXPECT_EQ(CFURLCreateCopyAppendingPathExtension(kCFAllocatorDefault, made.get(), nullptr), nullptr);
  EXPECT_EQ(CFURLCreateCopyAppendingPathExtension(kCFAllocatorDefault, made.get(), CFSTR("")), nullptr);
  EXPECT_EQ(CFURLCreateCopyAppendingPathExtension(kCFAllocatorDefault, made.get(), CFSTR("a/b")), nullptr);
}

// What finding the cluster's framework does.
TEST(CFURLComponentsTest, ComeOffOneByOne) {
  auto made = fileURL("/Apps/Frameworks/M.framework/Versions/A/Frameworks/T.framework", true);
  for (int i = 0; i < 4; ++i) {
    made.reset(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, made.get()));
  }
  EXPECT_EQ(pathOf(made.get()), "/Apps/Frameworks/M.framework");
}

}  // namespace
