// %XX in the place of characters, and back.
#include <gtest/gtest.h>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

std::string escaped(CFStringRef text, CFStringRef leave = nullptr, CFStringRef also = nullptr,
                    CFStringEncoding encoding = kCFStringEncodingUTF8) {
  return utf8(String(CFURLCreateStringByAddingPercentEscapes(nullptr, text, leave, also, encoding)));
}

std::string unescaped(CFStringRef text, CFStringRef leave = CFSTR("")) {
  return utf8(String(CFURLCreateStringByReplacingPercentEscapes(nullptr, text, leave)));
}

// What stays and what is forced when a log line is escaped.
const CFStringRef kLogLeaves = CFSTR(" !#$%'()*+,-./?@[]\\^_{}|~`");
const CFStringRef kLogForces = CFSTR("<>\"&");

TEST(PercentEscapesTest, TheLegalCharactersOfAURLStay) {
  const char* const legal = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.!~*'();/?:@&=+$,";
  const String text = fromUTF8(legal);
  EXPECT_EQ(escaped(text.get()), legal);
  for (int byte = 0; byte < 128; ++byte) {
    const char character = static_cast<char>(byte);
    if (byte != 0 && std::string_view(legal).find(character) != std::string_view::npos) continue;
    char expected[4];
    std::snprintf(expected, sizeof expected, "%%%02X", static_cast<unsigned>(byte));
    EXPECT_EQ(escaped(fromUTF8({&character, 1}).get()), expected);
  }
}

TEST(PercentEscapesTest, OtherCharactersBecomeTheBytesOfTheEncoding) {
  EXPECT_EQ(escaped(CFSTR("gr\u00FCn \u20AC\U0001F389")), "gr%C3%BCn%20%E2%82%AC%F0%9F%8E%89");
  EXPECT_EQ(escaped(CFSTR("gr\u00FCn"), nullptr, nullptr, kCFStringEncodingISOLatin1), "gr%FCn");
  EXPECT_EQ(escaped(CFSTR("\u00FC "), nullptr, nullptr, kCFStringEncodingMacRoman), "%9F%20");
  EXPECT_EQ(escaped(CFSTR("\u20AC"), nullptr, nullptr, kCFStringEncodingUTF16BE), "%20%AC");
}

TEST(PercentEscapesTest, WhatTheEncodingLacksGivesNull) {
  EXPECT_EQ(escaped(CFSTR("\u20AC"), nullptr, nullptr, kCFStringEncodingISOLatin1), "<null>");
  EXPECT_EQ(escaped(fromUnits(std::u16string(1, char16_t{0xD83C})).get()), "<null>");
  EXPECT_EQ(escaped(CFSTR("a"), nullptr, nullptr, kCFStringEncodingInvalidId), "<null>");
  EXPECT_EQ(escaped(nullptr), "<null>");
}

TEST(PercentEscapesTest, CharactersCanBeLeftOrForced) {
  EXPECT_EQ(escaped(CFSTR("a b/c"), CFSTR(" "), CFSTR("/")), "a b%2Fc");
  EXPECT_EQ(escaped(CFSTR("\u00FC\u00E4"), CFSTR("\u00FC")), "\u00FC%C3%A4");
  EXPECT_EQ(escaped(CFSTR("50%"), CFSTR("%")), "50%");
  EXPECT_EQ(escaped(CFSTR("a&b"), CFSTR("&"), CFSTR("&")), "a&b") << "leaving goes before forcing";
}

TEST(PercentEscapesTest, ALogMessageKeepsAllButMarkup) {
  EXPECT_EQ(escaped(CFSTR("a < b & \"c\" > d"), kLogLeaves, kLogForces), "a %3C b %26 %22c%22 %3E d");
  EXPECT_EQ(escaped(kLogLeaves, kLogLeaves, kLogForces), " !#$%'()*+,-./?@[]\\^_{}|~`");
  EXPECT_EQ(escaped(CFSTR("azAZ09:;="), kLogLeaves, kLogForces), "azAZ09:;=");
  EXPECT_EQ(escaped(CFSTR("\x01\n\u00FC"), kLogLeaves, kLogForces), "%01%0A%C3%BC");
}

