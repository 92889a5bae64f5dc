// The operations that the marks of a log make.
#include "tools/tovanctl/log_scopes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tovanctl::LogPlace;
using tovanctl::LogRecord;
using tovanctl::LogRecordKind;
using tovanctl::LogScopes;

LogRecord mark(const std::string& kind, const std::string& what, double time, std::uint32_t pid = 1) {
  LogRecord record;
  record.kind = LogRecordKind::mark;
  record.markKind = kind;
  record.what = what;
  record.time = time;
  record.pid = pid;
  return record;
}

LogRecord message(std::uint32_t pid = 1) {
  LogRecord record;
  record.time = 0;
  record.pid = pid;
  return record;
}

TEST(LogScopesTest, OperationsNestAndTheirEndsHaveDurations) {
  LogScopes scopes;
  EXPECT_EQ(scopes.place(mark("begin", "log-session", 10)).depth, 0U);
  EXPECT_EQ(scopes.place(message()).depth, 1U);
  EXPECT_EQ(scopes.place(mark("begin", "job", 11)).depth, 1U);
  EXPECT_EQ(scopes.place(message()).depth, 2U);
  const LogPlace job = scopes.place(mark("end", "job", 13.5));
  EXPECT_EQ(job.depth, 1U);
  EXPECT_EQ(job.duration, 2.5);
  const LogPlace session = scopes.place(mark("end", "log-session", 20));
  EXPECT_EQ(session.depth, 0U);
  EXPECT_EQ(session.duration, 10);
  EXPECT_TRUE(scopes.underWay().empty());
}

TEST(LogScopesTest, ProcessesDoNotMix) {
  LogScopes scopes;
  scopes.place(mark("begin", "job", 1, 1));
  scopes.place(mark("begin", "job", 2, 2));
  EXPECT_EQ(scopes.place(message(2)).depth, 1U);
  EXPECT_EQ(scopes.place(message(3)).depth, 0U);
  EXPECT_EQ(scopes.place(mark("end", "job", 5, 1)).duration, 4);
  EXPECT_EQ(scopes.place(mark("end", "job", 5, 2)).duration, 3);
}

TEST(LogScopesTest, OperationsOfThreadsMayOverlap) {
  LogScopes scopes;
  scopes.place(mark("begin", "one", 1));
  scopes.place(mark("begin", "two", 2));
  EXPECT_EQ(scopes.place(mark("end", "one", 4)).duration, 3);
  EXPECT_EQ(scopes.place(message()).depth, 1U);
  const LogPlace two = scopes.place(mark("end", "two", 7));
  EXPECT_EQ(two.duration, 5);
  EXPECT_EQ(two.depth, 0U);
}

TEST(LogScopesTest, AnEndBelongsToTheInnermostOperationOfItsName) {
  LogScopes scopes;
  scopes.place(mark("begin", "same", 1));
  scopes.place(mark("begin", "same", 2));
  EXPECT_EQ(scopes.place(mark("end", "same", 4)).duration, 2);
  EXPECT_EQ(scopes.place(mark("end", "same", 4)).duration, 3);
  EXPECT_FALSE(scopes.place(mark("end", "same", 4)).duration.has_value());
}

TEST(LogScopesTest, ASessionThatBeginsAnewEndsTheLostOne) {
  LogScopes scopes;
  EXPECT_FALSE(scopes.place(mark("begin", "log-session", 1)).endsLostSession);
  scopes.place(mark("begin", "job", 2));
  const LogPlace anew = scopes.place(mark("begin", "log-session", 3));
  EXPECT_TRUE(anew.endsLostSession);
  EXPECT_EQ(anew.depth, 0U);
  EXPECT_EQ(scopes.place(mark("end", "log-session", 5)).duration, 2);
}

TEST(LogScopesTest, WhatHasNoEndStaysUnderWay) {
  LogScopes scopes;
  scopes.place(mark("begin", "log-session", 1, 7));
  scopes.place(mark("begin", "job", 2, 7));
  scopes.place(mark("", "job", 3, 7));
  scopes.place(mark("odd", "job", 3, 7));
  ASSERT_EQ(scopes.underWay().size(), 1U);
  EXPECT_EQ(scopes.underWay().at(7).size(), 2U);
  EXPECT_EQ(scopes.underWay().at(7)[1].what, "job");
}

TEST(LogScopesTest, ItsMemoryIsBounded) {
  LogScopes scopes;
  for (std::size_t i = 0; i < 2 * LogScopes::kMostScopes; ++i) scopes.place(mark("begin", "job", 1, 1));
  for (std::uint32_t pid = 0; pid < 2 * LogScopes::kMostProcesses; ++pid) scopes.place(mark("begin", "job", 1, pid));
  EXPECT_EQ(scopes.underWay().size(), LogScopes::kMostProcesses);
  EXPECT_EQ(scopes.underWay().at(1).size(), LogScopes::kMostScopes);
}

}  // namespace
