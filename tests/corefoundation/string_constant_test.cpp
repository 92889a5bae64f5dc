// Strings that the compiler lays out.
#include <gtest/gtest.h>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

CFStringRef sameConstant() { return CFSTR("one and the same"); }

// A constant is usable where the language wants a constant address.
constinit CFStringRef atNamespaceScope = CFSTR("at namespace scope");

TEST(StringConstantTest, IsAStringLikeAnyOther) {
  EXPECT_EQ(utf8(CFSTR("a constant")), "a constant");
  EXPECT_EQ(utf8(CFSTR("in two "
                       "pieces")),
            "in two pieces");
  EXPECT_EQ(CFStringGetLength(CFSTR("")), 0);
  EXPECT_EQ(utf8(atNamespaceScope), "at namespace scope");
  EXPECT_STREQ(CFStringGetCStringPtr(CFSTR("a constant"), kCFStringEncodingUTF8), "a constant");
}

TEST(StringConstantTest, OfOtherThanASCIIHasItsLengthInCodeUnits) {
  EXPECT_EQ(unitsOf(CFSTR("gr\u00FCn \U0001F389")), u"gr\u00FCn \U0001F389");
  EXPECT_EQ(CFStringGetLength(CFSTR("gr\u00FCn \U0001F389")), 7);
  EXPECT_TRUE(CFEqual(CFSTR("gr\u00FCn"), fromUTF8("gr\xC3\xBCn").get()));
}

TEST(StringConstantTest, WithAZeroInsideIsWhole) {
  EXPECT_EQ(CFStringGetLength(CFSTR("a\0b")), 3);
  EXPECT_EQ(utf8(CFSTR("a\0b")), std::string("a\0b", 3));
}

TEST(StringConstantTest, IsNeverCounted) {
  const CFStringRef constant = CFSTR("never counted");
  EXPECT_EQ(CFGetRetainCount(constant), INTPTR_MAX);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(CFRetain(constant), constant);
  for (int i = 0; i < 100; ++i) CFRelease(constant);
  EXPECT_EQ(CFGetRetainCount(constant), INTPTR_MAX);
  EXPECT_EQ(utf8(constant), "never counted");
  EXPECT_EQ(CFStringCreateCopy(nullptr, constant), constant);
}

TEST(StringConstantTest, OfOneTextIsOneObject) {
  EXPECT_EQ(sameConstant(), CFSTR("one and the same"));
  EXPECT_NE(sameConstant(), CFSTR("another"));
}

TEST(StringConstantTest, ByCallIsOneObjectForOneText) {
  std::string text = "made at run time";
  const CFStringRef first = CFStringGetConstant(text.c_str());
  EXPECT_EQ(utf8(first), text);
  text[0] = 'M';
  const CFStringRef other = CFStringGetConstant(text.c_str());
  EXPECT_NE(first, other);
  EXPECT_EQ(utf8(first), "made at run time") << "the text is copied";
  text[0] = 'm';
  EXPECT_EQ(CFStringGetConstant(text.c_str()), first);
  EXPECT_EQ(CFGetRetainCount(first), INTPTR_MAX);
  CFRelease(first);
  EXPECT_EQ(utf8(first), "made at run time");
}

TEST(StringConstantTest, ByCallRefusesWhatIsNotUTF8) {
  EXPECT_EQ(CFStringGetConstant(nullptr), nullptr);
  EXPECT_EQ(CFStringGetConstant("\xFF"), nullptr);
  EXPECT_EQ(utf8(CFStringGetConstant("gr\xC3\xBCn")), "gr\xC3\xBCn");
}

}  // namespace
