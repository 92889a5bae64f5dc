// Upper and lower case.
#include <gtest/gtest.h>
#include <locale.h>
#include <wctype.h>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

std::string lower(std::string_view text) {
  const MutableString string = mutableFromUTF8(text);
  CFStringLowercase(string.get(), nullptr);
  return utf8(string);
}

std::string upper(std::string_view text) {
  const MutableString string = mutableFromUTF8(text);
  CFStringUppercase(string.get(), nullptr);
  return utf8(string);
}

TEST(StringCaseTest, MapsTheLettersOfManyScripts) {
  EXPECT_EQ(lower("ABC xyz 123 @[`{"), "abc xyz 123 @[`{");
  EXPECT_EQ(upper("ABC xyz 123 @[`{"), "ABC XYZ 123 @[`{");
  EXPECT_EQ(lower("ÄÖÜ ÉÈ ÑÞ Ÿ Ő Ž"), "äöü éè ñþ ÿ ő ž");
  EXPECT_EQ(upper("äöü éè ñþ ÿ ő ž"), "ÄÖÜ ÉÈ ÑÞ Ÿ Ő Ž");
  EXPECT_EQ(lower("ΑΒΓ ΆΏ Σ ЖЩЯ ЁЇ Ա"), "αβγ άώ σ жщя ёї ա");
  EXPECT_EQ(upper("αβγ άώ ς жщя ёї ա"), "ΑΒΓ ΆΏ Σ ЖЩЯ ЁЇ Ա");
  EXPECT_EQ(upper("ａｚ ⅷ"), "ＡＺ Ⅷ");
}

TEST(StringCaseTest, LeavesWhatHasNoSingleOtherCase) {
  EXPECT_EQ(upper("ß ŉ ﬁ ı"), "ß ŉ ﬁ ı");
  EXPECT_EQ(lower("İ × ÷ 漢 🎉"), "İ × ÷ 漢 🎉");
  EXPECT_EQ(upper("× ÷ 漢 🎉 µ"), "× ÷ 漢 🎉 Μ");
}

TEST(StringCaseTest, MapsLoneSurrogatesToThemselves) {
  const std::u16string lone = {u'a', 0xD83C, u'b', 0xDF89};
  const MutableString string(CFStringCreateMutableCopy(nullptr, 0, fromUnits(lone).get()));
  CFStringUppercase(string.get(), nullptr);
  EXPECT_EQ(unitsOf(string.get()), (std::u16string{u'A', 0xD83C, u'B', 0xDF89}));
}

// The C library's tables of the same standard, of its own version, as an independent witness.
TEST(StringCaseTest, AgreesWithTheCLibraryBelowU10000) {
  const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  ASSERT_NE(locale, nullptr);
  std::u16string letters;
  std::u16string expectedSmall;
  std::u16string expectedLarge;
  for (char16_t unit = 1; unit != 0; ++unit) {
    const bool isSurrogate = unit >= 0xD800 && unit <= 0xDFFF;
    if (isSurrogate || unit == 0x130 || unit == 0x131 || !iswalpha_l(unit, locale)) continue;
    letters += unit;
    expectedSmall += static_cast<char16_t>(towlower_l(unit, locale));
    expectedLarge += static_cast<char16_t>(towupper_l(unit, locale));
  }
  freelocale(locale);
  const MutableString small(CFStringCreateMutableCopy(nullptr, 0, fromUnits(letters).get()));
  const MutableString large(CFStringCreateMutableCopy(nullptr, 0, small.get()));
  CFStringLowercase(small.get(), nullptr);
  CFStringUppercase(large.get(), nullptr);
  const std::u16string foundSmall = unitsOf(small.get());
  const std::u16string foundLarge = unitsOf(large.get());
  ASSERT_EQ(foundSmall.size(), letters.size());
  ASSERT_EQ(foundLarge.size(), letters.size());
  std::size_t mapped = 0;
  for (std::size_t i = 0; i < letters.size(); ++i) {
    mapped += expectedSmall[i] != letters[i] || expectedLarge[i] != letters[i];
    EXPECT_EQ(int{foundSmall[i]}, int{expectedSmall[i]}) << "the small letter of " << int{letters[i]};
    EXPECT_EQ(int{foundLarge[i]}, int{expectedLarge[i]}) << "the capital of " << int{letters[i]};
  }
  EXPECT_GT(mapped, 2000u) << "too few letters have two cases to be a witness";
}

TEST(StringCaseTest, DoesNotDependOnTheLocaleArgumentOrTheProcess) {
  ASSERT_NE(setlocale(LC_ALL, "C"), nullptr);
  EXPECT_EQ(upper("iäя"), "IÄЯ");
}

}  // namespace
