// The order of strings.
#include <gtest/gtest.h>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

CFComparisonResult compare(std::string_view left, std::string_view right, CFStringCompareFlags options = 0) {
  return CFStringCompare(fromUTF8(left).get(), fromUTF8(right).get(), options);
}

struct Row {
  std::string_view left;
  std::string_view right;
  CFComparisonResult order;
};

// Each row both ways round.
void expectOrder(std::initializer_list<Row> rows, CFStringCompareFlags options) {
  for (const Row& row : rows) {
    EXPECT_EQ(compare(row.left, row.right, options), row.order) << row.left << " against " << row.right;
    EXPECT_EQ(compare(row.right, row.left, options), -row.order) << row.right << " against " << row.left;
  }
}

TEST(StringCompareTest, IsByCodeUnit) {
  expectOrder({{"", "", kCFCompareEqualTo},
               {"", "a", kCFCompareLessThan},
               {"a", "a", kCFCompareEqualTo},
               {"a", "b", kCFCompareLessThan},
               {"a", "ab", kCFCompareLessThan},
               {"B", "a", kCFCompareLessThan},
               {"z", "é", kCFCompareLessThan},
               {"é", "é", kCFCompareEqualTo},
               {"file10", "file9", kCFCompareLessThan},
               {std::string_view("a\0", 2), "a", kCFCompareGreaterThan},
               {std::string_view("a\0b", 3), std::string_view("a\0c", 3), kCFCompareLessThan}},
              0);
}

TEST(StringCompareTest, ACharacterBeyondU10000ComesBeforeTheLastOfThePlaneAsItsSurrogatesDo) {
  expectOrder({{"\U0001F389", "\uFF01", kCFCompareLessThan},
               {"\U0001F389", "\uD7FF", kCFCompareGreaterThan},
               {"\U0001F389", "\U0001F38A", kCFCompareLessThan}},
              0);
}

TEST(StringCompareTest, CaseInsensitivelyLettersOfBothCasesAreEqual) {
  expectOrder({{"Hello", "hELLO", kCFCompareEqualTo},
               {"ÄÖÜ", "äöü", kCFCompareEqualTo},
               {"ΣΑΣ", "σας", kCFCompareEqualTo},
               {"Жук", "жУК", kCFCompareEqualTo},
               {"a", "B", kCFCompareLessThan},
               {"B", "a", kCFCompareGreaterThan},
               {"a", "İ", kCFCompareLessThan},
               {"I", "ı", kCFCompareLessThan},
               {"[", "a", kCFCompareLessThan}},
              kCFCompareCaseInsensitive);
}

TEST(StringCompareTest, NumericallyDigitsCompareByValue) {
  expectOrder({{"10.2", "9.9", kCFCompareGreaterThan},  {"1.10", "1.9", kCFCompareGreaterThan},
               {"file9", "file10", kCFCompareLessThan}, {"1.0", "1.0", kCFCompareEqualTo},
               {"1.0", "1.0.1", kCFCompareLessThan},    {"303", "303.1", kCFCompareLessThan},
               {"2a", "10", kCFCompareLessThan},        {"2a", "2b", kCFCompareLessThan},
               {"12a", "12", kCFCompareGreaterThan},    {"a", "1", kCFCompareGreaterThan},
               {"", "0", kCFCompareLessThan},           {"0", "00", kCFCompareLessThan},
               {"1", "01", kCFCompareLessThan},         {"01", "2", kCFCompareLessThan},
               {"01.5", "1.4", kCFCompareGreaterThan},  {"01.5", "1.5", kCFCompareGreaterThan},
               {"1.05", "1.5", kCFCompareGreaterThan},  {"1.05", "1.6", kCFCompareLessThan},
               {"x0y", "x00z", kCFCompareLessThan},     {"007", "7", kCFCompareGreaterThan},
               {"é10", "é9", kCFCompareGreaterThan}},
              kCFCompareNumerically);
}

TEST(StringCompareTest, NumericallyRunsOfAnyLengthCompare) {
  const std::string nines(400, '9');
  const std::string power = "1" + std::string(400, '0');
  expectOrder({{nines, power, kCFCompareLessThan},
               {power, power, kCFCompareEqualTo},
               {std::string(1000, '0') + "1", "2", kCFCompareLessThan},
               {"18446744073709551616", "18446744073709551615", kCFCompareGreaterThan},
               {"18446744073709551616", "1", kCFCompareGreaterThan}},
              kCFCompareNumerically);
}

