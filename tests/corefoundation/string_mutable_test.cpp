// Strings that change.
#include <gtest/gtest.h>

#include <random>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

TEST(StringMutableTest, BeginsEmpty) {
  const MutableString string(CFStringCreateMutable(nullptr, 0));
  EXPECT_EQ(CFStringGetLength(string.get()), 0);
  EXPECT_EQ(utf8(string), "");
  EXPECT_TRUE(CFEqual(string.get(), CFSTR("")));
}

TEST(StringMutableTest, AppendsStringsAndCStringsAndCharacters) {
  const MutableString string(CFStringCreateMutable(nullptr, 0));
  CFStringAppend(string.get(), CFSTR("one "));
  CFStringAppendCString(string.get(), "tw\xF6 ", kCFStringEncodingISOLatin1);
  const UniChar units[] = {u't', 0xD83C, 0xDF89};
  CFStringAppendCharacters(string.get(), units, 3);
  EXPECT_EQ(utf8(string), "one twö t🎉");
  EXPECT_EQ(CFStringGetLength(string.get()), 11);
}

TEST(StringMutableTest, AppendsNothingForWhatCannotBeRead) {
  const MutableString string = mutableFromUTF8("as it was");
  CFStringAppend(string.get(), nullptr);
  CFStringAppendCString(string.get(), nullptr, kCFStringEncodingUTF8);
  CFStringAppendCString(string.get(), "\xFF", kCFStringEncodingUTF8);
  CFStringAppendCharacters(string.get(), nullptr, 3);
  CFStringReplace(string.get(), CFRangeMake(0, 2), nullptr);
  CFStringReplaceAll(string.get(), nullptr);
  CFStringInsert(string.get(), 0, nullptr);
  EXPECT_EQ(utf8(string), "as it was");
}

TEST(StringMutableTest, GrowsOneCharacterAtATime) {
  const MutableString string(CFStringCreateMutable(nullptr, 0));
  std::string expected;
  for (int i = 0; i < 5000; ++i) {
    const char* const piece = i % 7 == 0 ? "\xC3\xA9" : "x";
    CFStringAppendCString(string.get(), piece, kCFStringEncodingUTF8);
    expected += piece;
  }
  EXPECT_EQ(utf8(string), expected);
  EXPECT_EQ(CFStringGetLength(string.get()), 5000);
}

TEST(StringMutableTest, GrowsBeyondTheLengthItWasMadeFor) {
  const MutableString string(CFStringCreateMutable(nullptr, 2));
  CFStringAppend(string.get(), CFSTR("longer than two"));
  EXPECT_EQ(utf8(string), "longer than two");
}

TEST(StringMutableTest, InsertsDeletesAndReplaces) {
  const MutableString string = mutableFromUTF8("Hello");
  CFStringInsert(string.get(), 5, CFSTR(" world"));
  CFStringInsert(string.get(), 0, CFSTR("> "));
  EXPECT_EQ(utf8(string), "> Hello world");
  CFStringDelete(string.get(), CFRangeMake(0, 2));
  EXPECT_EQ(utf8(string), "Hello world");
  CFStringReplace(string.get(), CFRangeMake(6, 5), CFSTR("W\u00F6rld!"));
  EXPECT_EQ(utf8(string), "Hello Wörld!");
  CFStringReplaceAll(string.get(), CFSTR("new"));
  EXPECT_EQ(utf8(string), "new");
  CFStringDelete(string.get(), CFRangeMake(0, 3));
  EXPECT_EQ(CFStringGetLength(string.get()), 0);
  EXPECT_EQ(utf8(string), "");
}

TEST(StringMutableTest, RangesAreClippedToTheString) {
  const MutableString string = mutableFromUTF8("abc");
  CFStringDelete(string.get(), CFRangeMake(2, 99));
  EXPECT_EQ(utf8(string), "ab");
  CFStringInsert(string.get(), 99, CFSTR("!"));
  EXPECT_EQ(utf8(string), "ab!");
  CFStringReplace(string.get(), CFRangeMake(-3, 4), CFSTR("A"));
  EXPECT_EQ(utf8(string), "Ab!");
  CFStringDelete(string.get(), CFRangeMake(1, -1));
  EXPECT_EQ(utf8(string), "Ab!");
}

TEST(StringMutableTest, TakesItselfAsArgument) {
  const MutableString string = mutableFromUTF8("ab");
  CFStringAppend(string.get(), string.get());
  EXPECT_EQ(utf8(string), "abab");
  CFStringInsert(string.get(), 1, string.get());
  EXPECT_EQ(utf8(string), "aababbab");
  CFStringReplaceAll(string.get(), string.get());
  EXPECT_EQ(utf8(string), "aababbab");
  EXPECT_EQ(CFStringFindAndReplace(string.get(), CFSTR("b"), string.get(), CFRangeMake(0, 4), 0), 1);
  EXPECT_EQ(utf8(string), "aaaababbababbab");
  CFStringAppendFormat(string.get(), nullptr, CFSTR("[%@]"), string.get());
  EXPECT_EQ(utf8(string), "aaaababbababbab[aaaababbababbab]");
}

