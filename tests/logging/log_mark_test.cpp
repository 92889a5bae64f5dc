// Marks: the elements themselves, writing them, and scopes.
#include <plinth/xml_service.h>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/log_support.h"
#include "tests/logging/xml_judge.h"

namespace {

using namespace test;
using plinth::CXMLService;
using plinth::CXMLServiceRef;
using CMark = CTovanLogger::CMark;
using CScopeMarker = CTovanLogger::CScopeMarker;

class LogMarkTest : public ::testing::Test {
 protected:
  static std::string element(const CMark& mark) { return text(mark.copyToCString()); }
  static std::string expected(const std::string& attributes) {
    return "<mrk " + kTimes + " pid=\"" + pid() + "\"" + attributes + "/>";
  }
  static CMark parsed(const std::string& xml) { return CMark(plinth::makeShared<CXMLService>(CSTR(xml))); }

  FixedClock clock_{kMoment, kQuarter};
  MemoryLog log_;
};

// The constructor takes the message before the request's id; the element has it behind.
TEST_F(LogMarkTest, AMarkHasItsAttributesInOrder) {
  EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindBegin, CSTR("what"), CSTR("message"), CSTR("request"))),
            expected(R"( kind="begin" what="what" req-id="request" msg="message")"));
  EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindEnd, CSTR("what"), CSTR("message"), CSTR("request"))),
            expected(R"( kind="end" what="what" req-id="request" msg="message")"));
  EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindMark, CSTR("what"), CSTR("message"), CSTR("request"))),
            expected(R"( what="what" req-id="request" msg="message")"));
  EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindUnknown, CSTR("what"), nullptr, nullptr)),
            expected(R"( what="what")"));
}

TEST_F(LogMarkTest, EmptyTextsAreLeftOut) {
  const plinth::CStringRef empty = plinth::makeShared<plinth::CString>();
  for (const plinth::CStringRef& none : {plinth::CStringRef(), empty}) {
    EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindMark, none, none, none)), expected(""));
    EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindBegin, none, none, none)), expected(R"( kind="begin")"));
    EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindEnd, none, none, none)), expected(R"( kind="end")"));
    EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindMark, none, CSTR("m"), none)), expected(R"( msg="m")"));
    EXPECT_EQ(element(CMark(CTovanLogger::kMarkKindMark, none, none, CSTR("r"))), expected(R"( req-id="r")"));
  }
}

TEST_F(LogMarkTest, AMarkReadsBack) {
  const CMark mark(CTovanLogger::kMarkKindEnd, CSTR("what"), CSTR("message"), CSTR("request"));
  EXPECT_EQ(mark.markKind(), CTovanLogger::kMarkKindEnd);
  EXPECT_EQ(text(mark.what()), "what");
  EXPECT_EQ(text(mark.message()), "message");
  EXPECT_EQ(text(mark.requestID()), "request");
  const CMark copy = parsed(element(mark));
  EXPECT_EQ(copy.markKind(), CTovanLogger::kMarkKindEnd);
  EXPECT_EQ(text(copy.what()) + text(copy.message()) + text(copy.requestID()), "whatmessagerequest");
}

TEST_F(LogMarkTest, TheKindOfAnElementIsThatOfItsAttribute) {
  EXPECT_EQ(parsed("<mrk/>").markKind(), CTovanLogger::kMarkKindMark);
  EXPECT_EQ(parsed("<mrk kind=\"begin\"/>").markKind(), CTovanLogger::kMarkKindBegin);
  EXPECT_EQ(parsed("<mrk kind=\"end\"/>").markKind(), CTovanLogger::kMarkKindEnd);
  for (const char* const other : {"", "Begin", "END", "mark", "ends", " begin"}) {
    EXPECT_EQ(parsed("<mrk kind=\"" + std::string(other) + "\"/>").markKind(), CTovanLogger::kMarkKindUnknown) << other;
  }
}

TEST_F(LogMarkTest, TheKindsHaveTheirNumbers) {
  EXPECT_EQ(CTovanLogger::kMarkKindUnknown, 0);
  EXPECT_EQ(CTovanLogger::kMarkKindMark, 1);
  EXPECT_EQ(CTovanLogger::kMarkKindBegin, 2);
  EXPECT_EQ(CTovanLogger::kMarkKindEnd, 3);
  EXPECT_EQ(CTovanLogger::kStreamKindNull, 0);
  EXPECT_EQ(CTovanLogger::kStreamKindConsole, 1);
  EXPECT_EQ(CTovanLogger::kStreamKindFile, 2);
}

