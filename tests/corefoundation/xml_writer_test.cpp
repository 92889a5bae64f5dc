#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/property_list_support.h"

using test::canonical;
using test::Held;
using test::parse;
using test::parseValue;
using test::write;
using test::Written;
using test::writtenValue;
using ::testing::HasSubstr;

namespace {

Held<CFMutableDictionaryRef> dictionary() {
  return Held<CFMutableDictionaryRef>(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

Held<CFMutableArrayRef> array() {
  return Held<CFMutableArrayRef>(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
}

// An array with `depth` arrays in one another, itself counted.
Held<CFMutableArrayRef> nested(int depth) {
  Held<CFMutableArrayRef> inner = array();
  for (int i = 1; i < depth; ++i) {
    Held<CFMutableArrayRef> outer = array();
    CFArrayAppendValue(outer.get(), inner.get());
    inner = std::move(outer);
  }
  return inner;
}

std::string writtenReal(double value) {
  const Held<CFNumberRef> number(CFNumberCreate(nullptr, kCFNumberDoubleType, &value));
  return writtenValue(number.get());
}

std::string writtenDate(double at) {
  const Held<CFDateRef> date(CFDateCreate(nullptr, at));
  const Written written = write(date.get());
  return written.bytes.empty() ? written.error : writtenValue(date.get());
}

TEST(XMLWriterTest, TheWholeDocumentByteForByte) {
  const auto root = dictionary();
  const auto list = array();
  CFArrayAppendValue(list.get(), kCFBooleanTrue);
  CFArrayAppendValue(list.get(), CFSTR("two"));
  CFDictionarySetValue(root.get(), CFSTR("zebra"), list.get());
  CFDictionarySetValue(root.get(), CFSTR("ape"), dictionary().get());
  CFDictionarySetValue(root.get(), CFSTR("cat"), array().get());
  EXPECT_EQ(write(root.get()).bytes,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n"
            "<dict>\n"
            "\t<key>zebra</key>\n"
            "\t<array>\n"
            "\t\t<true/>\n"
            "\t\t<string>two</string>\n"
            "\t</array>\n"
            "\t<key>ape</key>\n"
            "\t<dict/>\n"
            "\t<key>cat</key>\n"
            "\t<array/>\n"
            "</dict>\n"
            "</plist>\n");
}

TEST(XMLWriterTest, StringsAreEscaped) {
  EXPECT_EQ(writtenValue(test::string("a<b>&\"c'\t\n]]>").get()), "<string>a&lt;b&gt;&amp;\"c'\t\n]]&gt;</string>\n");
  EXPECT_EQ(writtenValue(test::string("\r\n").get()), "<string>&#13;\n</string>\n");
  EXPECT_EQ(writtenValue(test::string("é日😀\x7F").get()), "<string>é日😀\x7F</string>\n");
  EXPECT_EQ(writtenValue(CFSTR("")), "<string></string>\n");
  const auto root = dictionary();
  CFDictionarySetValue(root.get(), CFSTR("<&>"), CFSTR(""));
  EXPECT_EQ(writtenValue(root.get()), "<dict>\n\t<key>&lt;&amp;&gt;</key>\n\t<string></string>\n</dict>\n");
}

TEST(XMLWriterTest, LongStringsWithManyEscapesArriveWhole) {
  std::string text;
  for (int i = 0; i < 20000; ++i) text += i % 3 == 0 ? "&" : i % 3 == 1 ? "<" : "é";
  const Written written = write(test::string(text).get());
  EXPECT_EQ(canonical(parse(written.bytes).list.get()), canonical(test::string(text).get()));
}

TEST(XMLWriterTest, IntegersOfEveryWidth) {
  const std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(writtenValue(Held<CFNumberRef>(CFNumberCreate(nullptr, kCFNumberSInt64Type, &smallest)).get()),
            "<integer>-9223372036854775808</integer>\n");
  EXPECT_EQ(writtenValue(parseValue("<integer>18446744073709551615</integer>").list.get()),
            "<integer>18446744073709551615</integer>\n");
  const std::int8_t tiny = -1;
  EXPECT_EQ(writtenValue(Held<CFNumberRef>(CFNumberCreate(nullptr, kCFNumberSInt8Type, &tiny)).get()),
            "<integer>-1</integer>\n");
}

TEST(XMLWriterTest, RealsHaveTheFewestDigitsThatReadBack) {
  EXPECT_EQ(writtenReal(0.1), "<real>0.1</real>\n");
  EXPECT_EQ(writtenReal(1.0), "<real>1</real>\n");
  EXPECT_EQ(writtenReal(-0.0), "<real>-0</real>\n");
  EXPECT_EQ(writtenReal(1.0 / 3), "<real>0.3333333333333333</real>\n");
  EXPECT_EQ(writtenReal(1e300), "<real>1e+300</real>\n");
  EXPECT_EQ(writtenReal(5e-324), "<real>5e-324</real>\n");
  EXPECT_EQ(writtenReal(NAN), "<real>nan</real>\n");
  EXPECT_EQ(writtenReal(INFINITY), "<real>+infinity</real>\n");
  EXPECT_EQ(writtenReal(-INFINITY), "<real>-infinity</real>\n");
}

TEST(XMLWriterTest, DatesAreWholeSecondsRoundedDown) {
  EXPECT_EQ(writtenDate(0), "<date>2001-01-01T00:00:00Z</date>\n");
  EXPECT_EQ(writtenDate(0.999), "<date>2001-01-01T00:00:00Z</date>\n");
  EXPECT_EQ(writtenDate(-0.001), "<date>2000-12-31T23:59:59Z</date>\n");
  EXPECT_EQ(writtenDate(730943999), "<date>2024-02-29T23:59:59Z</date>\n");
  EXPECT_EQ(writtenDate(-63113904000.0), "<date>0001-01-01T00:00:00Z</date>\n");
  EXPECT_EQ(writtenDate(252423993599.9), "<date>9999-12-31T23:59:59Z</date>\n");
  for (const double outside : {252423993600.0, -63113904000.5, 1e300, double{NAN}, double{-INFINITY}}) {
    EXPECT_EQ(writtenDate(outside), "A date outside of the years 1 to 9999 at the root");
  }
}

TEST(XMLWriterTest, DataIsBrokenIntoIndentedLinesOf76Columns) {
  EXPECT_EQ(writtenValue(test::data("").get()), "<data>\n</data>\n");
  EXPECT_EQ(writtenValue(test::data("A").get()), "<data>\nQQ==\n</data>\n");
  const std::string raw(60, '\0');
  EXPECT_EQ(writtenValue(test::data(raw).get()),
            "<data>\n" + std::string(76, 'A') + "\n" + std::string(4, 'A') + "\n</data>\n");
  const auto outer = array();
  CFArrayAppendValue(outer.get(), test::data(raw).get());
  EXPECT_EQ(writtenValue(outer.get()),
            "<array>\n\t<data>\n\t" + std::string(68, 'A') + "\n\t" + std::string(12, 'A') + "\n\t</data>\n</array>\n");
}

TEST(XMLWriterTest, DeeplyIndentedDataKeepsLinesOfSixteenCharacters) {
  const auto inner = array();
  CFArrayAppendValue(inner.get(), test::data(std::string(24, '\0')).get());
  Held<CFMutableArrayRef> root = array();
  CFArrayAppendValue(root.get(), inner.get());
  for (int i = 0; i < 10; ++i) {
    Held<CFMutableArrayRef> outer = array();
    CFArrayAppendValue(outer.get(), root.get());
    root = std::move(outer);
  }
  const std::string tabs(12, '\t');
  EXPECT_THAT(writtenValue(root.get()), HasSubstr(tabs + "<data>\n" + tabs + std::string(16, 'A') + "\n" + tabs +
                                                  std::string(16, 'A') + "\n" + tabs + "</data>\n"));
}

TEST(XMLWriterTest, WhatXMLCannotCarryIsRefusedWithThePlace) {
  const auto root = dictionary();
  const auto list = array();
  CFArrayAppendValue(list.get(), kCFBooleanTrue);
  CFArrayAppendValue(list.get(), test::string(std::string("a\0b", 3)).get());
  CFDictionarySetValue(root.get(), CFSTR("outer"), list.get());
  const Written written = write(root.get());
  EXPECT_EQ(written.error, "A string with the character U+0000, which XML does not allow, at outer[1]");
  EXPECT_EQ(written.code, kCFPropertyListWriteInvalidError);
  EXPECT_TRUE(written.bytes.empty());
  for (const char* refused : {"\x01", "\x0B", "\x1F", "\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    EXPECT_THAT(write(test::string(refused).get()).error, HasSubstr("which XML does not allow, at the root"));
  }
  const UniChar lone = 0xD800;
  const Held<CFStringRef> half(CFStringCreateWithCharacters(nullptr, &lone, 1));
  EXPECT_EQ(write(half.get()).error, "A string with the character U+D800, which XML does not allow, at the root");
}

TEST(XMLWriterTest, ABadCharacterInAKeyIsRefused) {
  const auto root = dictionary();
  CFDictionarySetValue(root.get(), test::string("a\x02").get(), kCFBooleanTrue);
  EXPECT_EQ(write(root.get()).error, "A string with the character U+0002, which XML does not allow, at a?");
}

TEST(XMLWriterTest, WrongKindsAndKeysAreRefusedWithThePlace) {
  const Held<CFUUIDRef> uuid(CFUUIDCreate(nullptr));
  const auto inner = dictionary();
  CFDictionarySetValue(inner.get(), CFSTR("id"), uuid.get());
  const auto root = dictionary();
  CFDictionarySetValue(root.get(), CFSTR("fine"), kCFBooleanTrue);
  CFDictionarySetValue(root.get(), CFSTR("section"), inner.get());
  EXPECT_EQ(write(root.get()).error, "A CFUUID cannot stand in a property list: at section.id");
  EXPECT_EQ(write(uuid.get()).error, "A CFUUID cannot stand in a property list: at the root");
  EXPECT_EQ(write(nullptr).error, "No object at the root");

  const std::int32_t one = 1;
  const Held<CFNumberRef> number(CFNumberCreate(nullptr, kCFNumberSInt32Type, &one));
  CFDictionarySetValue(inner.get(), CFSTR("id"), kCFBooleanTrue);
  CFDictionarySetValue(inner.get(), number.get(), kCFBooleanTrue);
  EXPECT_EQ(write(root.get()).error, "A dictionary with a key that is no string: at section");
}

TEST(XMLWriterTest, DepthAndCyclesAreRefused) {
  EXPECT_TRUE(CFPropertyListIsValid(nested(512).get(), kCFPropertyListXMLFormat_v1_0));
  EXPECT_EQ(write(nested(513).get()).error, "More than 512 containers inside one another, or one inside itself");
  const auto ring = array();
  CFArrayAppendValue(ring.get(), ring.get());
  CFArrayAppendValue(ring.get(), ring.get());
  EXPECT_FALSE(CFPropertyListIsValid(ring.get(), kCFPropertyListXMLFormat_v1_0));
  EXPECT_EQ(CFPropertyListCreateDeepCopy(nullptr, ring.get(), kCFPropertyListImmutable), nullptr);
  CFArrayRemoveAllValues(ring.get());
}

TEST(XMLWriterTest, ListsThatSharingMakesHugeAreRefused) {
  Held<CFMutableArrayRef> list = array();
  CFArrayAppendValue(list.get(), test::string(std::string(1000, 'x')).get());
  for (int i = 0; i < 100; ++i) {
    Held<CFMutableArrayRef> outer = array();
    for (int j = 0; j < 10; ++j) CFArrayAppendValue(outer.get(), list.get());
    list = std::move(outer);
  }
  EXPECT_THAT(write(list.get()).error, HasSubstr("The list is too large to be written at [0][0]"));
}

TEST(XMLWriterTest, SharedObjectsAreWrittenWhereverTheyStand) {
  const auto list = array();
  const auto shared = array();
  CFArrayAppendValue(shared.get(), kCFBooleanFalse);
  for (int i = 0; i < 3; ++i) CFArrayAppendValue(list.get(), shared.get());
  EXPECT_EQ(canonical(parse(write(list.get()).bytes).list.get()), "[[F,],[F,],[F,],]");
}

TEST(XMLWriterTest, RandomListsReadBackTheSame) {
  for (std::uint32_t seed = 0; seed < 300; ++seed) {
    const Held<CFPropertyListRef> list = test::ListMaker(seed).make(200);
    const Written written = write(list.get());
    const test::Parsed parsed = parse(written.bytes);
    ASSERT_TRUE(parsed.list) << "seed " << seed << ": " << written.error << parsed.error;
    ASSERT_EQ(canonical(parsed.list.get()), canonical(list.get())) << "seed " << seed;
    ASSERT_TRUE(CFEqual(parsed.list.get(), list.get())) << "seed " << seed;
    ASSERT_EQ(write(parsed.list.get()).bytes, written.bytes) << "seed " << seed;
  }
}

}  // namespace
