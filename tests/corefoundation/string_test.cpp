// Making strings and reading them.
#include <gtest/gtest.h>

#include <vector>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

// "a", e with acute, a party popper (two code units), "z".
constexpr const char* kMixed = "a\xC3\xA9\xF0\x9F\x8E\x89z";
constexpr std::u16string_view kMixedUnits = u"a\u00E9\U0001F389z";

TEST(StringTest, LengthIsCountedInUTF16CodeUnits) {
  EXPECT_EQ(CFStringGetLength(fromUTF8("").get()), 0);
  EXPECT_EQ(CFStringGetLength(fromUTF8("plain").get()), 5);
  EXPECT_EQ(CFStringGetLength(fromUTF8(kMixed).get()), 5);
  EXPECT_EQ(CFStringGetLength(nullptr), 0);
}

TEST(StringTest, CharactersAreTheCodeUnits) {
  const String string = fromUTF8(kMixed);
  EXPECT_EQ(unitsOf(string.get()), kMixedUnits);
  for (CFIndex i = 0; i < 5; ++i) {
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), i), kMixedUnits[static_cast<std::size_t>(i)]) << i;
  }
  EXPECT_EQ(unitsOf(fromUnits(kMixedUnits).get()), kMixedUnits);
}

TEST(StringTest, ACharacterOutsideTheStringIsZero) {
  for (const char* text : {"abc", kMixed}) {
    const String string = fromUTF8(text);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), -1), 0);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), CFStringGetLength(string.get())), 0);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), INTPTR_MAX), 0);
  }
  EXPECT_EQ(CFStringGetCharacterAtIndex(nullptr, 0), 0);
}

TEST(StringTest, CharactersAreFoundInAnyOrder) {
  std::u16string units;
  for (int i = 0; i < 300; ++i) units += kMixedUnits;
  const String string = fromUnits(units);
  std::uint32_t random = 1;
  for (int i = 0; i < 20000; ++i) {
    random = random * 1664525u + 1013904223u;
    const std::size_t index = (random >> 8) % units.size();
    ASSERT_EQ(CFStringGetCharacterAtIndex(string.get(), static_cast<CFIndex>(index)), units[index]) << index;
  }
  for (std::size_t index = units.size(); index-- > 0;) {
    ASSERT_EQ(CFStringGetCharacterAtIndex(string.get(), static_cast<CFIndex>(index)), units[index]) << index;
  }
}

TEST(StringTest, CharactersOfARangeAreClippedToTheString) {
  for (const char* text : {"abcde", kMixed}) {
    const String string = fromUTF8(text);
    const std::u16string all = unitsOf(string.get());
    std::vector<UniChar> buffer(8, 0x7777);
    CFStringGetCharacters(string.get(), CFRangeMake(3, 100), buffer.data());
    EXPECT_EQ(buffer[0], all[3]);
    EXPECT_EQ(buffer[1], all[4]);
    EXPECT_EQ(buffer[2], 0x7777) << "written beyond the string's end";
    buffer.assign(8, 0x7777);
    CFStringGetCharacters(string.get(), CFRangeMake(-2, 4), buffer.data());
    EXPECT_EQ(buffer[1], 0x7777) << "a place before the string belongs to nobody";
    EXPECT_EQ(buffer[2], all[0]);
    EXPECT_EQ(buffer[3], all[1]);
    EXPECT_EQ(buffer[4], 0x7777);
    buffer.assign(8, 0x7777);
    CFStringGetCharacters(string.get(), CFRangeMake(1, INTPTR_MAX), buffer.data());
    EXPECT_EQ(buffer[3], all[4]);
    EXPECT_EQ(buffer[4], 0x7777);
  }
}

TEST(StringTest, EverySubstringHasItsCodeUnits) {
  for (std::u16string_view units : {std::u16string_view(u"abcde"), kMixedUnits}) {
    const String string = fromUnits(units);
    for (std::size_t from = 0; from <= units.size(); ++from) {
      for (std::size_t count = 0; from + count <= units.size(); ++count) {
        const CFRange range = CFRangeMake(static_cast<CFIndex>(from), static_cast<CFIndex>(count));
        const String part(CFStringCreateWithSubstring(nullptr, string.get(), range));
        EXPECT_EQ(unitsOf(part.get()), units.substr(from, count)) << from << " + " << count;
        EXPECT_TRUE(CFEqual(part.get(), fromUnits(units.substr(from, count)).get())) << from << " + " << count;
      }
    }
  }
}