TEST_F(LogMarkTest, OnlyAnElementOfThatNameIsAMark) {
  EXPECT_TRUE(CTovanLogger::isMark(CXMLService(CSTR("<mrk/>"))));
  EXPECT_TRUE(CTovanLogger::isMark(CMark(CTovanLogger::kMarkKindBegin, nullptr, nullptr, nullptr)));
  for (const char* const other : {"<log/>", "<MRK/>", "<mrks/>", "<a><mrk/></a>"}) {
    EXPECT_FALSE(CTovanLogger::isMark(CXMLService(CSTR(other)))) << other;
  }
}

TEST_F(LogMarkTest, AnElementIsALineOfItsOwn) {
  log_.log() << CMark(CTovanLogger::kMarkKindBegin, CSTR("a"), nullptr, nullptr);
  EXPECT_EQ(log_.taken(), expected(R"( kind="begin" what="a")") + "\n");
  log_.log() << plinth::makeShared<CXMLService>(CSTR("<?xml version=\"1.0\"?><other a=\"1\">text</other>"));
  EXPECT_EQ(log_.taken(), "<other a=\"1\">text</other>\n");
}

TEST_F(LogMarkTest, AnEmptyHolderWritesNothing) {
  log_.log() << CXMLServiceRef();
  EXPECT_EQ(log_.taken(), "");
}

TEST_F(LogMarkTest, AMarkCompletesAPendingMessageFirst) {
  log_.log(1) << "pending";
  clock_.set(kMoment + 60);
  log_.log(2) << CMark(CTovanLogger::kMarkKindMark, CSTR("a"), nullptr, nullptr);
  const std::string later = R"(tms="352821969.000" tmt="03/07/2012 14:06:09.000")";
  EXPECT_EQ(log_.taken(), record("pending", "1") + "<mrk " + later + " pid=\"" + pid() + "\" what=\"a\"/>\n");
  log_.log() << "next\n";
  EXPECT_EQ(log_.taken(), record("next", "", later)) << "nothing of the first message is left";
}

TEST_F(LogMarkTest, WhatIsNoPlainTextIsEscapedAsXMLHasIt) {
  const std::string odd = "a < b & \"c\" 'd' >\n\t%3C \u00fc";
  log_.log() << CMark(CTovanLogger::kMarkKindMark, CSTR(odd), CSTR(odd), CSTR(odd));
  const std::string line = log_.taken();
  EXPECT_EQ(line.find('\n'), line.size() - 1) << "one line";
  const XMLDocument document = judged(line);
  ASSERT_EQ(document.error, "");
  EXPECT_EQ(document.elements[0].order(), "tms tmt pid what req-id msg");
  for (const char* const attribute : {"what", "req-id", "msg"}) EXPECT_EQ(document.elements[0][attribute], odd);
}

TEST_F(LogMarkTest, AScopeIsMarkedAtBothEnds) {
  {
    const CScopeMarker scope(CSTR("work"), log_.log(), CSTR("three files"));
    EXPECT_EQ(log_.taken(), expected(R"( kind="begin" what="work" msg="three files")") + "\n");
    log_.log() << "within\n";
    clock_.set(kMoment + 60);
  }
  EXPECT_EQ(log_.taken(), record("within") + R"(<mrk tms="352821969.000" tmt="03/07/2012 14:06:09.000" pid=")" + pid() +
                              "\" kind=\"end\" what=\"work\"/>\n");
}

TEST_F(LogMarkTest, ScopesNest) {
  {
    const CScopeMarker outer(CSTR("outer"), log_.log(), nullptr);
    const CScopeMarker inner(CSTR("inner"), log_.log(), nullptr);
  }
  EXPECT_EQ(plain(log_.taken()),
            "<mrk kind=\"begin\" what=\"outer\"/>\n<mrk kind=\"begin\" what=\"inner\"/>\n"
            "<mrk kind=\"end\" what=\"inner\"/>\n<mrk kind=\"end\" what=\"outer\"/>\n");
}

TEST_F(LogMarkTest, AScopeOnAFilteredStreamWritesNothing) {
  { const CScopeMarker scope(CSTR("work"), log_.log(4), CSTR("m")); }
  EXPECT_EQ(log_.taken(), "");
}

TEST_F(LogMarkTest, TheEndOfAScopeCompletesWhatIsPending) {
  {
    const CScopeMarker scope(CSTR("work"), log_.log(), nullptr);
    log_.taken();
    log_.log() << "pending";
  }
  EXPECT_EQ(log_.taken(), record("pending") + expected(R"( kind="end" what="work")") + "\n");
}

}  // namespace
