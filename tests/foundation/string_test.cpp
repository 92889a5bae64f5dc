#include <CoreFoundation/CFNumber.h>
#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/string.h>

#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/foundation/plinth_text.h"
#include "tests/support/scratch_home.h"

namespace {

using namespace plinth;
using test::text;

// One letter of each length in UTF-8: 1, 2, 3 and 4 bytes, the last a surrogate pair in UTF-16.
constexpr const char* kMixed = "a\u00e9\u20ac\U0001F600";

TEST(CSTRTest, MakesAStringFromUTF8) {
  EXPECT_EQ(text(CSTR(kMixed)), kMixed);
  EXPECT_EQ(text(CSTR("")), "");
}

TEST(CSTRTest, MakesAStringFromAnotherEncoding) {
  EXPECT_EQ(text(CSTR("caf\xE9", kCFStringEncodingISOLatin1)), "caf\u00e9");
}

TEST(CSTRTest, ANullSourceGivesAnEmptyHolder) {
  EXPECT_TRUE(CSTR(static_cast<const char*>(nullptr)).isNull());
  EXPECT_TRUE(CSTR(static_cast<CFStringRef>(nullptr)).isNull());
  EXPECT_TRUE(CSTR(CStringRef()).isNull());
  EXPECT_TRUE(CSTR(nullptr).isNull());
}

TEST(CSTRTest, BytesThatTheEncodingCannotReadGiveAnEmptyHolder) {
  EXPECT_TRUE(CSTR("a\xFF").isNull());
  EXPECT_TRUE(CSTR(std::string("\xC3")).isNull());
  EXPECT_TRUE(CSTR("\xE9", kCFStringEncodingASCII).isNull());
}

TEST(CSTRTest, RetainsAnImmutableCoreFoundationString) {
  const CSharedCFRef<CFStringRef> source(CFStringCreateWithCString(kCFAllocatorDefault, kMixed, kCFStringEncodingUTF8));
  const CStringRef string = CSTR(source.get());
  EXPECT_EQ(string->getStringRef(), source.get());
  EXPECT_EQ(CFGetRetainCount(source.get()), 2);
}

TEST(CSTRTest, CopiesAMutableCoreFoundationString) {
  const CSharedCFRef<CFMutableStringRef> source(CFStringCreateMutableCopy(kCFAllocatorDefault, 0, CFSTR("before")));
  const CStringRef string = CSTR(source.get());
  CFStringAppend(source.get(), CFSTR(" and after"));
  EXPECT_EQ(text(string), "before");
}

TEST(CSTRTest, ACopyOfAHolderIsAStringOfItsOwn) {
  const CStringRef original = CSTR("text");
  const CStringRef copy = CSTR(original);
  EXPECT_FALSE(copy.isSame(original));
  original->append("!");
  EXPECT_EQ(text(copy), "text");
}

TEST(CSTRTest, KeepsNULCharactersOfAStandardString) {
  const CStringRef string = CSTR(std::string("a\0b", 3));
  EXPECT_EQ(string->getLength(), 3);
  EXPECT_EQ(string->str(), std::string("a\0b", 3));
  EXPECT_STREQ(string->getUTF8Ptr(), "a");
}

TEST(CStringTest, WithoutASourceIsTheEmptyString) {
  const CStringRef string = makeShared<CString>();
  EXPECT_EQ(string->getLength(), 0);
  EXPECT_TRUE(string->isEmpty());
  EXPECT_STREQ(string->getUTF8Ptr(), "");
  EXPECT_NE(string->getStringRef(), nullptr);
  EXPECT_EQ(text(makeShared<CString>(nullptr)), "");
}

TEST(CStringTest, CountsLengthAndIndexesInUTF16) {
  const CStringRef string = CSTR(kMixed);
  EXPECT_EQ(string->getLength(), 5);
  EXPECT_EQ((*string)[0], 'a');
  EXPECT_EQ((*string)[1], 0x00E9);
  EXPECT_EQ((*string)[2], 0x20AC);
  EXPECT_EQ((*string)[3], 0xD83D);
  EXPECT_EQ((*string)[4], 0xDE00);
}

TEST(CStringTest, ACharacterOutsideTheStringIsZero) {
  const CStringRef string = CSTR("ab");
  EXPECT_EQ((*string)[2], 0);
  EXPECT_EQ((*string)[-1], 0);
  EXPECT_EQ((*string)[LONG_MAX], 0);
}

TEST(CStringTest, GivesItsCharactersAsUTF8) {
  const CStringRef string = CSTR(kMixed);
  EXPECT_STREQ(string->getUTF8Ptr(), kMixed);
  EXPECT_STREQ(string->getCharPtr(), kMixed);
  EXPECT_STREQ(string->typeName(), "CString");
}

TEST(CStringTest, ALoneSurrogateReadsAsAQuestionMarkInUTF8) {
  const UniChar characters[] = {'a', 0xD800, 'b'};
  const CSharedCFRef<CFStringRef> source(CFStringCreateWithCharacters(kCFAllocatorDefault, characters, 3));
  const CStringRef string = CSTR(source.get());
  EXPECT_EQ(string->getLength(), 3);
  EXPECT_STREQ(string->getUTF8Ptr(), "a?b");
  EXPECT_EQ(string->str(), "a?b");
  string->append("c");
  EXPECT_STREQ(string->getUTF8Ptr(), "a?bc");
}

TEST(CStringTest, ManyThreadsReadOneStringAtOnce) {
  const UniChar characters[] = {0xD800, 'x'};
  const CSharedCFRef<CFStringRef> source(CFStringCreateWithCharacters(kCFAllocatorDefault, characters, 2));
  const CStringRef odd = CSTR(source.get());
  const CStringRef grown = CSTR(kMixed);
  grown->append(kMixed);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([odd, grown] {
      for (int round = 0; round < 200; ++round) {
        EXPECT_STREQ(odd->getUTF8Ptr(), "?x");
        EXPECT_EQ(grown->getLength(), 10);
        EXPECT_EQ((*grown)[8], 0xD83D);
        EXPECT_EQ(grown->str().size(), 20u);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(CStringTest, FormatsAsPrintfDoes) {
  EXPECT_EQ(text(CString::sprintf("%s-%d %05.2f %lu %c%%", "caf\u00e9", -3, 2.5, 7ul, 'x')), "caf\u00e9--3 02.50 7 x%");
  EXPECT_EQ(text(CString::sprintf("%@.plist", CFSTR("com.example"))), "com.example.plist");
  EXPECT_EQ(text(CString::sprintf(CFSTR("%@-%u"), CFSTR("label"), 3u)), "label-3");
}

TEST(CStringTest, ANullOrUnreadableFormatGivesAnEmptyHolder) {
  EXPECT_TRUE(CString::sprintf(static_cast<const char*>(nullptr)).isNull());
  EXPECT_TRUE(CString::sprintf(static_cast<CFStringRef>(nullptr)).isNull());
  EXPECT_TRUE(CString::sprintf("\xFF").isNull());
}

TEST(CStringTest, FormatsIntegers) {
  EXPECT_EQ(text(CString::fromInt(0)), "0");
  EXPECT_EQ(text(CString::fromInt(-42)), "-42");
  EXPECT_EQ(text(CString::fromInt(LLONG_MAX)), "9223372036854775807");
  EXPECT_EQ(text(CString::fromInt(LLONG_MIN)), "-9223372036854775808");
}

TEST(CStringTest, AppendChangesTheStringForEveryHolder) {
  const CStringRef string = CSTR("a");
  const CStringRef second = string;
  string->append(CSTR("\u00e9"));
  string->append("c");
  EXPECT_EQ(text(second),
            "a\u00e9"
            "c");
  EXPECT_STREQ(second->getUTF8Ptr(),
               "a\u00e9"
               "c");
}

TEST(CStringTest, AppendingNothingChangesNothing) {
  const CStringRef string = CSTR("a");
  string->append(CStringRef());
  string->append(static_cast<const char*>(nullptr));
  string->append("\xFF");
  string->append("");
  EXPECT_EQ(text(string), "a");
}

TEST(CStringTest, AppendsItself) {
  const CStringRef string = CSTR("ab");
  string->append(string);
  string->append(string);
  EXPECT_EQ(text(string), "abababab");
}

TEST(CStringTest, WhoeverRetainedItsCoreFoundationStringKeepsItUnchanged) {
  const CStringRef string = CSTR("one");
  string->append(" two");
  const auto kept = CSharedCFRef<CFStringRef>::retaining(string->getStringRef());
  string->append(" three");
  EXPECT_EQ(text(CSTR(kept.get())), "one two");
  EXPECT_EQ(text(string), "one two three");
}

TEST(CStringTest, AppendingInALoopGivesTheWholeText) {
  const CStringRef string = makeShared<CString>();
  std::string expected;
  for (int i = 0; i < 20000; ++i) {
    string->append("0123456789");
    expected += "0123456789";
  }
  EXPECT_TRUE(string->str() == expected);
}

TEST(CStringTest, TestsItsBeginning) {
  const CStringRef string = CSTR("File:///\u00c9tage");
  EXPECT_TRUE(string->beginsWith(CSTR("File:")));
  EXPECT_FALSE(string->beginsWith(CSTR("file:")));
  EXPECT_TRUE(string->beginsWith(CSTR("fILE:"), true));
  EXPECT_FALSE(string->beginsWith(CSTR("ile"), true));
  EXPECT_TRUE(string->beginsWith(CSTR("FILE:///\u00e9TAGE"), true));
  EXPECT_FALSE(string->beginsWith(CSTR("File:///\u00c9tage and more")));
}

TEST(CStringTest, TestsItsEnd) {
  const CStringRef string = CSTR("/tmp/a.PLIST");
  EXPECT_TRUE(string->endsWith(CSTR(".PLIST")));
  EXPECT_FALSE(string->endsWith(CSTR(".plist")));
  EXPECT_TRUE(string->endsWith(CSTR(".plist"), true));
  EXPECT_FALSE(string->endsWith(CSTR("PLIS"), true));
  EXPECT_FALSE(CSTR("list")->endsWith(CSTR("plist"), true));
}

TEST(CStringTest, FindsTheFirstOccurrence) {
  const CStringRef string = CSTR("\U0001F600 abcABC abc");
  CFIndex index = -7;
  EXPECT_TRUE(string->find(CSTR("abc"), 0, index));
  EXPECT_EQ(index, 3);
  EXPECT_TRUE(string->find(CSTR("abc"), 4, index));
  EXPECT_EQ(index, 10);
  EXPECT_TRUE(string->find(CSTR("ABC"), 4, index, true));
  EXPECT_EQ(index, 6);
  EXPECT_TRUE(string->find(CSTR("\U0001F600"), -5, index));
  EXPECT_EQ(index, 0);
}

TEST(CStringTest, AFailedFindLeavesTheIndexAlone) {
  const CStringRef string = CSTR("abc");
  CFIndex index = -7;
  EXPECT_FALSE(string->find(CSTR("d"), 0, index));
  EXPECT_FALSE(string->find(CSTR("a"), 1, index));
  EXPECT_FALSE(string->find(CSTR("a"), 4, index));
  EXPECT_FALSE(string->find(CSTR("a"), LONG_MAX, index));
  EXPECT_EQ(index, -7);
}

TEST(CStringTest, EveryStringBeginsWithEndsInAndHoldsTheEmptyString) {
  for (const CStringRef& string : {CSTR("abc"), CSTR("")}) {
    for (const bool ignoreCase : {false, true}) {
      EXPECT_TRUE(string->beginsWith(CSTR(""), ignoreCase));
      EXPECT_TRUE(string->endsWith(CSTR(""), ignoreCase));
      CFIndex index = -7;
      EXPECT_TRUE(string->find(CSTR(""), 0, index, ignoreCase));
      EXPECT_EQ(index, 0);
    }
  }
  CFIndex index = -7;
  EXPECT_TRUE(CSTR("abc")->find(CSTR(""), 3, index));
  EXPECT_EQ(index, 3);
}

TEST(CStringTest, AnEmptyHolderIsNeverFound) {
  CFIndex index = -7;
  EXPECT_FALSE(CSTR("abc")->beginsWith(nullptr));
  EXPECT_FALSE(CSTR("abc")->endsWith(nullptr, true));
  EXPECT_FALSE(CSTR("abc")->find(nullptr, 0, index));
  EXPECT_EQ(index, -7);
}

TEST(CStringTest, ComparesByContent) {
  EXPECT_TRUE(*CSTR(kMixed) == *CSTR(kMixed));
  EXPECT_TRUE(*CSTR("a") != *CSTR("b"));
  EXPECT_TRUE(CSTR(kMixed) == CSTR(kMixed));
  EXPECT_FALSE(CSTR("a") == CSTR("A"));
  EXPECT_TRUE(CSTR("a") != CSTR("aa"));
}

TEST(CStringTest, AnEmptyHolderEqualsOnlyAnEmptyHolder) {
  EXPECT_TRUE(CStringRef() == CStringRef());
  EXPECT_FALSE(CStringRef() == CSTR(""));
  EXPECT_TRUE(CSTR("") != CStringRef());
  EXPECT_TRUE(CStringRef() == nullptr);
  EXPECT_FALSE(CSTR("") == nullptr);
}

TEST(CStringTest, ConvertsBetweenEmptyHoldersAndEmptyStrings) {
  EXPECT_EQ(text(CString::nullToEmptyString(nullptr)), "");
  EXPECT_EQ(text(CString::nullToEmptyString(CSTR("a"))), "a");
  EXPECT_TRUE(CString::emptyToNullString(CSTR("")).isNull());
  EXPECT_TRUE(CString::emptyToNullString(nullptr).isNull());
  EXPECT_EQ(text(CString::emptyToNullString(CSTR("a"))), "a");
}

std::string escaped(const std::string& name) { return text(CSTR(name)->shellEscapedFilename()); }

TEST(ShellEscapedFilenameTest, PutsABackslashBeforeWhatAShellInterprets) {
  EXPECT_EQ(escaped("/srv/my folder"), "/srv/my\\ folder");
  EXPECT_EQ(escaped("a$(id)`x`"), "a\\$\\(id\\)\\`x\\`");
  EXPECT_EQ(escaped("'\"\\"), "\\'\\\"\\\\");
  EXPECT_EQ(escaped("~/x*?[y]{z}"), "\\~/x\\*\\?\\[y\\]\\{z\\}");
  EXPECT_EQ(escaped("a\tb#c!d^e;f&g|h<i>j"), "a\\\tb\\#c\\!d\\^e\\;f\\&g\\|h\\<i\\>j");
}

TEST(ShellEscapedFilenameTest, LeavesOrdinaryNamesAlone) {
  for (const std::string name :
       {"/usr/lib/a_b-c.d", "x:y@z%1+2,3=4", "-leading-dash", "\u00e9t\u00e9/\u20ac", "AZaz09"}) {
    EXPECT_EQ(escaped(name), name);
  }
}

TEST(ShellEscapedFilenameTest, QuotesALineFeedAndTheEmptyString) {
  EXPECT_EQ(escaped("a\nb"), "a'\n'b");
  EXPECT_EQ(escaped(""), "''");
}

TEST(ShellEscapedFilenameTest, RefusesANULCharacter) {
  EXPECT_EQ(test::messageOf<CParamException>([] { escaped(std::string("a\0b", 3)); }),
            "CString::shellEscapedFilename: \"a\" holds a NUL character");
}

// What a real shell makes of the word, between brackets so that trailing line feeds are seen.
std::string readBackByShell(const std::string& word) {
  const std::string script = test::scratchFolder("shell") + "/script";
  test::writeFile(script, "printf '[%s]' " + word + "\n");
  std::FILE* const pipe = ::popen(("/bin/sh " + script + " 2>&1").c_str(), "r");
  std::string output;
  for (int byte; (byte = std::fgetc(pipe)) != EOF;) output += static_cast<char>(byte);
  ::pclose(pipe);
  return output;
}

TEST(ShellEscapedFilenameTest, AShellReadsBackEveryCharacter) {
  std::string all;
  for (int byte = 1; byte < 0x80; ++byte) all += static_cast<char>(byte);
  // Every byte that UTF-8 can hold: all continuation bytes, all first bytes of two, three and four.
  for (unsigned point = 0x80; point < 0x800; ++point) {
    all += static_cast<char>(0xC0 | (point >> 6));
    all += static_cast<char>(0x80 | (point & 0x3F));
  }
  for (unsigned first = 0xE1; first <= 0xEC; ++first) all += std::string{static_cast<char>(first), '\x80', '\x81'};
  for (unsigned first = 0xF1; first <= 0xF3; ++first) {
    all += std::string{static_cast<char>(first), '\x80', '\x80', '\x81'};
  }
  EXPECT_TRUE(readBackByShell(escaped(all)) == "[" + all + "]") << readBackByShell(escaped(all));
}

TEST(ShellEscapedFilenameTest, AShellReadsBackEachCharacterInEachPlace) {
  // One word per line of a here-document would hide line feeds, so each name is an argument of one printf.
  std::string words;
  std::string expected;
  for (int byte = 1; byte < 0x80; ++byte) {
    const std::string character(1, static_cast<char>(byte));
    for (const std::string& name : {character, character + "x", "x" + character, character + character}) {
      words += escaped(name) + " ";
      expected += "[" + name + "]";
    }
  }
  for (const std::string name : {"", "-n", "--", "\n\n", "$HOME", "a b", "*", "caf\u00e9"}) {
    words += escaped(name) + " ";
    expected += "[" + name + "]";
  }
  EXPECT_EQ(readBackByShell(words), expected);
}

}  // namespace