TEST(StringMutableTest, AnImmutableStringDoesNotChange) {
  const String string = fromUTF8("fixed");
  const CFMutableStringRef forced = const_cast<CFMutableStringRef>(string.get());
  CFStringAppend(forced, CFSTR("x"));
  CFStringAppendFormat(forced, nullptr, CFSTR("x"));
  CFStringInsert(forced, 0, CFSTR("x"));
  CFStringDelete(forced, CFRangeMake(0, 1));
  CFStringReplaceAll(forced, CFSTR("x"));
  CFStringTrim(forced, CFSTR("f"));
  CFStringTrimWhitespace(forced);
  CFStringUppercase(forced, nullptr);
  EXPECT_EQ(CFStringFindAndReplace(forced, CFSTR("f"), CFSTR("x"), CFRangeMake(0, 5), 0), 0);
  EXPECT_EQ(utf8(string), "fixed");
}

TEST(StringMutableTest, ACutThroughAPairLeavesHalves) {
  const MutableString string = mutableFromUTF8("a\U0001F389z");
  CFStringDelete(string.get(), CFRangeMake(2, 1));
  EXPECT_EQ(unitsOf(string.get()), (std::u16string{u'a', 0xD83C, u'z'}));
  CFStringReplace(string.get(), CFRangeMake(2, 0), fromUnits(std::u16string(1, char16_t{0xDF8A})).get());
  EXPECT_EQ(utf8(string), "a\U0001F38Az");
  CFStringInsert(string.get(), 2, CFSTR("-"));
  EXPECT_EQ(unitsOf(string.get()), (std::u16string{u'a', 0xD83C, u'-', 0xDF8A, u'z'}));
  CFStringDelete(string.get(), CFRangeMake(2, 1));
  EXPECT_TRUE(CFEqual(string.get(), CFSTR("a\U0001F38Az")));
}

// Random changes, against the same changes to a plain array of code units.
TEST(StringMutableTest, RandomChangesAgreeWithAnArrayOfCodeUnits) {
  std::mt19937 random(20240711);
  const auto below = [&random](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  const std::u16string alphabet = {u'a', u'b', u'z', u'\u00E9', u'\u20AC', 0xD83C, 0xDF89, 0xD83C, 0xDF89, u'\0'};
  for (int round = 0; round < 60; ++round) {
    const MutableString string(CFStringCreateMutable(nullptr, 0));
    std::u16string model;
    for (int step = 0; step < 200; ++step) {
      std::u16string piece;
      // Every other round is plain ASCII.
      for (std::size_t n = below(6); n > 0; --n) piece += alphabet[below(round % 2 == 0 ? 3 : alphabet.size())];
      const std::size_t from = below(model.size() + 1);
      const std::size_t count = below(std::min<std::size_t>(model.size() - from, 8) + 1);
      CFStringReplace(string.get(), CFRangeMake(static_cast<CFIndex>(from), static_cast<CFIndex>(count)),
                      fromUnits(piece).get());
      model.replace(from, count, piece);
      ASSERT_EQ(CFStringGetLength(string.get()), static_cast<CFIndex>(model.size())) << round << "/" << step;
      // Before anything else is read, so that a place remembered from before the change would show.
      const std::size_t index = below(model.size() + 1);
      const char16_t expected = index < model.size() ? model[index] : u'\0';
      ASSERT_EQ(CFStringGetCharacterAtIndex(string.get(), static_cast<CFIndex>(index)), expected) << round;
      ASSERT_EQ(unitsOf(string.get()), model) << round << "/" << step;
      ASSERT_TRUE(CFEqual(string.get(), fromUnits(model).get())) << round << "/" << step;
    }
  }
}

TEST(StringTrimTest, TakesATextFromBothEnds) {
  const struct {
    const char* before;
    const char* text;
    const char* after;
  } rows[] = {{"xxaxbxx", "x", "axb"}, {"abcabchelloabc", "abc", "hello"},
              {"hello", "x", "hello"}, {"aaa", "a", ""},
              {"aaaaa", "aa", "a"},    {"", "a", ""},
              {"a", "ab", "a"},        {"abc", "", "abc"},
              {"ééxé", "é", "x"}};
  for (const auto& row : rows) {
    const MutableString string = mutableFromUTF8(row.before);
    CFStringTrim(string.get(), fromUTF8(row.text).get());
    EXPECT_EQ(utf8(string), row.after) << row.before;
  }
}

TEST(StringTrimTest, TakesWhiteSpaceFromBothEnds) {
  const struct {
    const char* before;
    const char* after;
  } rows[] = {{" \t\r\n a b \v\f", "a b"}, {"", ""}, {"   ", ""}, {"x", "x"}, {"\u00A0\u2003é\u3000\u2028", "é"},
              {"\u200Ba", "\u200Ba"}};
  for (const auto& row : rows) {
    const MutableString string = mutableFromUTF8(row.before);
    CFStringTrimWhitespace(string.get());
    EXPECT_EQ(utf8(string), row.after) << row.before;
  }
}

}  // namespace
