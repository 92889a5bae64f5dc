// Finding, replacing, cutting apart and joining.
#include <gtest/gtest.h>

#include <vector>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

using Array = plinth::CSharedCFRef<CFArrayRef>;

// The location, or -1.
CFIndex find(std::string_view string, std::string_view text, CFStringCompareFlags options = 0) {
  const CFRange range = CFStringFind(fromUTF8(string).get(), fromUTF8(text).get(), options);
  const CFIndex length = CFStringGetLength(fromUTF8(text).get());
  EXPECT_EQ(range.length, range.location == kCFNotFound ? 0 : length);
  return range.location;
}

TEST(StringFindTest, FindsTheFirstOrTheLast) {
  EXPECT_EQ(find("abcabc", "bc"), 1);
  EXPECT_EQ(find("abcabc", "bc", kCFCompareBackwards), 4);
  EXPECT_EQ(find("abcabc", "x"), kCFNotFound);
  EXPECT_EQ(find("abc", "abcd"), kCFNotFound);
  EXPECT_EQ(find("abc", "abc"), 0);
  EXPECT_EQ(find("", "a"), kCFNotFound);
  EXPECT_EQ(find("aaa", "aa"), 0);
  EXPECT_EQ(find("aaa", "aa", kCFCompareBackwards), 1);
}

TEST(StringFindTest, NeverFindsTheEmptyText) {
  EXPECT_EQ(find("abc", ""), kCFNotFound);
  EXPECT_EQ(find("", ""), kCFNotFound);
  EXPECT_EQ(CFStringFind(nullptr, CFSTR("a"), 0).location, kCFNotFound);
  EXPECT_EQ(CFStringFind(CFSTR("a"), nullptr, 0).location, kCFNotFound);
}

TEST(StringFindTest, CountsInCodeUnits) {
  EXPECT_EQ(find("é🎉x🎉x", "x"), 3);
  EXPECT_EQ(find("é🎉x🎉x", "x", kCFCompareBackwards), 6);
  EXPECT_EQ(find("é🎉x🎉x", "🎉"), 1);
  EXPECT_EQ(find("é🎉x🎉x", "🎉x", kCFCompareBackwards), 4);
}

TEST(StringFindTest, IgnoresCaseOnRequest) {
  EXPECT_EQ(find("xxHeLLo", "hello"), kCFNotFound);
  EXPECT_EQ(find("xxHeLLo", "hello", kCFCompareCaseInsensitive), 2);
  EXPECT_EQ(find("🎉STRASSE ÄÖ", "äö", kCFCompareCaseInsensitive), 10);
  EXPECT_EQ(find("abAB", "ab", kCFCompareCaseInsensitive | kCFCompareBackwards), 2);
}

TEST(StringFindTest, AnchoredLooksAtOneEndOnly) {
  EXPECT_EQ(find("abcab", "ab", kCFCompareAnchored), 0);
  EXPECT_EQ(find("abcab", "bc", kCFCompareAnchored), kCFNotFound);
  EXPECT_EQ(find("abcab", "ab", kCFCompareAnchored | kCFCompareBackwards), 3);
  EXPECT_EQ(find("abcab", "ca", kCFCompareAnchored | kCFCompareBackwards), kCFNotFound);
  EXPECT_EQ(find("ÄBcäb", "äb", kCFCompareAnchored | kCFCompareCaseInsensitive), 0);
  EXPECT_EQ(find("ÄBcäb", "ÄB", kCFCompareAnchored | kCFCompareBackwards | kCFCompareCaseInsensitive), 3);
}

TEST(StringFindTest, SearchesARangeOnly) {
  const String string = fromUTF8("ab🎉ab🎉ab");
  CFRange found = CFRangeMake(77, 77);
  EXPECT_TRUE(CFStringFindWithOptions(string.get(), CFSTR("ab"), CFRangeMake(1, 8), 0, &found));
  EXPECT_EQ(found.location, 4);
  EXPECT_EQ(found.length, 2);
  EXPECT_FALSE(CFStringFindWithOptions(string.get(), CFSTR("ab"), CFRangeMake(1, 4), 0, &found));
  EXPECT_EQ(found.location, 4) << "left alone when nothing is found";
  EXPECT_TRUE(CFStringFindWithOptions(string.get(), CFSTR("ab"), CFRangeMake(5, 99), 0, nullptr));
  EXPECT_FALSE(CFStringFindWithOptions(string.get(), CFSTR("ab"), CFRangeMake(99, 2), 0, &found));
  // The range cuts through both pairs.
  EXPECT_FALSE(CFStringFindWithOptions(string.get(), CFSTR("🎉"), CFRangeMake(3, 4), 0, &found));
  EXPECT_TRUE(CFStringFindWithOptions(string.get(), CFSTR("ab"), CFRangeMake(3, 4), 0, &found));
  EXPECT_EQ(found.location, 4);
  EXPECT_FALSE(CFStringFindWithOptions(string.get(), CFSTR("ab"), CFRangeMake(3, 4), kCFCompareAnchored, &found));
}

TEST(StringFindTest, FindsHalfAPairInsideAWholeOne) {
  const String high = fromUnits(std::u16string(1, char16_t{0xD83C}));
  const String low = fromUnits(std::u16string(1, char16_t{0xDF89}));
  EXPECT_EQ(CFStringFind(CFSTR("a🎉"), high.get(), 0).location, 1);
  EXPECT_EQ(CFStringFind(CFSTR("a🎉"), low.get(), 0).location, 2);
  EXPECT_EQ(CFStringFind(CFSTR("a🎊"), low.get(), 0).location, kCFNotFound);
}

