#include "logging/message_text.h"

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>
#include <plinth/xml_service.h>

#include <CoreFoundation/CFURL.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using tovan::AttributeFit;

bool readerTakes(const std::string& text) {
  return plinth::CXMLService::isWellFormed(std::string_view("<log msg=\"" + text + "\"/>"));
}

// The quick decision is the reader's wherever it is made.
void expectAgreement(const std::string& text) {
  const bool taken = readerTakes(text);
  const AttributeFit fit = tovan::attributeFit(text);
  if (fit != AttributeFit::unclear) {
    EXPECT_EQ(fit == AttributeFit::fits, taken) << testing::PrintToString(text);
  }
  EXPECT_EQ(tovan::fitsAttribute(text), taken) << testing::PrintToString(text);
}

std::string utf8(char32_t point) {
  const UniChar high = static_cast<UniChar>(0xD800 + ((point - 0x10000) >> 10));
  const UniChar units[] = {point < 0x10000 ? static_cast<UniChar>(point) : high,
                           static_cast<UniChar>(0xDC00 + ((point - 0x10000) & 0x3FF))};
  const plinth::CSharedCFRef<CFStringRef> string(
      CFStringCreateWithCharacters(kCFAllocatorDefault, units, point < 0x10000 ? 1 : 2));
  return plinth::CSTR(string.get())->str();
}

TEST(MessageTextTest, TheQuickDecisionIsTheReadersForEveryTwoBytes) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      expectAgreement({'a', static_cast<char>(first), static_cast<char>(second), 'b'});
    }
  }
}

TEST(MessageTextTest, TheQuickDecisionIsTheReadersForTheBoundsOfUTF8) {
  for (const char* const text : {"\xC1\xBF",
                                 "\xC2\x80",
                                 "\xDF\xBF",
                                 "\xE0\x9F\xBF",
                                 "\xE0\xA0\x80",
                                 "\xED\x9F\xBF",
                                 "\xED\xA0\x80",
                                 "\xED\xBF\xBF",
                                 "\xEE\x80\x80",
                                 "\xEF\xBF\xBD",
                                 "\xEF\xBF\xBE",
                                 "\xEF\xBF\xBF",
                                 "\xF0\x8F\xBF\xBF",
                                 "\xF0\x90\x80\x80",
                                 "\xF0\x9F\xBF\xBE",
                                 "\xF4\x8F\xBF\xBF",
                                 "\xF4\x90\x80\x80",
                                 "\xF5\x80\x80\x80",
                                 "\xC3",
                                 "\xE2\x82",
                                 "\xF0\x9F\x98",
                                 "\xF0\x9F\x98 x",
                                 "\xE2\x82\x28",
                                 "\x7F",
                                 "\xC2\x85"}) {
    expectAgreement(text);
    expectAgreement(std::string(40, 'x') + text);
  }
}

TEST(MessageTextTest, TheQuickDecisionIsTheReadersForReferences) {
  for (const char* const text : {"&",
                                 "&amp",
                                 "&amp;",
                                 "&AMP;",
                                 "&lt;&gt;&quot;&apos;",
                                 "&nbsp;",
                                 "&a b;",
                                 "&#;",
                                 "&#x;",
                                 "&#65;",
                                 "&#065;",
                                 "&#x41;",
                                 "&#X41;",
                                 "&#x4g;",
                                 "&#-1;",
                                 "&#+1;",
                                 "&# 65;",
                                 "&#0;",
                                 "&#8;",
                                 "&#9;",
                                 "&#10;",
                                 "&#13;",
                                 "&#31;",
                                 "&#32;",
                                 "&#127;",
                                 "&#133;",
                                 "&#xD7FF;",
                                 "&#xD800;",
                                 "&#xDFFF;",
                                 "&#xE000;",
                                 "&#xFFFD;",
                                 "&#xFFFE;",
                                 "&#xFFFF;",
                                 "&#x1FFFE;",
                                 "&#x10FFFF;",
                                 "&#x110000;",
                                 "&#4294967361;",
                                 "&#99999999999999999999;",
                                 "&#x0000000000000000000000041;",
                                 "a & b",
                                 "&&amp;",
                                 "&#65"}) {
    expectAgreement(text);
  }
}

