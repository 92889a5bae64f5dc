// The reader of process logs: whole files, damaged ones, and bytes as they come.
#include "tools/tovanctl/log_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tovanctl::LogDamage;
using tovanctl::LogReader;
using tovanctl::LogRecord;
using tovanctl::LogRecordKind;

const std::string kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
    "<logs tms=\"352821909.250\" tmt=\"03/07/2012 14:05:09.250\" pnm=\"transcoder\">\n";
const std::string kBegin =
    "<mrk tms=\"352821909.250\" tmt=\"03/07/2012 14:05:09.250\" pid=\"4711\" kind=\"begin\" what=\"log-session\"/>\n";
const std::string kEnd =
    "<mrk tms=\"352821912.000\" tmt=\"03/07/2012 14:05:12.000\" pid=\"4711\" kind=\"end\" what=\"log-session\"/>\n";

std::string messageLine(const std::string& text) {
  return "<log tms=\"352821909.300\" tmt=\"03/07/2012 14:05:09.300\" pid=\"4711\" msg=\"" + text + "\"/>\n";
}

class LogReaderTest : public testing::Test {
 protected:
  // All at once; in pieces; and byte by byte: the outcome is the same.
  void read(const std::string& file) {
    for (const std::size_t piece : {file.size() + 1, std::size_t{7}, std::size_t{1}}) {
      records.clear();
      damages.clear();
      LogReader reader([this](const LogRecord& record) { records.push_back(record); },
                       [this](const LogDamage& damage) { damages.push_back(damage); });
      for (std::size_t at = 0; at < file.size(); at += piece) reader.feed(std::string_view(file).substr(at, piece));
      reader.finish();
      if (piece > file.size()) {
        outcome_ = outcome();
      } else {
        EXPECT_EQ(outcome(), outcome_) << "in pieces of " << piece;
      }
    }
  }
  std::vector<std::string> messages() const {
    std::vector<std::string> texts;
    for (const LogRecord& record : records) {
      texts.push_back(record.kind == LogRecordKind::mark ? record.markKind + " " + record.what : record.message);
    }
    return texts;
  }
  // "LINE OFFSET LENGTH REASON".
  std::vector<std::string> places() const {
    std::vector<std::string> texts;
    for (const LogDamage& damage : damages) {
      texts.push_back(std::to_string(damage.line) + " " + std::to_string(damage.offset) + " " +
                      std::to_string(damage.length) + " " + damage.reason);
    }
    return texts;
  }
  std::string place(std::uint64_t line, std::size_t offset, std::size_t length, const std::string& reason) const {
    return std::to_string(line) + " " + std::to_string(offset) + " " + std::to_string(length) + " " + reason;
  }

  std::vector<LogRecord> records;
  std::vector<LogDamage> damages;

 private:
  std::string outcome() const { return testing::PrintToString(messages()) + testing::PrintToString(places()); }
  std::string outcome_;
};

TEST_F(LogReaderTest, AFileThatWasNeverClosedIsReadWhole) {
  read(kHeader + kBegin + messageLine("one") + messageLine("two"));
  EXPECT_THAT(messages(), ElementsAre("begin log-session", "one", "two"));
  EXPECT_THAT(damages, IsEmpty());
}

TEST_F(LogReaderTest, AReplyWithTheEndTagIsReadWhole) {
  read(kHeader + kBegin + messageLine("one") + kEnd + "</logs>\n");
  EXPECT_THAT(messages(), ElementsAre("begin log-session", "one", "end log-session"));
  EXPECT_THAT(damages, IsEmpty());
}

TEST_F(LogReaderTest, AnEmptyFileHoldsNothing) {
  read("");
  EXPECT_THAT(records, IsEmpty());
  EXPECT_THAT(damages, IsEmpty());
}

TEST_F(LogReaderTest, EveryAttributeArrives) {
  read(
      "<log tms=\"352821909.251\" tmt=\"03/07/2012 14:05:09.251\" pid=\"17\" lvl=\"5\" msg=\"text\"/>\n"
      "<mrk tms=\"-5.5\" tmt=\"x\" pid=\"4294967295\" kind=\"end\" what=\"job\" req-id=\"r7\" msg=\"done\"/>\n"
      "<mrk tms=\"1.000\" tmt=\"x\" pid=\"1\"/>\n");
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(records[0].kind, LogRecordKind::message);
  EXPECT_DOUBLE_EQ(*records[0].time, 352821909.251);
  EXPECT_EQ(records[0].pid, 17U);
  EXPECT_EQ(records[0].level, 5U);
  EXPECT_EQ(records[0].message, "text");
  EXPECT_EQ(records[1].kind, LogRecordKind::mark);
  EXPECT_DOUBLE_EQ(*records[1].time, -5.5);
  EXPECT_EQ(records[1].pid, 4294967295U);
  EXPECT_EQ(records[1].markKind, "end");
  EXPECT_EQ(records[1].what, "job");
  EXPECT_EQ(records[1].requestID, "r7");
  EXPECT_EQ(records[1].message, "done");
  EXPECT_EQ(records[2].markKind, "");
  EXPECT_EQ(records[2].level, 3U);
}

