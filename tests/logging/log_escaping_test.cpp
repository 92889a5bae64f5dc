// What becomes of a message's text between the quotes of its attribute.
#include "tests/logging/fixed_clock.h"
#include "tests/logging/log_support.h"
#include "tests/logging/message_maker.h"
#include "tests/logging/xml_judge.h"

namespace {

using namespace test;

std::string escaped(const std::string& message) { return CTovanLogger::escapedString(std::string_view(message)); }
bool parses(const std::string& message) { return judged("<log msg=\"" + message + "\"/>").error.empty(); }

// Percent escapes as the format has them.
std::string percentEscaped(const std::string& message) {
  const std::string stays =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 !#$%'()*+,-./?@[]\\^_{}|~`:;=";
  std::string result;
  for (const char character : message) {
    if (character != '\0' && stays.find(character) != std::string::npos) {
      result += character;
    } else {
      char code[4];
      std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(character)));
      result += code;
    }
  }
  return result;
}

// Whether the bytes are well-formed UTF-8, by the table of the Unicode standard.
bool isUTF8(const std::string& text) {
  const auto in = [&](std::size_t at, int low, int high) {
    return at < text.size() && static_cast<unsigned char>(text[at]) >= low &&
           static_cast<unsigned char>(text[at]) <= high;
  };
  for (std::size_t i = 0; i < text.size();) {
    if (in(i, 0x00, 0x7F)) {
      i += 1;
    } else if (in(i, 0xC2, 0xDF) && in(i + 1, 0x80, 0xBF)) {
      i += 2;
    } else if ((in(i, 0xE0, 0xE0) && in(i + 1, 0xA0, 0xBF) && in(i + 2, 0x80, 0xBF)) ||
               (in(i, 0xED, 0xED) && in(i + 1, 0x80, 0x9F) && in(i + 2, 0x80, 0xBF)) ||
               (in(i, 0xE1, 0xEF) && !in(i, 0xED, 0xED) && in(i + 1, 0x80, 0xBF) && in(i + 2, 0x80, 0xBF))) {
      i += 3;
    } else if ((in(i, 0xF0, 0xF0) && in(i + 1, 0x90, 0xBF) && in(i + 2, 0x80, 0xBF) && in(i + 3, 0x80, 0xBF)) ||
               (in(i, 0xF1, 0xF3) && in(i + 1, 0x80, 0xBF) && in(i + 2, 0x80, 0xBF) && in(i + 3, 0x80, 0xBF)) ||
               (in(i, 0xF4, 0xF4) && in(i + 1, 0x80, 0x8F) && in(i + 2, 0x80, 0xBF) && in(i + 3, 0x80, 0xBF))) {
      i += 4;
    } else {
      return false;
    }
  }
  return true;
}

TEST(LogEscapingTest, TextThatIsValidInAnAttributeIsNeverChanged) {
  for (const std::string text : {"", "a", "it's 'quoted'", "100 % done", "%3C", "a > b", "]]>", "&amp;",
                                 "&lt;&gt;&quot;&apos;", "&#65;&#x41;", "line\nbreak\ttab\rreturn",
                                 "gr\u00fcn \u65e5\u672c \U0001F600", "\u0085\u2028\uFFFD\uFEFF", "\x7F", "a=b;c:d"}) {
    ASSERT_TRUE(parses(text)) << text;
    EXPECT_EQ(escaped(text), text);
  }
}