TEST(StringTest, ASubstringBeyondTheStringIsClipped) {
  const String string = fromUTF8("abc");
  EXPECT_EQ(utf8(String(CFStringCreateWithSubstring(nullptr, string.get(), CFRangeMake(1, 99)))), "bc");
  EXPECT_EQ(utf8(String(CFStringCreateWithSubstring(nullptr, string.get(), CFRangeMake(99, 1)))), "");
  EXPECT_EQ(utf8(String(CFStringCreateWithSubstring(nullptr, string.get(), CFRangeMake(0, -1)))), "");
  EXPECT_EQ(CFStringCreateWithSubstring(nullptr, nullptr, CFRangeMake(0, 1)), nullptr);
}

TEST(StringTest, LoneSurrogatesAreKept) {
  const std::u16string lone = {u'x', 0xD83C, u'y', 0xDF89, 0xDF89, 0xD83C};
  EXPECT_EQ(unitsOf(fromUnits(lone).get()), lone);
  EXPECT_EQ(CFStringGetLength(fromUnits(lone).get()), 6);
}

TEST(StringTest, HalvesThatMeetAreOnePair) {
  const String high = fromUnits(std::u16string(1, char16_t{0xD83C}));
  const String low = fromUnits(std::u16string(1, char16_t{0xDF89}));
  const MutableString joined(CFStringCreateMutableCopy(nullptr, 0, high.get()));
  CFStringAppend(joined.get(), low.get());
  EXPECT_TRUE(CFEqual(joined.get(), fromUTF8("\xF0\x9F\x8E\x89").get()));
  EXPECT_EQ(CFHash(joined.get()), CFHash(fromUTF8("\xF0\x9F\x8E\x89").get()));
  EXPECT_EQ(utf8(joined), "\xF0\x9F\x8E\x89");
}

TEST(StringTest, UnreadableSourcesGiveNull) {
  EXPECT_EQ(CFStringCreateWithCString(nullptr, nullptr, kCFStringEncodingUTF8), nullptr);
  EXPECT_EQ(CFStringCreateWithBytes(nullptr, nullptr, 1, kCFStringEncodingUTF8, false), nullptr);
  EXPECT_EQ(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>("a"), -1, kCFStringEncodingUTF8, false),
            nullptr);
  EXPECT_EQ(CFStringCreateWithCharacters(nullptr, nullptr, 1), nullptr);
  EXPECT_EQ(CFStringCreateCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFStringCreateMutableCopy(nullptr, 0, nullptr), nullptr);
  EXPECT_EQ(CFStringCreateWithCString(nullptr, "a", kCFStringEncodingInvalidId), nullptr);
}

TEST(StringTest, NoBytesAreTheEmptyString) {
  EXPECT_EQ(utf8(String(CFStringCreateWithBytes(nullptr, nullptr, 0, kCFStringEncodingUTF8, false))), "");
  EXPECT_EQ(utf8(String(CFStringCreateWithCharacters(nullptr, nullptr, 0))), "");
  EXPECT_EQ(utf8(String(CFStringCreateWithCString(nullptr, "", kCFStringEncodingASCII))), "");
}

TEST(StringTest, ZerosInsideAreCharacters) {
  const std::string_view bytes("a\0b\0", 4);
  const String string = fromUTF8(bytes);
  EXPECT_EQ(CFStringGetLength(string.get()), 4);
  EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), 1), 0);
  EXPECT_EQ(utf8(string), bytes);
  EXPECT_FALSE(CFEqual(string.get(), fromUTF8("a").get()));
}

TEST(StringTest, StringsThatAreNotUTF8AreRefused) {
  const char* const bad[] = {"\x80",
                             "a\xBF",
                             "\xC0\x80",
                             "\xC1\xBF",
                             "\xC3",
                             "\xC3(",
                             "\xE0\x9F\xBF",
                             "\xE2\x82",
                             "\xED\xA0\x80",
                             "\xED\xBF\xBF",
                             "\xF0\x8F\xBF\xBF",
                             "\xF4\x90\x80\x80",
                             "\xF5\x80\x80\x80",
                             "\xF0\x9F\x8E",
                             "\xFF",
                             "12345678\xFF",
                             "1234567890123\xC3",
                             "\xE2\x28\xA1",
                             "\xE2\x82\x28"};
  for (const char* text : bad) EXPECT_FALSE(fromUTF8(text)) << testing::PrintToString(text);
}