TEST_F(LogReaderTest, SeveralSessionsAndHeadersFollowOneAnother) {
  read(kHeader + kBegin + messageLine("one") + kBegin + messageLine("two") + kHeader + messageLine("three"));
  EXPECT_THAT(messages(), ElementsAre("begin log-session", "one", "begin log-session", "two", "three"));
  EXPECT_THAT(damages, IsEmpty());
}

TEST_F(LogReaderTest, ATornLastLineIsToldAndTheRestIsRead) {
  const std::string whole = kHeader + kBegin + messageLine("one");
  const std::string torn = messageLine("two");
  for (std::size_t length = 1; length < torn.size() - 1; ++length) {
    read(whole + torn.substr(0, length));
    EXPECT_THAT(messages(), ElementsAre("begin log-session", "one")) << length;
    ASSERT_EQ(damages.size(), 1U) << length;
    EXPECT_EQ(damages[0].line, 5U);
    EXPECT_EQ(damages[0].offset, whole.size());
    EXPECT_EQ(damages[0].length, length);
  }
  read(whole + torn.substr(0, torn.size() - 1));
  EXPECT_THAT(messages(), ElementsAre("begin log-session", "one", "two")) << "only the line break is missing";
}

TEST_F(LogReaderTest, ASessionThatBeginsOnATornLineIsRead) {
  const std::string torn = messageLine("killed in the middle").substr(0, 90);
  read(kHeader + torn + kBegin + messageLine("after"));
  EXPECT_THAT(messages(), ElementsAre("begin log-session", "after"));
  EXPECT_THAT(places(), ElementsAre(place(3, kHeader.size(), 90, "a record that is cut off")));
}

TEST_F(LogReaderTest, ADamagedLineInTheMiddleIsToldWithItsPlace) {
  const std::string before = kHeader + kBegin + messageLine("one");
  const std::string damagedLine = "<log tms=\"1.000\" tmt=\"x\" pid=\"1\" msg=unquoted/>";
  read(before + damagedLine + "\n" + messageLine("two"));
  EXPECT_THAT(messages(), ElementsAre("begin log-session", "one", "two"));
  EXPECT_THAT(places(), ElementsAre(place(5, before.size(), damagedLine.size(), "not well-formed (invalid token)")));
}

TEST_F(LogReaderTest, WhatIsMissingOrWrongInARecordIsNamed) {
  const struct {
    std::string line;
    std::string reason;
  } cases[] = {
      {"<log tmt=\"x\" pid=\"1\" msg=\"a\"/>", "it has no tms"},
      {"<log tms=\"1.000\" msg=\"a\"/>", "it has no pid"},
      {"<log tms=\"soon\" pid=\"1\" msg=\"a\"/>", "its tms is no moment"},
      {"<log tms=\"1e300\" pid=\"1\" msg=\"a\"/>", "its tms is no moment"},
      {"<log tms=\"nan\" pid=\"1\" msg=\"a\"/>", "its tms is no moment"},
      {"<log tms=\"1.000\" pid=\"-1\" msg=\"a\"/>", "its pid is no number"},
      {"<log tms=\"1.000\" pid=\"4294967296\" msg=\"a\"/>", "its pid is no number"},
      {"<log tms=\"1.000\" pid=\"1\" lvl=\"high\" msg=\"a\"/>", "its lvl is no number"},
      {"<log tms=\"1.000\" pid=\"1\" lvl=\"1\" msg=\"a\" lvl=\"2\"/>", "duplicate attribute"},
      {"<log tms=\"1.000\" pid=\"1\" msg=\"a\">", "it is not closed"},
      {"<log tms=\"1.000\" pid=\"1\" msg=\"\xFF\"/>", "not well-formed (invalid token)"},
      {"<log tms=\"1.000\" pid=\"1\" msg=\"&unknown;\"/>", "undefined entity"},
      {"<!-- a comment -->", "it is neither a message nor a mark"},
      {"<!DOCTYPE log [<!ENTITY a \"b\">]>", "it is neither a message nor a mark"},
      {"text", "text outside of a record"},
  };
  for (const auto& one : cases) {
    read(messageLine("before") + one.line + "\n" + messageLine("after"));
    EXPECT_THAT(messages(), ElementsAre("before", "after")) << one.line;
    ASSERT_FALSE(damages.empty()) << one.line;
    EXPECT_EQ(damages[0].reason, one.reason) << one.line;
    EXPECT_EQ(damages[0].line, 2U) << one.line;
  }
}

TEST_F(LogReaderTest, LineBreaksAndTabsInAMessageStay) {
  read(kHeader + messageLine("first\n\tsecond/>\n\n'third' ") + messageLine("after"));
  EXPECT_THAT(messages(), ElementsAre("first\n\tsecond/>\n\n'third' ", "after"));
  EXPECT_THAT(damages, IsEmpty());
}

TEST_F(LogReaderTest, ReferencesAreResolvedAndPercentEscapesAreNot) {
  read(messageLine("fish &amp; chips &#x263A; 14 %3C 20"));
  EXPECT_THAT(messages(), ElementsAre("fish & chips \u263A 14 %3C 20"));
}