TEST(LogEscapingTest, OtherTextIsPercentEscaped) {
  EXPECT_EQ(escaped("a < b"), "a %3C b");
  EXPECT_EQ(escaped("a & b"), "a %26 b");
  EXPECT_EQ(escaped("say \"hi\""), "say %22hi%22");
  EXPECT_EQ(escaped("<a>"), "%3Ca%3E");
  EXPECT_EQ(escaped("&nbsp;"), "%26nbsp;");
  EXPECT_EQ(escaped("&#0;"), "%26#0;");
  EXPECT_EQ(escaped("&amp"), "%26amp");
  EXPECT_EQ(escaped("&amp; <"), "%26amp; %3C") << "all of the message, references too";
  EXPECT_EQ(escaped("gr\u00fcn < 5"), "gr%C3%BCn %3C 5");
  EXPECT_EQ(escaped("\u65e5\U0001F600<"), "%E6%97%A5%F0%9F%98%80%3C");
  EXPECT_EQ(escaped("a\nb\tc\r<"), "a%0Ab%09c%0D%3C");
  EXPECT_EQ(escaped("100 %3C <"), "100 %3C %3C") << "a percent sign stays";
}

TEST(LogEscapingTest, CharactersThatXMLForbidsArePercentEscaped) {
  EXPECT_EQ(escaped("\x01"), "%01");
  EXPECT_EQ(escaped("\x1B[31mred\x1B[0m"), "%1B[31mred%1B[0m");
  EXPECT_EQ(escaped(std::string("a\0b", 3)), "a%00b");
  EXPECT_EQ(escaped("\uFFFE"), "%EF%BF%BE");
  EXPECT_EQ(escaped("\uFFFF"), "%EF%BF%BF");
}

// Every character below 128 behind one that forces the escape.
TEST(LogEscapingTest, ExactlyTheStatedCharactersAreLeftAlone) {
  for (int byte = 0; byte < 128; ++byte) {
    const std::string message = std::string("<") + static_cast<char>(byte);
    EXPECT_EQ(escaped(message), percentEscaped(message)) << byte;
  }
  const std::string kept = " !#$%'()*+,-./?@[]\\^_{}|~`";
  ASSERT_EQ(kept.size(), 26u);
  EXPECT_EQ(escaped("<" + kept), "%3C" + kept) << "one backslash, not two";
}

TEST(LogEscapingTest, EveryByteAloneIsAsTheParserDecides) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string message(1, static_cast<char>(byte));
    if (byte >= 128) {
      EXPECT_TRUE(parses(escaped(message))) << byte;
    } else {
      EXPECT_EQ(escaped(message), parses(message) ? message : percentEscaped(message)) << byte;
    }
  }
}

// The text is judged between the quotes of an element, and an element is what comes out: deliberate.
TEST(LogEscapingTest, TextThatMakesTheElementLongerParsesAndStays) {
  EXPECT_EQ(escaped("a\" b=\"c"), "a\" b=\"c");
  EXPECT_EQ(escaped("a\" msg=\"c"), "a%22 msg=%22c") << "an attribute twice is no XML";
  EXPECT_EQ(escaped("\"/><log msg=\""), "%22/%3E%3Clog msg=%22");
  EXPECT_EQ(escaped("\"></log><log msg=\""), "%22%3E%3C/log%3E%3Clog msg=%22");
}

TEST(LogEscapingTest, BytesThatAreNoUTF8AreMadeSafe) {
  const std::string replacement = "\uFFFD";
  for (const std::string bytes : {"\xFF", "\xC3", "\xE2\x82", "\xED\xA0\x80", "\xC0\xAF", "\xF4\x90\x80\x80", "\x80"}) {
    const std::string result = escaped("a < \"b\" & 'c' > " + bytes + " d");
    const XMLDocument document = judged("<log msg=\"" + result + "\"/>");
    ASSERT_EQ(document.error, "") << result;
    const std::string message = document.elements.at(0)["msg"];
    EXPECT_EQ(message.rfind("a < \"b\" & 'c' > " + replacement, 0), 0u) << message;
    EXPECT_EQ(message.substr(message.size() - 2), " d") << message;
  }
}

