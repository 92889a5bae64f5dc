// Format strings, most of them against the C library's own printf.
#include <gtest/gtest.h>
#include <locale.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

#include "tests/corefoundation/string_testing.h"
#include "tests/support/scratch_home.h"

using namespace strings;

namespace {

std::string formatted(std::string_view format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const String string(CFStringCreateWithFormatAndArguments(nullptr, nullptr, fromUTF8(format).get(), arguments));
  va_end(arguments);
  return utf8(string);
}

std::string printed(const std::string& format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vector<char> buffer(8192);
  const int count = std::vsnprintf(buffer.data(), buffer.size(), format.c_str(), arguments);
  va_end(arguments);
  EXPECT_GE(count, 0) << format;
  return std::string(buffer.data(), static_cast<std::size_t>(count));
}

// Every combination of flags, of a width and of a precision.
std::vector<std::string> layouts(std::initializer_list<const char*> flags) {
  std::vector<std::string> all;
  for (const char* flag : flags) {
    for (const char* width : {"", "1", "7", "20"}) {
      for (const char* precision : {"", ".", ".0", ".1", ".3", ".12"}) {
        all.push_back(std::string("%") + flag + width + precision);
      }
    }
  }
  return all;
}

const std::initializer_list<const char*> kSignedFlags = {"", "-", "+", " ", "0", "-+", "+0", " 0", "'", "-0"};
const std::initializer_list<const char*> kUnsignedFlags = {"", "-", "0", "#", "-#", "#0", "'"};
const std::initializer_list<const char*> kRealFlags = {"", "-", "+", " ", "0", "#", "+0", "-#", " 0", "#0"};

template <class Value>
void expectLikePrintf(std::initializer_list<const char*> flags, const char* size, const char* conversions,
                      std::initializer_list<Value> values) {
  for (const std::string& layout : layouts(flags)) {
    for (const char* conversion = conversions; *conversion != '\0'; ++conversion) {
      const std::string format = layout + size + *conversion;
      for (const Value value : values) {
        ASSERT_EQ(formatted(format, value), printed(format, value)) << format << " of " << +value;
      }
    }
  }
}

TEST(StringFormatTest, SignedIntegersOfEverySizeAreAsInC) {
  expectLikePrintf<int>(kSignedFlags, "", "di", {0, 1, -1, 42, -12345, INT_MAX, INT_MIN});
  expectLikePrintf<int>(kSignedFlags, "h", "di", {0, -1, SHRT_MAX, SHRT_MIN, 70000});
  expectLikePrintf<int>(kSignedFlags, "hh", "di", {0, -1, SCHAR_MAX, SCHAR_MIN, 300});
  expectLikePrintf<long>(kSignedFlags, "l", "di", {0, -1, LONG_MAX, LONG_MIN});
  expectLikePrintf<long long>(kSignedFlags, "ll", "di", {0, -1, LLONG_MAX, LLONG_MIN});
  expectLikePrintf<long long>(kSignedFlags, "q", "di", {0, -1, LLONG_MAX, LLONG_MIN});
  expectLikePrintf<std::intmax_t>(kSignedFlags, "j", "di", {0, -1, INTMAX_MAX, INTMAX_MIN});
  expectLikePrintf<ptrdiff_t>(kSignedFlags, "t", "di", {0, -1, PTRDIFF_MAX, PTRDIFF_MIN});
  expectLikePrintf<ssize_t>(kSignedFlags, "z", "di", {0, -1, SSIZE_MAX});
}

TEST(StringFormatTest, UnsignedIntegersOfEverySizeAreAsInC) {
  expectLikePrintf<unsigned>(kUnsignedFlags, "", "uxXo", {0u, 1u, 255u, 123456u, UINT_MAX});
  expectLikePrintf<unsigned>(kUnsignedFlags, "h", "uxXo", {0u, 1u, 70000u, UINT_MAX});
  expectLikePrintf<unsigned>(kUnsignedFlags, "hh", "uxXo", {0u, 1u, 300u, UINT_MAX});
  expectLikePrintf<unsigned long>(kUnsignedFlags, "l", "uxXo", {0ul, 1ul, ULONG_MAX});
  expectLikePrintf<unsigned long long>(kUnsignedFlags, "ll", "uxXo", {0ull, 1ull, ULLONG_MAX});
  expectLikePrintf<std::uintmax_t>(kUnsignedFlags, "j", "uxXo", {0, 1, UINTMAX_MAX});
  expectLikePrintf<std::size_t>(kUnsignedFlags, "z", "uxXo", {0, 1, SIZE_MAX});
  expectLikePrintf<std::size_t>(kUnsignedFlags, "t", "uxXo", {0, 1, SIZE_MAX});
}

TEST(StringFormatTest, RealNumbersAreAsInC) {
  const double inf = std::numeric_limits<double>::infinity();
  expectLikePrintf<double>(kRealFlags, "", "fFeEgGaA",
                           {0.0, -0.0, 1.0, -1.0, 0.5, 1.5, 2.5, 3.14159265358979, 1e-5, 123456789.125, 1e22, -1e-300,
                            DBL_MIN, DBL_TRUE_MIN, inf, -inf, std::nan("")});
  expectLikePrintf<double>(kRealFlags, "l", "fFeEgGaA", {0.0, 59.9995, -0.0005});
  expectLikePrintf<long double>(kRealFlags, "L", "fFeEgGaA",
                                {0.0L, -0.0L, 1.0L / 3, 1e4000L, -1e-4000L, LDBL_MAX / 1e4900L});
  EXPECT_EQ(formatted("%f", DBL_MAX), printed("%f", DBL_MAX)) << "longer than any small buffer";
  EXPECT_EQ(formatted("%.900f", 1.0 / 3), printed("%.900f", 1.0 / 3));
}

TEST(StringFormatTest, SecondsOfTimeStampsAreAsInC) {
  for (int i = 0; i < 60000; i += 7) {
    const double seconds = i / 1000.0;
    ASSERT_EQ(formatted("%06.3lf", seconds), printed("%06.3lf", seconds));
    const double absolute = 741700000 + seconds;
    ASSERT_EQ(formatted("%.3lf", absolute), printed("%.3lf", absolute));
  }
  EXPECT_EQ(formatted("%02d/%02d/%04d %02d:%02d:%06.3lf", 7, 4, 2024, 9, 5, 3.25), "07/04/2024 09:05:03.250");
}

TEST(StringFormatTest, CapitalSynonymsAreTheSmallConversions) {
  EXPECT_EQ(formatted("%D %U %O", -5, UINT_MAX, 8u), "-5 4294967295 10");
  EXPECT_EQ(formatted("%#06X|%qd", 255u, LLONG_MIN), "0X00FF|-9223372036854775808");
}

TEST(StringFormatTest, WidthAndPrecisionComeFromArguments) {
  EXPECT_EQ(formatted("[%*d]", 5, 42), "[   42]");
  EXPECT_EQ(formatted("[%*d]", -5, 42), "[42   ]");
  EXPECT_EQ(formatted("[%-*d]", -5, 42), "[42   ]");
  EXPECT_EQ(formatted("[%.*f]", 2, 3.14159), "[3.14]");
  EXPECT_EQ(formatted("[%.*f]", -2, 3.5), "[3.500000]") << "a negative precision is none";
  EXPECT_EQ(formatted("[%*.*f]", 8, 2, 3.14159), "[    3.14]");
  EXPECT_EQ(formatted("[%0*d]", 5, -42), "[-0042]");
  EXPECT_EQ(formatted("[%.*s]", 2, "abc"), "[ab]");
}

TEST(StringFormatTest, PointersAreAsInC) {
  int local = 0;
  for (const char* format : {"%p", "%20p", "%-20p|"}) {
    EXPECT_EQ(formatted(format, &local), printed(format, static_cast<void*>(&local)));
    EXPECT_EQ(formatted(format, nullptr), printed(format, static_cast<void*>(nullptr)));
  }
}

TEST(StringFormatTest, CStringsAreAsInC) {
  for (const std::string& layout : layouts({"", "-"})) {
    for (const char* text : {"", "a", "some text", "much longer than the width is"}) {
      ASSERT_EQ(formatted(layout + "s", text), printed(layout + "s", text)) << layout;
    }
  }
  EXPECT_EQ(formatted("%s|%10s|%-8s|", nullptr, nullptr, nullptr), "(null)|    (null)|(null)  |");
  EXPECT_EQ(formatted("%hs", "text"), "text");
  // Only so many bytes are read.
  const char unterminated[3] = {'a', 'b', 'c'};
  EXPECT_EQ(formatted("%.3s", unterminated), "abc");
}

TEST(StringFormatTest, CStringsAreUTF8) {
  EXPECT_EQ(formatted("%s", "gr\xC3\xBCn \xF0\x9F\x8E\x89"), "gr\xC3\xBCn \xF0\x9F\x8E\x89");
  EXPECT_EQ(formatted("%s",
                      "a\xFF"
                      "b\xE2\x82"),
            "a\uFFFDb\uFFFD\uFFFD");
  EXPECT_EQ(formatted("%.3s|", "gr\xC3\xBCn"), "gr|") << "the precision cuts the u with dots apart";
  EXPECT_EQ(formatted("%.4s|", "gr\xC3\xBCn"), "gr\xC3\xBC|");
  EXPECT_EQ(formatted("%.3s|", "\xF0\x9F\x8E\x89"), "|");
  EXPECT_EQ(formatted("%6s|", "gr\xC3\xBCn"), " gr\xC3\xBCn|");
}

TEST(StringFormatTest, WideTextIsUTF16OrWideCharacters) {
  EXPECT_EQ(formatted("%S|%8S|%-4S|%.2S", u"gr\u00FCn\U0001F389", u"\u00FC", u"ab", u"abc"), "grün🎉|       ü|ab  |ab");
  EXPECT_EQ(formatted("%S", nullptr), "(null)");
  EXPECT_EQ(formatted("%ls|%.1ls", L"gr\u00FCn\U0001F389", L"ab"), "grün🎉|a");
  EXPECT_EQ(formatted("%ls", nullptr), "(null)");
}

TEST(StringFormatTest, Characters) {
  EXPECT_EQ(formatted("%c%c%3c|%-3c|", 'a', 'b', 'c', 'd'), "ab  c|d  |");
  EXPECT_EQ(formatted("%c", 0xE9), "é") << "a byte is ISO Latin-1";
  EXPECT_EQ(formatted("%C%C%C%3C", 0x20AC, 0xD83C, 0xDF89, 'x'), "€🎉  x");
  EXPECT_EQ(formatted("%lc", static_cast<wint_t>(0x1F389)), "🎉");
  EXPECT_EQ(formatted("%lc", static_cast<wint_t>(0x110000)), "\uFFFD");
  EXPECT_EQ(formatted("a%cb", 0), std::string("a\0b", 3));
}

TEST(StringFormatTest, ObjectsDescribeThemselves) {
  EXPECT_EQ(formatted("%@ and %@", CFSTR("one"), CFSTR("zw\u00F6lf")), "one and zwölf");
  EXPECT_EQ(formatted("[%@]", nullptr), "[(null)]");
  EXPECT_EQ(formatted("[%8@|%-8@|%.2@|%6.3@]", CFSTR("gr\u00FCn"), CFSTR("ab"), CFSTR("abc"), CFSTR("\u00FCber")),
            "[    grün|ab      |ab|   übe]");
  EXPECT_EQ(formatted("%.1@", CFSTR("\U0001F389")), "?") << "a precision counts code units: this is half a pair";
  const int number = 303;
  const plinth::CSharedCFRef<CFNumberRef> object(CFNumberCreate(nullptr, kCFNumberIntType, &number));
  EXPECT_EQ(formatted("%@", object.get()), utf8(String(CFCopyDescription(object.get()))));
  EXPECT_EQ(formatted("%@", mutableFromUTF8("changing").get()), "changing");
}

TEST(StringFormatTest, PositionsChooseArguments) {
  EXPECT_EQ(formatted("%2$@ %1$@", CFSTR("world"), CFSTR("hello")), "hello world");
  EXPECT_EQ(formatted("%1$s %1$s %2$d", "twice", 7), "twice twice 7");
  EXPECT_EQ(formatted("%3$.1f %1$d %2$s", 1, "two", 3.25), "3.2 1 two");
  EXPECT_EQ(formatted("%2$*1$d|%3$.*1$s", 4, 42, "abcdef"), "  42|abcd");
  EXPECT_EQ(formatted("%2$*1$.*3$f", 8, 3.14159, 2), "    3.14");
  EXPECT_EQ(formatted("%3$d", 1, 2, 3), "3") << "arguments that no conversion names are ints";
  EXPECT_EQ(formatted("%1$lld %1$lld %2$Lf", LLONG_MIN, 1.5L), "-9223372036854775808 -9223372036854775808 1.500000");
  EXPECT_EQ(formatted("costs $5 and 100%%, %d", 1), "costs $5 and 100%, 1") << "a dollar sign alone is text";
}

TEST(StringFormatTest, ManyArgumentsArriveInOrder) {
  EXPECT_EQ(formatted("%d %f %s %ld %@ %c %g %u %lld %s %d %f", 1, 2.5, "three", 4L, CFSTR("five"), '6', 7.0, 8u, 9LL,
                      "ten", 11, 12.5),
            "1 2.500000 three 4 five 6 7 8 9 ten 11 12.500000");
}

TEST(StringFormatTest, NothingIsWrittenThroughAFormat) {
  int untouched = 77;
  EXPECT_EQ(formatted("ab%ncd %d", &untouched, 5), "abcd 5");
  EXPECT_EQ(formatted("%1$n%2$d", &untouched, 5), "5");
  EXPECT_EQ(untouched, 77);
}

TEST(StringFormatTest, PercentSigns) {
  EXPECT_EQ(formatted("100%%"), "100%");
  EXPECT_EQ(formatted("%%%d%%", 5), "%5%");
  EXPECT_EQ(formatted(""), "");
  EXPECT_EQ(formatted("gr\xC3\xBCn %d", 1), "gr\xC3\xBCn 1");
}

TEST(StringFormatTest, WhatCannotBeReadIsPrintedAsItStands) {
  EXPECT_EQ(formatted("%d then %y %d", 1, 2), "1 then %y %d");
  EXPECT_EQ(formatted("at the end %"), "at the end %");
  EXPECT_EQ(formatted("at the end %-08.3l"), "at the end %-08.3l");
  EXPECT_EQ(formatted("%0$d", 1), "%0$d");
  EXPECT_EQ(formatted("%99999999999d", 1), "%99999999999d");
  EXPECT_EQ(formatted("%.99999999999d", 1), "%.99999999999d");
  EXPECT_EQ(formatted("%99999$d", 1), "%99999$d");
}

// A locale that writes 1,5: one that is installed, else one made on the spot. Empty when neither can be had.
std::string localeWithADecimalComma() {
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "pt_BR.UTF-8"}) {
    if (setlocale(LC_ALL, name) != nullptr) return name;
  }
  const std::string folder = test::scratchFolder("locales");
  const std::string command = "localedef -i de_DE -f UTF-8 '" + folder + "/de_DE.UTF-8' >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) return {};
  setenv("LOCPATH", folder.c_str(), 1);
  return setlocale(LC_ALL, "de_DE.UTF-8") != nullptr ? "de_DE.UTF-8" : "";
}

