#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "tests/support/property_list_support.h"

using test::canonical;
using test::parse;
using test::Parsed;
using test::parseValue;
using ::testing::HasSubstr;

namespace {

// What reading the value gave, in the form of test::canonical, or the error.
std::string read(const std::string& value) {
  const Parsed parsed = parseValue(value);
  return parsed.list ? canonical(parsed.list.get()) : parsed.error;
}

std::string str(const std::string& utf8) { return canonical(test::string(utf8).get()); }

double real(const std::string& value) {
  const Parsed parsed = parseValue("<real>" + value + "</real>");
  double result = -12345;
  EXPECT_TRUE(parsed.list) << value << ": " << parsed.error;
  if (parsed.list) CFNumberGetValue(static_cast<CFNumberRef>(parsed.list.get()), kCFNumberDoubleType, &result);
  return result;
}

std::string repeated(const std::string& what, int count) {
  std::string result;
  result.reserve(what.size() * static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) result += what;
  return result;
}

struct Refused {
  const char* input;
  const char* error;
};

// Every failure has the same domain and code, and this very description.
void expectRefused(const Refused& refused) {
  const Parsed parsed = parse(refused.input);
  EXPECT_FALSE(parsed.list) << refused.input;
  EXPECT_EQ(parsed.error, refused.error) << refused.input;
  EXPECT_EQ(parsed.domain, test::text(kCFErrorDomainCocoa)) << refused.input;
  EXPECT_EQ(parsed.code, 3840) << refused.input;
}

TEST(XMLReaderTest, EveryKindIsRead) {
  EXPECT_EQ(read("<string>text</string>"), str("text"));
  EXPECT_EQ(read("<integer>42</integer>"), "i42");
  EXPECT_EQ(real("1.5"), 1.5);
  EXPECT_EQ(read("<true/>"), "T");
  EXPECT_EQ(read("<false/>"), "F");
  EXPECT_EQ(read("<date>2001-01-01T00:00:01Z</date>"), "t1");
  EXPECT_EQ(read("<data>AAEC/w==</data>"), "d000102ff");
  EXPECT_EQ(read("<array><true/><array/></array>"), "[T,[],]");
  EXPECT_EQ(read("<dict><key>a</key><false/><key>b</key><dict/></dict>"), "{s61:F,s62:{},}");
}

TEST(XMLReaderTest, EmptyAndSelfClosingElements) {
  EXPECT_EQ(read("<string/>"), "s");
  EXPECT_EQ(read("<string></string>"), "s");
  EXPECT_EQ(read("<data/>"), "d");
  EXPECT_EQ(read("<data> \n </data>"), "d");
  EXPECT_EQ(read("<true></true>"), "T");
  EXPECT_EQ(read("<false> <!-- nothing --> </false>"), "F");
  EXPECT_EQ(read("<dict />"), "{}");
  EXPECT_EQ(read("<array\n></array\t>"), "[]");
  EXPECT_EQ(read("<dict><key/><string/></dict>"), "{s:s,}");
}

TEST(XMLReaderTest, DeclarationDocumentTypeAndPlistElementMayBeAbsent) {
  EXPECT_TRUE(parse("<plist version=\"1.0\"><dict/></plist>").list);
  EXPECT_TRUE(parse("<plist><dict/></plist>").list);
  EXPECT_TRUE(parse("<dict/>").list);
  EXPECT_TRUE(parse("  \n<array></array>").list);
  EXPECT_TRUE(parse("<?xml version='1.0'?><true/>").list);
  EXPECT_TRUE(parse("<?xml version=\"1.0\" encoding='utf-8' standalone=\"yes\"?><true/>").list);
  EXPECT_TRUE(parse("<!DOCTYPE plist><true/>").list);
  EXPECT_TRUE(parse("<!DOCTYPE plist SYSTEM 'x.dtd' ><true/>").list);
}

TEST(XMLReaderTest, AByteOrderMarkIsPassedAndNotCounted) {
  EXPECT_TRUE(parse("\xEF\xBB\xBF<?xml version=\"1.0\"?><true/>").list);
  EXPECT_EQ(parse("\xEF\xBB\xBF<foo/>").error, "Unknown element <foo> at line 1, column 1");
}

TEST(XMLReaderTest, OtherEncodingsAreRefusedByName) {
  EXPECT_EQ(parse("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><true/>").error,
            "The encoding \"ISO-8859-1\" is not supported, only UTF-8 is, at line 1, column 21");
  EXPECT_THAT(parse(std::string("\xFE\xFF\0<", 4)).error, HasSubstr("The encoding UTF-16 is not supported"));
  EXPECT_THAT(parse(std::string("\xFF\xFE<\0", 4)).error, HasSubstr("The encoding UTF-16 is not supported"));
  EXPECT_THAT(parse(std::string("<\0?\0", 4)).error, HasSubstr("The encoding UTF-16 is not supported"));
  EXPECT_THAT(parse(std::string("\0\0\0<", 4)).error, HasSubstr("The encoding UTF-32 is not supported"));
}

TEST(XMLReaderTest, UnknownVersionsAreRefused) {
  const Parsed parsed = parse("<plist version=\"2.0\"><true/></plist>");
  EXPECT_EQ(parsed.error, "Property-list version \"2.0\" is not supported, only 1.0 is, at line 1, column 8");
  EXPECT_EQ(parsed.code, 3841);
  EXPECT_EQ(parse("{ key = value; }").code, 3841);
  EXPECT_THAT(parse("( a, b )").error, HasSubstr("the old text format"));
}

TEST(XMLReaderTest, CommentsAndInstructionsArePassedEverywhere) {
  EXPECT_EQ(canonical(parse("<!-- a --><?b c?><!DOCTYPE plist><!-- d --><plist><!-- e --><dict><?f?><key>k<!-- g "
                            "-->l</key><!----><string>a<?h i?>b</string></dict><!-- j --></plist>")
                          .list.get()),
            "{s6b6c:s6162,}");
}

TEST(XMLReaderTest, ReferencesAndSectionsBecomeText) {
  EXPECT_EQ(read("<string>&lt;&gt;&amp;&quot;&apos;</string>"), str("<>&\"'"));
  EXPECT_EQ(read("<string>&#65;&#x42;&#x1F600;&#0000009;&#xe9;</string>"), str("AB😀\té"));
  EXPECT_EQ(read("<string>a<![CDATA[<b>&amp;]] ]]>c</string>"), str("a<b>&amp;]] c"));
  EXPECT_EQ(read("<string><![CDATA[]]></string>"), "s");
  EXPECT_EQ(read("<integer>&#52;<![CDATA[2]]></integer>"), "i42");
}

TEST(XMLReaderTest, BlanksOfStringsAreKeptAndLineEndsBecomeNewlines) {
  EXPECT_EQ(read("<string>  a \n\tb </string>"), str("  a \n\tb "));
  EXPECT_EQ(read("<string>a\r\nb\rc\n\r</string>"), str("a\nb\nc\n\n"));
  EXPECT_EQ(read("<string><![CDATA[a\r\nb\rc]]></string>"), str("a\nb\nc"));
  EXPECT_EQ(read("<string>a&#13;b</string>"), str("a\rb"));
}

TEST(XMLReaderTest, IntegersReachFromTheSmallestSignedToTheLargestUnsigned) {
  EXPECT_EQ(read("<integer>-9223372036854775808</integer>"), "i-9223372036854775808");
  EXPECT_EQ(read("<integer>9223372036854775807</integer>"), "i9223372036854775807");
  EXPECT_EQ(read("<integer>9223372036854775808</integer>"), "i9223372036854775808");
  EXPECT_EQ(read("<integer>18446744073709551615</integer>"), "i18446744073709551615");
  EXPECT_EQ(read("<integer> +7\n</integer>"), "i7");
  EXPECT_EQ(read("<integer>-0</integer>"), "i0");
  EXPECT_EQ(read("<integer>007</integer>"), "i7");
  EXPECT_EQ(read("<integer>0xFf</integer>"), "i255");
  EXPECT_EQ(read("<integer>-0X10</integer>"), "i-16");
  EXPECT_EQ(read("<integer>0xFFFFFFFFFFFFFFFF</integer>"), "i18446744073709551615");
  for (const char* large : {"-9223372036854775809", "18446744073709551616", "0x10000000000000000",
                            "99999999999999999999999999999999999999"}) {
    EXPECT_EQ(read(std::string("<integer>") + large + "</integer>"),
              std::string("The integer is out of range: \"") + large + "\" at line 4, column 1");
  }
  for (const char* wrong : {"", " ", "x", "1 2", "1.0", "--1", "+-1", "0x", "0xG", "1e3",
                            "\xC2\xA0"
                            "1",
                            "-", "1_0"}) {
    EXPECT_THAT(read(std::string("<integer>") + wrong + "</integer>"), HasSubstr("<integer> cannot hold \""));
  }
}

TEST(XMLReaderTest, RealsOfEveryForm) {
  EXPECT_EQ(real("0.1"), 0.1);
  EXPECT_EQ(real("-2.5E-3"), -0.0025);
  EXPECT_EQ(real(" +.5 "), 0.5);
  EXPECT_EQ(real("7"), 7.0);
  EXPECT_EQ(real("5e-324"), 5e-324);
  EXPECT_EQ(real("1.7976931348623157e308"), 1.7976931348623157e308);
  EXPECT_TRUE(std::signbit(real("-0")));
  EXPECT_TRUE(std::isnan(real("nan")));
  EXPECT_TRUE(std::isnan(real("NaN")));
  for (const char* form : {"inf", "+inf", "infinity", "+infinity", "Infinity", "INF"}) EXPECT_EQ(real(form), INFINITY);
  for (const char* form : {"-inf", "-infinity", "-Infinity"}) EXPECT_EQ(real(form), -INFINITY);
  EXPECT_EQ(read("<real>1e999</real>"), "The real number is out of range: \"1e999\" at line 4, column 1");
  for (const char* wrong : {"", "x", "1,5", "1.5.", "0x1p3", "--1", "1e", ".", "nan(1)", "in"}) {
    EXPECT_EQ(read(std::string("<real>") + wrong + "</real>"),
              std::string("<real> cannot hold \"") + wrong + "\" at line 4, column 1");
  }
}

TEST(XMLReaderTest, DatesMustExist) {
  EXPECT_EQ(read("<date>2024-02-29T23:59:59Z</date>"), "t730943999");
  EXPECT_EQ(read("<date> 0001-01-01T00:00:00Z </date>"), "t-63113904000");
  EXPECT_EQ(read("<date>9999-12-31T23:59:59Z</date>"), "t252423993599");
  for (const char* missing :
       {"2023-02-30T00:00:00Z", "2023-02-29T00:00:00Z", "1900-02-29T00:00:00Z", "2023-13-01T00:00:00Z",
        "2023-00-10T00:00:00Z", "2023-04-31T00:00:00Z", "2023-01-00T00:00:00Z", "2023-01-01T24:00:00Z",
        "2023-01-01T00:60:00Z", "2023-01-01T00:00:60Z", "0000-01-01T00:00:00Z"}) {
    EXPECT_EQ(read(std::string("<date>") + missing + "</date>"),
              std::string("The date does not exist: \"") + missing + "\" at line 4, column 1");
  }
  for (const char* wrong : {"", "2023-01-01", "2023-01-01T00:00:00", "2023-01-01 00:00:00Z", "2023-1-01T00:00:00Z",
                            "2023-01-01T00:00:00+01", "+023-01-01T00:00:00Z", "2023-01-01T00:00:0 Z"}) {
    EXPECT_EQ(read(std::string("<date>") + wrong + "</date>"),
              std::string("<date> cannot hold \"") + wrong + "\" at line 4, column 1");
  }
}

TEST(XMLReaderTest, DataIsStrictBase64WithBlanks) {
  EXPECT_EQ(read("<data>\n\tQU\r\nJD \n</data>"), "d414243");
  EXPECT_EQ(read("<data>QUI=</data>"), "d4142");
  EXPECT_EQ(read("<data>QQ= =</data>"), "d41");
  for (const char* cut : {"Q", "QU", "QUI", "QUJDR", "QQ="}) {
    EXPECT_EQ(read(std::string("<data>") + cut + "</data>"), "The base64 text is cut off in <data> at line 4, column 1")
        << cut;
  }
  for (const char* wrong : {"Q-JD", "QUJ_", "QUJD!", "QQ==QQ==", "=QUJ", "Q===", "QQ=A", "QUI==", "QUJD="}) {
    EXPECT_THAT(read(std::string("<data>") + wrong + "</data>"), HasSubstr("where base64 does not allow it, in <data>"))
        << wrong;
  }
}

TEST(XMLReaderTest, OfEqualKeysTheLastValueCountsInTheFirstPlace) {
  EXPECT_EQ(
      read("<dict><key>a</key><integer>1</integer><key>b</key><integer>2</integer><key>a</key><integer>3</integer>"
           "</dict>"),
      "{s61:i3,s62:i2,}");
}

TEST(XMLReaderTest, DictionariesKeepTheOrderOfTheirKeys) {
  std::string input = "<dict>", expected = "{";
  for (int i = 0; i < 1000; ++i) {
    const std::string key = "k" + std::to_string(i * 7919 % 1000);
    input += "<key>" + key + "</key><true/>";
    expected += str(key) + ":T,";
  }
  EXPECT_EQ(read(input + "</dict>"), expected + "}");
}

TEST(XMLReaderTest, AttributesAreReadAndForgotten) {
  EXPECT_EQ(read("<dict a='1' b:c=\"2\"><key x = 'y'>k</key><true\ny=''/></dict>"), "{s6b:T,}");
  EXPECT_EQ(read("<true a='1' a='2'/>"), "The attribute \"a\" comes twice, at line 4, column 13");
  EXPECT_THAT(read("<true a/>"), HasSubstr("The attribute \"a\" has no value"));
  EXPECT_THAT(read("<true a=1/>"), HasSubstr("is not in quotes"));
  EXPECT_THAT(read("<true a='<'/>"), HasSubstr("\"<\" in an attribute's value"));
  EXPECT_THAT(read("<true a='&x;'/>"), HasSubstr("A reference in an attribute's value"));
  std::string many = "<true";
  for (int i = 0; i < 17; ++i) many += " a" + std::to_string(i) + "=''";
  EXPECT_THAT(read(many + "/>"), HasSubstr("More attributes than an element can have"));
}

TEST(XMLReaderTest, EverythingBehindTheRootIsIgnored) {
  for (const char* rest : {"</plist>\n", "<plist", "garbage <<< &", "\xFF\xFE", "</dict></plist>"}) {
    EXPECT_EQ(canonical(parse(std::string("<plist version=\"1.0\"><dict/></plist>") + rest).list.get()), "{}") << rest;
    EXPECT_EQ(canonical(parse(std::string("<dict></dict>") + rest).list.get()), "{}") << rest;
    EXPECT_EQ(canonical(parse(std::string("<integer>1</integer>") + rest).list.get()), "i1") << rest;
  }
  EXPECT_TRUE(parse(std::string("<plist><true/></plist>\0\0\0", 25)).list);
}

TEST(XMLReaderTest, ALongerOldDocumentBehindAShorterNewOneIsIgnored) {
  const std::string older =
      "<plist version=\"1.0\">\n<dict>\n<key>long</key>\n<string>old value</string>\n</dict>\n</plist>\n";
  const std::string newer = "<plist version=\"1.0\">\n<dict/>\n</plist>\n";
  const Parsed parsed = parse(newer + older.substr(newer.size()));
  EXPECT_EQ(canonical(parsed.list.get()), "{}") << parsed.error;
}

TEST(XMLReaderTest, ErrorsNameCauseLineAndColumn) {
  const Refused cases[] = {
      {"", "There is no list: no element has begun at line 1, column 1"},
      {" \n ", "There is no list: no element has begun at line 2, column 2"},
      {"text", "Unexpected text before the list at line 1, column 1"},
      {"<plist>\n<dict>\n  <key>é</key><foo/>\n", "Unknown element <foo> at line 3, column 15"},
      {"<plist>\r\n\r<Dict/>", "Unknown element <Dict> at line 3, column 1"},
      {"<dict><key>a</key></dict>", "<key> without a value at line 1, column 7"},
      {"<dict><key>a</key><key>b</key><true/></dict>", "<key> without a value at line 1, column 7"},
      {"<dict><true/></dict>", "<true> without a <key> before it at line 1, column 7"},
      {"<dict><dict/></dict>", "<dict> without a <key> before it at line 1, column 7"},
      {"<array><key>a</key></array>", "<key> outside of a <dict> at line 1, column 8"},
      {"<key>a</key>", "<key> outside of a <dict> at line 1, column 1"},
      {"<array></dict>", "</dict> where </array> belongs at line 1, column 8"},
      {"<plist><array></plist>", "</plist> where </array> belongs at line 1, column 15"},
      {"<plist></array>", "</array> where </plist> belongs at line 1, column 8"},
      {"<plist><true/></array>", "</array> where </plist> belongs at line 1, column 15"},
      {"<string>a</key>", "</key> where </string> belongs at line 1, column 10"},
      {"</dict>", "</dict> that closes nothing at line 1, column 1"},
      {"<plist/>", "<plist> without a value at line 1, column 1"},
      {"<plist></plist>", "<plist> without a value at line 1, column 8"},
      {"<plist><true/><true/></plist>", "A second value inside <plist> at line 1, column 15"},
      {"<array><plist/></array>", "<plist> inside the list at line 1, column 8"},
      {"<array>text</array>", "Unexpected text between the elements inside <array> at line 1, column 8"},
      {"<array>&#32;</array>", "Unexpected text between the elements inside <array> at line 1, column 8"},
      {"<array><![CDATA[]]></array>", "Unexpected text between the elements at line 1, column 8"},
      {"<array><!ELEMENT></array>", "Unexpected \"<!\" at line 1, column 8"},
      {"<string><b/></string>", "Unknown element <b> at line 1, column 9"},
      {"<string><key/></string>", "<key> inside <string> at line 1, column 9"},
      {"<true>x</true>", "Text inside <true> at line 1, column 1"},
      {"<array>", "The list ends inside the <array> that begins at line 1, column 1, cut off at line 1, column 8"},
      {"<string>a", "The list ends inside the <string> that begins at line 1, column 1, cut off at line 1, column 10"},
      {"<arr", "The list ends inside a tag, cut off at line 1, column 5"},
      {"<array><>", "\"<\" without the name of an element at line 1, column 8"},
      {"<true a='1'", "The list ends inside a tag, cut off at line 1, column 12"},
      {"<true / >", "A character that cannot stand in a tag at line 1, column 8"},
      {"<array></array a='1'>", "A character that cannot stand in a tag at line 1, column 16"},
      {"<string>&</string>", "\"&\" that begins no reference at line 1, column 9"},
      {"<string>&foo;</string>", "Unknown entity &foo; at line 1, column 9"},
      {"<string>&#;</string>", "\"&#;\" stands for no character that XML allows, at line 1, column 9"},
      {"<string>&#x;</string>", "\"&#x;\" stands for no character that XML allows, at line 1, column 9"},
      {"<string>&#0;</string>", "\"&#0;\" stands for no character that XML allows, at line 1, column 9"},
      {"<string>&#xD800;</string>", "\"&#xD800;\" stands for no character that XML allows, at line 1, column 9"},
      {"<string>&#xFFFF;</string>", "\"&#xFFFF;\" stands for no character that XML allows, at line 1, column 9"},
      {"<string>&#x110000;</string>", "\"&#x110000;\" stands for no character that XML allows, at line 1, column 9"},
      {"<string>&#99999999999999999999;</string>",
       "\"&#99999999999999999999;\" stands for no character that XML allows, at line 1, column 9"},
      {"<string>&#12a;</string>", "\"&#12a;\" is no character reference at line 1, column 9"},
      {"<string>]]></string>", "\"]]>\" outside of a CDATA section at line 1, column 9"},
      {"<string>a\x01</string>", "The control character U+0001, which XML does not allow, at line 1, column 10"},
      {"<string>\xC3</string>", "Bytes that are not UTF-8 (0xC3) at line 1, column 9"},
      {"<string>\xC0\x80</string>", "Bytes that are not UTF-8 (0xC0) at line 1, column 9"},
      {"<string>\xED\xA0\x80</string>", "Bytes that are not UTF-8 (0xED) at line 1, column 9"},
      {"<string>\xF4\x90\x80\x80</string>", "Bytes that are not UTF-8 (0xF4) at line 1, column 9"},
      {"<string>\xE0\x80\x80</string>", "Bytes that are not UTF-8 (0xE0) at line 1, column 9"},
      {"<string>\xF0\x80\x80\x80</string>", "Bytes that are not UTF-8 (0xF0) at line 1, column 9"},
      {"<string>\x80</string>", "Bytes that are not UTF-8 (0x80) at line 1, column 9"},
      {"<string>\xEF\xBF\xBE</string>", "The character U+FFFE, which XML does not allow, at line 1, column 9"},
      {"<!-- a -- b --><true/>", "\"--\" in a comment at line 1, column 8"},
      {"<!-- a", "The list ends inside the comment that begins at line 1, column 1"},
      {"<!-- a --", "The list ends inside a comment, cut off at line 1, column 8"},
      {"<!-- \xFF --><true/>", "Bytes that are not UTF-8 (0xFF) at line 1, column 6"},
      {"<?a", "The list ends inside the processing instruction that begins at line 1, column 1"},
      {"<?\?><true/>", "A processing instruction without a name at line 1, column 1"},
      {" <?xml version=\"1.0\"?><true/>", "An XML declaration anywhere but at the very beginning at line 1, column 2"},
      {"<?xml version=\"1.1\"?><true/>", "XML version \"1.1\" is not supported, only 1.0 is, at line 1, column 7"},
      {"<?xml encoding=\"UTF-8\"?><true/>", "Unexpected \"encoding\" in the XML declaration at line 1, column 7"},
      {"<?xml version=\"1.0\" version=\"1.0\"?><true/>",
       "Unexpected \"version\" in the XML declaration at line 1, column 21"},
      {"<?xml ?><true/>", "The XML declaration has no version at line 1, column 1"},
      {"<?xml version=\"1.0\" standalone=\"x\"?><true/>",
       "\"standalone\" must be yes or no, not \"x\", at line 1, column 21"},
      {"<?xml version=\"1.0\" ", "The XML declaration does not end in \"?>\" at line 1, column 1"},
      {"<!DOCTYPE html><true/>", "The document type is not \"plist\" at line 1, column 10"},
      {"<!DOCTYPE plist><!DOCTYPE plist><true/>", "A second document-type line at line 1, column 17"},
      {"<!DOCTYPE plist PUBLIC \"a\"><true/>",
       "The document-type line lacks an identifier in quotes at line 1, column 27"},
      {"<!DOCTYPE plist SYSTEM \"a><true/>",
       "The document type's identifier has no closing quote at line 1, column 24"},
      {"<!DOCTYPE plist foo><true/>", "The document-type line does not end in \">\" at line 1, column 1"},
      {"<string><![CDATA[a</string>", "The list ends inside the CDATA section that begins at line 1, column 9"},
  };
  for (const Refused& refused : cases) expectRefused(refused);
}

TEST(XMLReaderTest, EntityDeclarationsAreRefusedBeforeTheyCanGrow) {
  const std::string bomb =
      "<?xml version=\"1.0\"?>\n<!DOCTYPE plist [\n<!ENTITY a \"aaaaaaaaaa\">\n<!ENTITY b \"&a;&a;&a;&a;\">\n"
      "]>\n<plist><string>&b;</string></plist>";
  EXPECT_EQ(parse(bomb).error,
            "The document-type line has an internal subset, which is not supported, nor is any entity of its own, at "
            "line 2, column 17");
  EXPECT_THAT(parse("<!DOCTYPE plist SYSTEM \"file:///etc/passwd\" [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>"
                    "<string>&x;</string>")
                  .error,
              HasSubstr("internal subset"));
}

TEST(XMLReaderTest, ANULIsNoCharacter) {
  EXPECT_THAT(parse(std::string("<string>a\0b</string>", 20)).error, HasSubstr("U+0000"));
  EXPECT_FALSE(parse(std::string("<array>\0</array>", 16)).list);
}

TEST(XMLReaderTest, LongUnknownNamesAreCutInTheMessage) {
  const Parsed parsed = parse("<" + std::string(100000, 'x') + "\xC3\xA9>");
  EXPECT_EQ(parsed.error, "Unknown element <" + std::string(40, 'x') + "...> at line 1, column 1");
  EXPECT_EQ(parse("<\xC3\xA9>").error, "Unknown element <?\?> at line 1, column 1");
}

TEST(XMLReaderTest, ContainersNestFiveHundredTwelveDeepAndNoDeeper) {
  EXPECT_TRUE(parse(repeated("<array>", 512) + repeated("</array>", 512)).list);
  EXPECT_TRUE(parse(repeated("<dict><key>a</key>", 511) + "<dict/>" + repeated("</dict>", 511)).list);
  EXPECT_EQ(parse(repeated("<array>", 513) + repeated("</array>", 513)).error,
            "More than 512 containers inside one another at line 1, column 3585");
  EXPECT_FALSE(parse(repeated("<array>", 512) + "<dict/>" + repeated("</array>", 512)).list);
  EXPECT_TRUE(parse(repeated("<array>", 512) + "<true/>" + repeated("</array>", 512)).list);
}

TEST(XMLReaderTest, ADepthOfAMillionIsAnErrorAtOnce) {
  const std::string deep = repeated("<array>", 1000000);
  const auto begin = std::chrono::steady_clock::now();
  const Parsed parsed = parse(deep);
  EXPECT_THAT(parsed.error, HasSubstr("More than 512 containers"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

TEST(XMLReaderTest, MutabilityFollowsTheOptions) {
  const std::string input = "<dict><key>a</key><array><string>s</string><data>QUJD</data></array></dict>";
  const auto array = [](const Parsed& parsed) {
    return static_cast<CFArrayRef>(CFDictionaryGetValue(static_cast<CFDictionaryRef>(parsed.list.get()), CFSTR("a")));
  };
  const Parsed containers = parse(input, kCFPropertyListMutableContainers);
  CFArrayAppendValue(
      reinterpret_cast<CFMutableArrayRef>(const_cast<void*>(static_cast<const void*>(array(containers)))),
      kCFBooleanTrue);
  CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(const_cast<void*>(containers.list.get())), CFSTR("b"),
                       kCFBooleanFalse);
  EXPECT_EQ(canonical(containers.list.get()), "{s61:[s73,d414243,T,],s62:F,}");

  const Parsed leaves = parse(input, kCFPropertyListMutableContainersAndLeaves);
  CFStringAppend(static_cast<CFMutableStringRef>(const_cast<void*>(CFArrayGetValueAtIndex(array(leaves), 0))),
                 CFSTR("t"));
  CFDataSetLength(static_cast<CFMutableDataRef>(const_cast<void*>(CFArrayGetValueAtIndex(array(leaves), 1))), 1);
  EXPECT_EQ(canonical(leaves.list.get()), "{s61:[s7374,d41,],}");
}

TEST(XMLReaderTest, EveryTruncationIsAnError) {
  const std::string whole = test::write(test::ListMaker(7).make(60).get()).bytes;
  const std::size_t end = whole.rfind("</plist>") + 8;
  for (std::size_t length = 0; length < end; ++length) {
    const Parsed parsed = parse(whole.substr(0, length));
    ASSERT_FALSE(parsed.list) << "cut to " << length << " bytes";
    ASSERT_THAT(parsed.error, HasSubstr(" at line ")) << "cut to " << length << " bytes";
    ASSERT_EQ(parsed.code, 3840);
  }
  for (std::size_t length = end; length <= whole.size(); ++length) EXPECT_TRUE(parse(whole.substr(0, length)).list);
}

TEST(XMLReaderTest, EverySingleFlippedBitIsAnErrorOrAList) {
  const std::string whole = test::write(test::ListMaker(11).make(60).get()).bytes;
  const std::string before = canonical(parse(whole).list.get());
  std::size_t errors = 0, lists = 0;
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    std::string flipped = whole;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    const Parsed parsed = parse(flipped);
    if (parsed.list) {
      // What is accepted can be written and reads back the same.
      const test::Written again = test::write(parsed.list.get());
      ASSERT_EQ(canonical(parse(again.bytes).list.get()), canonical(parsed.list.get())) << "bit " << bit;
      ++lists;
    } else {
      ASSERT_THAT(parsed.error, HasSubstr(" at line ")) << "bit " << bit;
      ++errors;
    }
  }
  EXPECT_GT(errors, whole.size());
  EXPECT_GT(lists, 0u);
}

}  // namespace