TEST_F(LogReaderTest, AMessageThatBringsQuotesAlongKeepsWhatTheyMake) {
  read(messageLine("a\" b=\"c"));
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].message, "a");
  EXPECT_THAT(records[0].others, ElementsAre(testing::Pair("b", "c")));
}

TEST_F(LogReaderTest, AnElementOfAnotherNameOnALineOfItsOwnIsARecord) {
  read(messageLine("before") + "<state tms=\"5.000\" pid=\"7\"><job id=\"1\"/>text</state>\n" + messageLine("after"));
  EXPECT_THAT(messages(), ElementsAre("before", "<state tms=\"5.000\" pid=\"7\"><job id=\"1\"/>text</state>", "after"));
  EXPECT_EQ(records[1].kind, LogRecordKind::element);
  EXPECT_EQ(records[1].pid, 7U);
  EXPECT_THAT(damages, IsEmpty());
}

TEST_F(LogReaderTest, ALogThatAnXmlToolIndentedIsRead) {
  read(kHeader + "  " + messageLine("one") + "\t" + kEnd + "</logs>\r\n");
  EXPECT_THAT(messages(), ElementsAre("one", "end log-session"));
  EXPECT_THAT(damages, IsEmpty());
}

TEST_F(LogReaderTest, LinesOfTextBetweenTheRecordsAreToldEach) {
  read(messageLine("one") + "a line\nanother\n\n" + messageLine("two"));
  EXPECT_THAT(messages(), ElementsAre("one", "two"));
  const std::size_t at = messageLine("one").size();
  EXPECT_THAT(places(), ElementsAre(place(2, at, 6, "text outside of a record"),
                                    place(3, at + 7, 7, "text outside of a record")));
}

TEST_F(LogReaderTest, ZeroBytesOfACrashAreTold) {
  read(messageLine("one") + std::string(4096, '\0') + messageLine("two"));
  EXPECT_THAT(messages(), ElementsAre("one", "two"));
  EXPECT_THAT(places(), ElementsAre(place(2, messageLine("one").size(), 4096, "text outside of a record")));
}

TEST_F(LogReaderTest, ARecordThatIsTooLongIsToldAndMemoryStaysBounded) {
  std::vector<std::string> seen;
  std::vector<LogDamage> told;
  LogReader reader([&](const LogRecord& record) { seen.push_back(record.message); },
                   [&](const LogDamage& damage) { told.push_back(damage); });
  const std::string piece(std::size_t{1} << 20U, 'a');
  reader.feed(messageLine("before") + "<log tms=\"1.000\" pid=\"1\" msg=\"");
  for (int i = 0; i < 40; ++i) reader.feed(piece);
  reader.feed("\"/>\n" + messageLine("after"));
  reader.feed("<log tms=\"1.000\" pid=\"1\" msg=\"");
  for (int i = 0; i < 40; ++i) reader.feed("\n" + piece);
  reader.feed("\"/>\n" + messageLine("last"));
  reader.finish();
  EXPECT_THAT(seen, ElementsAre("before", "after", "last"));
  ASSERT_GE(told.size(), 2U);
  EXPECT_EQ(told[0].line, 2U);
  EXPECT_THAT(told[0].reason, HasSubstr("longer than 16 MiB"));
  EXPECT_EQ(told[0].length, std::string("<log tms=\"1.000\" pid=\"1\" msg=\"").size() + 40 * piece.size() + 3);
  EXPECT_EQ(told[1].line, 4U);
  const std::string opened = "<log tms=\"1.000\" pid=\"1\" msg=\"";
  EXPECT_EQ(told[1].offset,
            (messageLine("before") + opened + "\"/>\n" + messageLine("after")).size() + 40 * piece.size());
}

TEST_F(LogReaderTest, HostileNestingAndEndlessTriesTakeLittleTime) {
  std::string nested, restless = "<log tms=\"1.000\" pid=\"1\" msg=\"";
  for (int i = 0; i < 300000; ++i) nested += "<log ><a>";
  for (int i = 0; i < 300000; ++i) restless += "\" a" + std::to_string(i) + "=\"/>\n";
  std::size_t told = 0;
  LogReader reader([](const LogRecord&) {}, [&told](const LogDamage&) { ++told; });
  reader.feed(nested + "\n" + restless);
  reader.finish();
  EXPECT_GT(told, 300000U);
}

TEST_F(LogReaderTest, AfterTheEndOfAFileAnotherOneBegins) {
  std::vector<LogDamage> told;
  std::size_t count = 0;
  LogReader reader([&count](const LogRecord&) { ++count; },
                   [&told](const LogDamage& damage) { told.push_back(damage); });
  reader.feed(kHeader + messageLine("one") + "<log tms=");
  reader.finish();
  reader.feed("stray\n" + messageLine("two"));
  reader.finish();
  EXPECT_EQ(count, 2U);
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[0].line, 4U);
  EXPECT_EQ(told[1].line, 1U);
  EXPECT_EQ(told[1].offset, 0U);
}

}  // namespace