TEST(StringFormatTest, TheDecimalPointIsAPointInEveryLocale) {
  if (localeWithADecimalComma().empty()) GTEST_SKIP() << "no locale with a decimal comma, and localedef makes none";
  char inC[16];
  std::snprintf(inC, sizeof inC, "%.2f", 1.5);
  EXPECT_STREQ(inC, "1,50") << "the locale is not in force";
  EXPECT_EQ(formatted("%.2f %g %'d", 1.5, 0.25, 1234567), "1.50 0.25 1234567");
  EXPECT_EQ(CFStringGetDoubleValue(CFSTR("1.5")), 1.5);
  EXPECT_EQ(CFStringGetDoubleValue(CFSTR("1,5")), 1.0);
  setlocale(LC_ALL, "C");
}

TEST(StringFormatTest, TheThreadsLocaleIsPutBack) {
  const locale_t before = uselocale(static_cast<locale_t>(nullptr));
  EXPECT_EQ(formatted("%f", 1.0), "1.000000");
  EXPECT_EQ(uselocale(static_cast<locale_t>(nullptr)), before);
}

TEST(StringFormatTest, AppendsToAMutableString) {
  const MutableString string = mutableFromUTF8("a");
  CFStringAppendFormat(string.get(), nullptr, CFSTR("%d%@"), 1, CFSTR("b"));
  CFStringAppendFormat(string.get(), nullptr, CFSTR(""));
  CFStringAppendFormat(string.get(), nullptr, nullptr);
  EXPECT_EQ(utf8(string), "a1b");
  EXPECT_EQ(CFStringCreateWithFormat(nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(utf8(String(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%d-%d"), 1, 2))), "1-2");
}

}  // namespace