TEST(MessageTextTest, TheQuickDecisionIsTheReadersForTextWithQuotes) {
  for (const char* const text : {"\"",
                                 "say \"hi\" now",
                                 "a\" b=\"c",
                                 "a\"b=\"c",
                                 "a\"\tb\n=\r'c' d=\"",
                                 "a\" b='\"' c=\"",
                                 "a\" b=c",
                                 "a\" msg=\"c",
                                 "a\" b=\"c\"",
                                 "a\"/>",
                                 "a\"/><b c=\"",
                                 "a\"></log><!-- =",
                                 "a\" b=\"<",
                                 "a\" b=\"&amp;",
                                 "a\" b=\"&x;",
                                 "a\" 1=\"c",
                                 "a\" \xC3\xA9=\"c",
                                 "a\" b:c=\"d",
                                 "a\" b=\"c\" b=\"d",
                                 "a\" b=\"c\xFF"}) {
    expectAgreement(text);
  }
}

TEST(MessageTextTest, TheQuickDecisionIsTheReadersForRandomText) {
  static const std::vector<std::string> kPieces = {"a",
                                                   " ",
                                                   "\"",
                                                   "'",
                                                   "=",
                                                   "&",
                                                   ";",
                                                   "#",
                                                   "x",
                                                   "<",
                                                   ">",
                                                   "/",
                                                   "&amp;",
                                                   "&#65;",
                                                   "\xC3\xBC",
                                                   "\xFF",
                                                   "\x01",
                                                   "\n",
                                                   "\t",
                                                   "\r",
                                                   "b=",
                                                   "\" b=\"",
                                                   "\xEF\xBF\xBE",
                                                   "0123456789012345678901234567890123456789"};
  std::mt19937 random(20010101);
  std::uniform_int_distribution<std::size_t> piece(0, kPieces.size() - 1), count(0, 9);
  for (int i = 0; i < 30000; ++i) {
    std::string text;
    for (std::size_t n = count(random); n > 0; --n) text += kPieces[piece(random)];
    expectAgreement(text);
  }
}

// CoreFoundation's escaping with the log's two sets.
std::string escapedByCoreFoundation(const std::string& text) {
  const plinth::CStringRef string = plinth::CSTR(text);
  const plinth::CSharedCFRef<CFStringRef> escaped(CFURLCreateStringByAddingPercentEscapes(
      kCFAllocatorDefault, string->getStringRef(), CFSTR(" !#$%'()*+,-./?@[]\\^_{}|~`"), CFSTR("<>\"&"),
      kCFStringEncodingUTF8));
  return plinth::CSTR(escaped.get())->str();
}

TEST(MessageTextTest, PercentEscapesAreThoseOfCoreFoundation) {
  for (char32_t point = 1; point <= 0x10FFFF; point += point < 0x3000 ? 1 : 97) {
    if (point >= 0xD800 && point <= 0xDFFF) continue;
    const std::string text = "x" + utf8(point) + "y";
    ASSERT_EQ(tovan::percentEscaped(text), escapedByCoreFoundation(text)) << static_cast<unsigned>(point);
  }
  EXPECT_EQ(tovan::percentEscaped(std::string("a\0b", 3)), "a%00b");
}

TEST(MessageTextTest, BytesThatAreNotUTF8CannotBePercentEscaped) {
  for (const char* const text : {"\xFF", "a\xC3", "\xED\xA0\x80", "\xC0\x80", "<\xF4\x90\x80\x80"}) {
    EXPECT_EQ(tovan::percentEscaped(text), std::nullopt);
  }
}

TEST(MessageTextTest, TheCopyOfAnyBytesFitsAnAttribute) {
  std::mt19937 random(2001);
  std::uniform_int_distribution<int> byte(0, 255), length(0, 40);
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (int n = length(random); n > 0; --n) text += static_cast<char>(byte(random));
    const std::string copy = tovan::attributeCopy(text);
    ASSERT_EQ(tovan::attributeFit(copy), AttributeFit::fits) << testing::PrintToString(text);
    ASSERT_TRUE(readerTakes(copy)) << testing::PrintToString(text);
  }
}

TEST(MessageTextTest, TheCopyReadsAsTheCharactersItCanKeep) {
  EXPECT_EQ(tovan::attributeCopy("a <b> & \"c\" \t\xC3\xBC\xFF\x01\xEF\xBF\xBE"),
            "a &lt;b&gt; &amp; &quot;c&quot; &#9;\xC3\xBC\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(MessageTextTest, AMessageNeverGivesARecordAnAttributeItHas) {
  std::string storage;
  EXPECT_EQ(tovan::recordText("a\" b=\"c", storage), "a\" b=\"c");
  for (const std::string name : {"tms", "tmt", "pid", "lvl", "msg"}) {
    EXPECT_EQ(tovan::recordText("a\" " + name + "=\"c", storage), "a%22 " + name + "=%22c");
  }
}

}  // namespace