TEST(StringReplaceTest, ReplacesEveryOccurrence) {
  const struct {
    const char* before;
    const char* text;
    const char* replacement;
    CFStringCompareFlags options;
    CFIndex count;
    const char* after;
  } rows[] = {
      {"a-b-c", "-", "+", 0, 2, "a+b+c"},
      {"a-b-c", "-", "", 0, 2, "abc"},
      {"a-b-c", "-", "--", 0, 2, "a--b--c"},
      {"aaaaa", "aa", "b", 0, 2, "bba"},
      {"aaaaa", "aa", "b", kCFCompareBackwards, 2, "abb"},
      {"abcab", "ab", "X", kCFCompareAnchored, 1, "Xcab"},
      {"abcab", "ab", "X", kCFCompareAnchored | kCFCompareBackwards, 1, "abcX"},
      {"AbcAB", "ab", "é", kCFCompareCaseInsensitive, 2, "écé"},
      {"é🎉é", "é", "e", 0, 2, "e🎉e"},
      {"abc", "x", "y", 0, 0, "abc"},
      {"abc", "", "y", 0, 0, "abc"},
      {"", "a", "y", 0, 0, ""},
  };
  for (const auto& row : rows) {
    const MutableString string = mutableFromUTF8(row.before);
    const CFIndex count = CFStringFindAndReplace(string.get(), fromUTF8(row.text).get(),
                                                 fromUTF8(row.replacement).get(), whole(string.get()), row.options);
    EXPECT_EQ(count, row.count) << row.before;
    EXPECT_EQ(utf8(string), row.after) << row.before;
  }
}

TEST(StringReplaceTest, ReplacesInARangeOnly) {
  const MutableString string = mutableFromUTF8("a.b.c.d");
  EXPECT_EQ(CFStringFindAndReplace(string.get(), CFSTR("."), CFSTR("::"), CFRangeMake(2, 3), 0), 1);
  EXPECT_EQ(utf8(string), "a.b::c.d");
}

std::vector<std::string> separated(std::string_view text, CFStringRef separator) {
  const Array array(CFStringCreateArrayBySeparatingStrings(nullptr, fromUTF8(text).get(), separator));
  std::vector<std::string> pieces;
  for (CFIndex i = 0; i < CFArrayGetCount(array.get()); ++i) {
    pieces.push_back(utf8(static_cast<CFStringRef>(CFArrayGetValueAtIndex(array.get(), i))));
  }
  return pieces;
}

TEST(StringSeparateTest, CutsAtEverySeparator) {
  using Pieces = std::vector<std::string>;
  EXPECT_EQ(separated("a,b,c", CFSTR(",")), (Pieces{"a", "b", "c"}));
  EXPECT_EQ(separated("a,,b", CFSTR(",")), (Pieces{"a", "", "b"}));
  EXPECT_EQ(separated(",a,", CFSTR(",")), (Pieces{"", "a", ""}));
  EXPECT_EQ(separated("abc", CFSTR(",")), (Pieces{"abc"}));
  EXPECT_EQ(separated("", CFSTR(",")), (Pieces{""}));
  EXPECT_EQ(separated("é, 🎉, z", CFSTR(", ")), (Pieces{"é", "🎉", "z"}));
  EXPECT_EQ(CFStringCreateArrayBySeparatingStrings(nullptr, CFSTR("a"), CFSTR("")), nullptr);
  EXPECT_EQ(CFStringCreateArrayBySeparatingStrings(nullptr, nullptr, CFSTR(",")), nullptr);
  EXPECT_EQ(CFStringCreateArrayBySeparatingStrings(nullptr, CFSTR("a"), nullptr), nullptr);
}

TEST(StringSeparateTest, CombiningUndoesIt) {
  for (const char* text : {"a,b,c", "a,,b", ",", "abc", "", "é,🎉"}) {
    const Array array(CFStringCreateArrayBySeparatingStrings(nullptr, fromUTF8(text).get(), CFSTR(",")));
    EXPECT_EQ(utf8(String(CFStringCreateByCombiningStrings(nullptr, array.get(), CFSTR(",")))), text);
  }
  const Array three(CFStringCreateArrayBySeparatingStrings(nullptr, CFSTR("a,b,c"), CFSTR(",")));
  EXPECT_EQ(utf8(String(CFStringCreateByCombiningStrings(nullptr, three.get(), CFSTR(" and ")))), "a and b and c");
  EXPECT_EQ(utf8(String(CFStringCreateByCombiningStrings(nullptr, three.get(), nullptr))), "abc");
  const Array none(CFArrayCreate(nullptr, nullptr, 0, &kCFTypeArrayCallBacks));
  EXPECT_EQ(utf8(String(CFStringCreateByCombiningStrings(nullptr, none.get(), CFSTR(",")))), "");
  EXPECT_EQ(CFStringCreateByCombiningStrings(nullptr, nullptr, CFSTR(",")), nullptr);
  const void* values[] = {kCFBooleanTrue};
  const Array other(CFArrayCreate(nullptr, values, 1, &kCFTypeArrayCallBacks));
  EXPECT_EQ(CFStringCreateByCombiningStrings(nullptr, other.get(), CFSTR(",")), nullptr) << "not strings";
}

}  // namespace