TEST(StringTest, TheEdgesOfUTF8AreRead) {
  const char* const good[] = {"\x7F",         "\xC2\x80",     "\xDF\xBF",         "\xE0\xA0\x80",    "\xED\x9F\xBF",
                              "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"};
  const CFIndex lengths[] = {1, 1, 1, 1, 1, 1, 1, 2, 2};
  for (std::size_t i = 0; i < std::size(good); ++i) {
    const String string = fromUTF8(good[i]);
    ASSERT_TRUE(string) << testing::PrintToString(good[i]);
    EXPECT_EQ(CFStringGetLength(string.get()), lengths[i]) << testing::PrintToString(good[i]);
    EXPECT_EQ(utf8(string), good[i]);
  }
}

TEST(StringTest, ACopyOfAnImmutableStringIsTheStringWithAReferenceMore) {
  const String string = fromUTF8("text");
  const String copy(CFStringCreateCopy(nullptr, string.get()));
  EXPECT_EQ(copy.get(), string.get());
  EXPECT_EQ(CFGetRetainCount(string.get()), 2);
}

TEST(StringTest, ACopyOfAMutableStringDoesNotChangeWithIt) {
  const MutableString string = mutableFromUTF8("text");
  const String copy(CFStringCreateCopy(nullptr, string.get()));
  CFStringAppend(string.get(), CFSTR(" and more"));
  EXPECT_EQ(utf8(copy), "text");
  EXPECT_EQ(utf8(string), "text and more");
  EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST(StringTest, EqualityIsByContentWhateverTheKind) {
  for (const char* text : {"", "k", "Key", "a longer key that fills several words", kMixed}) {
    const String immutable = fromUTF8(text);
    const String again = fromUTF8(text);
    const MutableString changing = mutableFromUTF8(text);
    EXPECT_TRUE(CFEqual(immutable.get(), again.get())) << text;
    EXPECT_TRUE(CFEqual(immutable.get(), changing.get())) << text;
    EXPECT_EQ(CFHash(immutable.get()), CFHash(again.get())) << text;
    EXPECT_EQ(CFHash(immutable.get()), CFHash(changing.get())) << text;
    EXPECT_FALSE(CFEqual(immutable.get(), fromUTF8(std::string(text) + "x").get())) << text;
  }
  EXPECT_TRUE(CFEqual(CFSTR("Key"), fromUTF8("Key").get()));
  EXPECT_EQ(CFHash(CFSTR("Key")), CFHash(fromUTF8("Key").get()));
}

TEST(StringTest, TheHashOfAMutableStringFollowsItsContent) {
  const MutableString string = mutableFromUTF8("one");
  EXPECT_EQ(CFHash(string.get()), CFHash(CFSTR("one")));
  CFStringAppend(string.get(), CFSTR(" two"));
  EXPECT_EQ(CFHash(string.get()), CFHash(CFSTR("one two")));
}

TEST(StringTest, HashesOfSimilarKeysDiffer) {
  std::vector<CFHashCode> hashes;
  for (int i = 0; i < 20000; ++i) {
    hashes.push_back(CFHash(String(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("key%d"), i)).get()));
  }
  std::sort(hashes.begin(), hashes.end());
  EXPECT_EQ(std::unique(hashes.begin(), hashes.end()), hashes.end());
  // The lowest bits choose the place in a table: with 20000 keys in 4096 places none should be crowded.
  std::vector<int> places(4096);
  for (const CFHashCode hash : hashes) ++places[hash & 4095];
  EXPECT_LT(*std::max_element(places.begin(), places.end()), 30);
}

TEST(StringTest, EveryStringIsOfTheStringKind) {
  EXPECT_EQ(CFGetTypeID(fromUTF8("a").get()), CFStringGetTypeID());
  EXPECT_EQ(CFGetTypeID(CFSTR("a")), CFStringGetTypeID());
  EXPECT_EQ(CFGetTypeID(mutableFromUTF8("a").get()), CFStringGetTypeID());
  EXPECT_EQ(utf8(String(CFCopyTypeIDDescription(CFStringGetTypeID()))), "CFString");
}

TEST(StringTest, ADescriptionShowsTheContent) {
  const std::string text = utf8(String(CFCopyDescription(CFSTR("some text"))));
  EXPECT_EQ(text.rfind("<CFString 0x", 0), 0u) << text;
  EXPECT_NE(text.find("contents = \"some text\""), std::string::npos) << text;
}

}  // namespace