TEST(PercentEscapesTest, UnchangedTextIsTheSameObject) {
  const String text = fromUTF8("nothing-to-do");
  const String result(
      CFURLCreateStringByAddingPercentEscapes(nullptr, text.get(), nullptr, nullptr, kCFStringEncodingUTF8));
  EXPECT_EQ(result.get(), text.get());
  EXPECT_EQ(CFGetRetainCount(text.get()), 2);
}

TEST(PercentEscapesTest, EscapesAreReplaced) {
  EXPECT_EQ(unescaped(CFSTR("gr%C3%BCn%20%e2%82%ac")), "grün €");
  EXPECT_EQ(unescaped(CFSTR("%41%42c")), "ABc");
  EXPECT_EQ(unescaped(CFSTR("%2525")), "%25") << "once only";
  EXPECT_EQ(unescaped(CFSTR("plain \u00FC")), "plain ü");
  EXPECT_EQ(unescaped(CFSTR("")), "");
  EXPECT_EQ(unescaped(CFSTR("%00")), std::string(1, '\0'));
}

TEST(PercentEscapesTest, SomeEscapesCanStay) {
  EXPECT_EQ(unescaped(CFSTR("a%2fb%20c%2Fd"), CFSTR("/")), "a%2fb c%2Fd");
  EXPECT_EQ(unescaped(CFSTR("%C3%BC%C3%A4"), CFSTR("\u00FC")), "%C3%BCä");
  EXPECT_EQ(unescaped(CFSTR("%C3%A4%2f%41%C3%BC%2F"), CFSTR("/\u00FC")), "ä%2fA%C3%BC%2F");
  EXPECT_EQ(unescaped(CFSTR("a%20b"), nullptr), "a%20b") << "without a set nothing is replaced";
}

TEST(PercentEscapesTest, MalformedEscapesGiveNull) {
  for (const CFStringRef bad : {CFSTR("%"), CFSTR("a%4"), CFSTR("%4g"), CFSTR("%G4"), CFSTR("%%41"), CFSTR("%C3"),
                                CFSTR("%C3x"), CFSTR("%FF"), CFSTR("%ED%A0%80"), CFSTR("%C3\u00BC")}) {
    EXPECT_EQ(unescaped(bad), "<null>") << utf8(bad);
  }
  EXPECT_EQ(unescaped(nullptr), "<null>");
}

TEST(PercentEscapesTest, EscapesAreReadInTheirEncoding) {
  const auto read = [](CFStringRef text, CFStringEncoding encoding) {
    return utf8(String(CFURLCreateStringByReplacingPercentEscapesUsingEncoding(nullptr, text, CFSTR(""), encoding)));
  };
  EXPECT_EQ(read(CFSTR("gr%FCn"), kCFStringEncodingISOLatin1), "grün");
  EXPECT_EQ(read(CFSTR("%9F"), kCFStringEncodingMacRoman), "ü");
  EXPECT_EQ(read(CFSTR("%20%AC"), kCFStringEncodingUTF16BE), "€");
  EXPECT_EQ(read(CFSTR("%FC"), kCFStringEncodingASCII), "<null>");
  EXPECT_EQ(read(CFSTR("%41"), kCFStringEncodingInvalidId), "<null>");
}

TEST(PercentEscapesTest, AnyTextComesBack) {
  std::u16string all;
  for (char16_t unit = 1; unit < 0xD800; ++unit) all += unit;
  all += u"\U0001F389\U0010FFFF";
  const String text = fromUnits(all);
  const String there(
      CFURLCreateStringByAddingPercentEscapes(nullptr, text.get(), nullptr, nullptr, kCFStringEncodingUTF8));
  const String back(CFURLCreateStringByReplacingPercentEscapes(nullptr, there.get(), CFSTR("")));
  EXPECT_TRUE(CFEqual(text.get(), back.get()));
}

}  // namespace