TEST(LogEscapingTest, TheFallbackKeepsWhatIsSafe) {
  EXPECT_EQ(escaped("<>&\"' \xFF"), "&lt;&gt;&amp;&quot;' \uFFFD");
  EXPECT_EQ(escaped("\t\n\x01\xFF"), "&#9;&#10;\uFFFD\uFFFD");
  EXPECT_EQ(escaped(std::string("\0\xFF", 2)), "\uFFFD\uFFFD");
  EXPECT_EQ(escaped("gr\u00fcn\xFF"), "gr\u00fcn\uFFFD");
}

TEST(LogEscapingTest, StringsAreEscapedAsTheirBytesAre) {
  EXPECT_EQ(text(CTovanLogger::escapedString(CSTR("a < b"))), "a %3C b");
  EXPECT_EQ(text(CTovanLogger::escapedString(CSTR("a"))), "a");
  EXPECT_EQ(text(CTovanLogger::escapedString(plinth::makeShared<plinth::CString>())), "");
  EXPECT_TRUE(CTovanLogger::escapedString(plinth::CStringRef()).isNull());
}

TEST(LogEscapingTest, ALoneSurrogateIsMadeSafe) {
  const UniChar units[] = {'a', 0xD800, '<'};
  const plinth::CSharedCFRef<CFStringRef> lone(CFStringCreateWithCharacters(nullptr, units, 3));
  const plinth::CStringRef string = CSTR(lone.get());
  ASSERT_FALSE(string.isNull());
  EXPECT_TRUE(parses(text(CTovanLogger::escapedString(string))));
  MemoryLog log;
  log.log() << string << "\n";
  EXPECT_EQ(judged(log.taken()).error, "");
}

TEST(LogEscapingTest, TheMessageOfARecordIsEscaped) {
  const FixedClock clock(kMoment, kQuarter);
  MemoryLog log;
  log.log() << "a <"
            << " b\n";
  EXPECT_EQ(log.taken(), record("a %3C b"));
  log.log() << "it's\n";
  EXPECT_EQ(log.taken(), record("it's"));
  log.log() << "\xFF\n";
  EXPECT_EQ(log.taken(), record("\uFFFD"));
}

// A character may arrive in two pieces.
TEST(LogEscapingTest, TheMessageIsEscapedAsAWhole) {
  const FixedClock clock(kMoment, kQuarter);
  MemoryLog log;
  log.log() << "gr\xC3"
            << "\xBCn\n";
  EXPECT_EQ(log.taken(), record("gr\u00fcn"));
  log.log() << "&"
            << "amp;\n";
  EXPECT_EQ(log.taken(), record("&amp;"));
}

TEST(LogEscapingTest, TheDecisionIsTheParsersOnAnyBytes) {
  MessageMaker maker(7);
  int kept = 0, changed = 0, fallback = 0;
  for (int i = 0; i < 200000; ++i) {
    const std::string message = maker.make();
    const std::string result = escaped(message);
    if (parses(message)) {
      ASSERT_EQ(result, message);
      ++kept;
    } else if (isUTF8(message)) {
      ASSERT_EQ(result, percentEscaped(message));
      ++changed;
    } else {
      ++fallback;
    }
    ASSERT_TRUE(parses(result)) << result;
  }
  EXPECT_GT(kept, 10000);
  EXPECT_GT(changed, 10000);
  EXPECT_GT(fallback, 10000);
}

TEST(LogEscapingTest, LongMessagesAreDecidedTheSameWay) {
  for (const std::size_t length : {100u, 4096u, 8191u, 65536u, 1000000u}) {
    for (const std::string end : {"", "<", "\x01", "\u00e9", "\xC3", "&amp;", "&amp"}) {
      const std::string message = std::string(length, 'x') + end;
      const std::string result = escaped(message);
      EXPECT_TRUE(parses(result)) << length << " and " << end;
      if (parses(message)) {
        EXPECT_TRUE(result == message) << length << " and " << end;
      } else if (isUTF8(message)) {
        EXPECT_TRUE(result == percentEscaped(message)) << length << " and " << end;
      }
    }
  }
}

}  // namespace