TEST(StringCompareTest, OptionsCombine) {
  EXPECT_EQ(compare("FILE10b", "file9A", kCFCompareNumerically | kCFCompareCaseInsensitive), kCFCompareGreaterThan);
  EXPECT_EQ(compare("File10", "file10", kCFCompareNumerically | kCFCompareCaseInsensitive), kCFCompareEqualTo);
  EXPECT_EQ(compare("e\u0301", "\u00E9", kCFCompareNonliteral), kCFCompareLessThan) << "no Unicode equivalence";
  EXPECT_EQ(compare("a", "B", kCFCompareLocalized), kCFCompareGreaterThan);
}

TEST(StringCompareTest, ARangeOfTheFirstIsComparedWithTheWholeSecond) {
  for (const char* text : {"xxabcxx", "éxabcéx"}) {
    const String left = fromUTF8(text);
    EXPECT_EQ(CFStringCompareWithOptions(left.get(), CFSTR("abc"), CFRangeMake(2, 3), 0), kCFCompareEqualTo) << text;
    EXPECT_EQ(CFStringCompareWithOptions(left.get(), CFSTR("ABC"), CFRangeMake(2, 3), kCFCompareCaseInsensitive),
              kCFCompareEqualTo);
    EXPECT_EQ(CFStringCompareWithOptions(left.get(), CFSTR("abc"), CFRangeMake(2, 2), 0), kCFCompareLessThan);
    EXPECT_EQ(CFStringCompareWithOptions(left.get(), CFSTR("abc"), CFRangeMake(2, 4), 0), kCFCompareGreaterThan);
    EXPECT_EQ(CFStringCompareWithOptions(left.get(), CFSTR(""), CFRangeMake(99, 4), 0), kCFCompareEqualTo);
  }
  EXPECT_EQ(CFStringCompareWithOptions(CFSTR("\U0001F389"), fromUnits(std::u16string(1, char16_t{0xDF89})).get(),
                                       CFRangeMake(1, 1), 0),
            kCFCompareEqualTo);
}

TEST(StringCompareTest, NoStringComesFirst) {
  EXPECT_EQ(CFStringCompare(nullptr, nullptr, 0), kCFCompareEqualTo);
  EXPECT_EQ(CFStringCompare(nullptr, CFSTR(""), 0), kCFCompareLessThan);
  EXPECT_EQ(CFStringCompare(CFSTR(""), nullptr, 0), kCFCompareGreaterThan);
}

TEST(StringPrefixTest, PrefixesAndSuffixes) {
  for (const char* text : {"abcdef", "äbcdéf"}) {
    const String string = fromUTF8(text);
    for (CFIndex count = 0; count <= 6; ++count) {
      const String prefix(CFStringCreateWithSubstring(nullptr, string.get(), CFRangeMake(0, count)));
      const String suffix(CFStringCreateWithSubstring(nullptr, string.get(), CFRangeMake(6 - count, count)));
      EXPECT_TRUE(CFStringHasPrefix(string.get(), prefix.get())) << text << count;
      EXPECT_TRUE(CFStringHasSuffix(string.get(), suffix.get())) << text << count;
      EXPECT_EQ(CFStringHasPrefix(string.get(), suffix.get()), count == 0 || count == 6) << text << count;
    }
    EXPECT_FALSE(CFStringHasPrefix(CFSTR("ab"), string.get()));
    EXPECT_FALSE(CFStringHasSuffix(CFSTR("ab"), string.get()));
  }
  EXPECT_FALSE(CFStringHasPrefix(nullptr, CFSTR("")));
  EXPECT_FALSE(CFStringHasSuffix(CFSTR("a"), nullptr));
}

TEST(StringPrefixTest, HalfAPairIsAPrefixAndASuffix) {
  const CFStringRef text = CFSTR("\U0001F389");
  EXPECT_TRUE(CFStringHasPrefix(text, fromUnits(std::u16string(1, char16_t{0xD83C})).get()));
  EXPECT_FALSE(CFStringHasPrefix(text, fromUnits(std::u16string(1, char16_t{0xD83D})).get()));
  EXPECT_TRUE(CFStringHasSuffix(text, fromUnits(std::u16string(1, char16_t{0xDF89})).get()));
}

}  // namespace
