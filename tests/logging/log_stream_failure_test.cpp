// A target that has failed.
#include <plinth/xml_service.h>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/log_support.h"

namespace {

using namespace test;
using tovan::endl;

class LogStreamFailureTest : public ::testing::Test {
 protected:
  static std::string error(const std::string& mask) {
    return "CTovanLogger::OStream stream error: exception flags = " + mask;
  }
  template <class Call>
  std::string failureOf(Call call) {
    try {
      call();
    } catch (const plinth::CException& failure) {
      EXPECT_STREQ(typeid(failure).name(), typeid(plinth::CException).name());
      EXPECT_EQ(failure.getType(), 3);
      return failure.what();
    }
    return "nothing";
  }

  FixedClock clock_{kMoment, kQuarter};
  MemoryLog log_;
};

TEST_F(LogStreamFailureTest, EveryTextOperatorRaisesTheStreamError) {
  for (const std::ios::iostate state : {std::ios::failbit, std::ios::badbit}) {
    log_.out.setstate(state);
    EXPECT_EQ(failureOf([&] { log_.log() << "a"; }), error("0"));
    EXPECT_EQ(failureOf([&] { log_.log() << "a\n"; }), error("0"));
    EXPECT_EQ(failureOf([&] { log_.log() << endl; }), error("0"));
    EXPECT_EQ(failureOf([&] { log_.log() << static_cast<const char*>(nullptr); }), error("0"));
    EXPECT_EQ(failureOf([&] { log_.log() << CSTR("a"); }), error("0"));
    EXPECT_EQ(failureOf([&] { log_.log() << true; }), error("0"));
    EXPECT_EQ(failureOf([&] { log_.log() << tovan::CTimeStamp(1.0); }), error("0"));
    log_.out.clear();
    EXPECT_EQ(log_.taken(), "");
  }
}

TEST_F(LogStreamFailureTest, AnEmptyTextIsNoFailure) {
  log_.out.setstate(std::ios::badbit);
  EXPECT_EQ(failureOf([&] { log_.log() << ""; }), "nothing");
}

TEST_F(LogStreamFailureTest, TheEndOfTheTargetIsNoFailure) {
  log_.out.setstate(std::ios::eofbit);
  EXPECT_EQ(failureOf([&] { log_.log() << "a"; }), "nothing");
}

TEST_F(LogStreamFailureTest, TheMessageKeepsItsContent) {
  log_.log(1) << "a";
  log_.out.setstate(std::ios::badbit);
  EXPECT_EQ(failureOf([&] { log_.log() << "lost\n"; }), error("0"));
  log_.out.clear();
  log_.log() << "b\n";
  EXPECT_EQ(log_.taken(), record("ab", "1"));
}

TEST_F(LogStreamFailureTest, NumbersAreKeptWhateverTheTarget) {
  log_.out.setstate(std::ios::badbit);
  EXPECT_EQ(failureOf([&] { log_.log() << 1 << 2.5; }), "nothing");
  log_.out.clear();
  log_.log() << "\n";
  EXPECT_EQ(log_.taken(), record("12.5"));
}

TEST_F(LogStreamFailureTest, TheMessageNamesTheTargetsExceptionMask) {
  const std::ios::iostate all = std::ios::badbit | std::ios::failbit | std::ios::eofbit;
  std::ostringstream hexadecimal;
  hexadecimal << std::hex << static_cast<unsigned>(all);
  try {
    log_.out.setstate(std::ios::badbit);
    log_.out.exceptions(all);
  } catch (const std::ios::failure&) {
    // The mask is set all the same.
  }
  EXPECT_EQ(failureOf([&] { log_.log() << "a"; }), error(hexadecimal.str()));
}

// A buffer that takes nothing, as a full disk.
class FullBuffer : public std::streambuf {};

TEST_F(LogStreamFailureTest, AWriteThatFailsShowsWithTheNextOne) {
  FullBuffer buffer;
  std::ostream target(&buffer);
  const OStreamRef stream(new OStream(CTovanLogger::kStreamKindConsole, target, nullptr));
  EXPECT_EQ(failureOf([&] { *stream << "a\n"; }), "nothing");
  EXPECT_EQ(failureOf([&] { *stream << "b\n"; }), error("0"));
  EXPECT_EQ(failureOf([&] { *stream << endl; }), error("0"));
}

TEST_F(LogStreamFailureTest, ALevelThatCannotBeWrittenIsSetAllTheSame) {
  log_.out.setstate(std::ios::badbit);
  EXPECT_EQ(failureOf([&] { log_.logger->setLogLevel(7); }), error("0"));
  EXPECT_EQ(log_.logger->logLevel(), 7u);
}

TEST_F(LogStreamFailureTest, FilteredMessagesDoNotNoticeIt) {
  log_.out.setstate(std::ios::badbit);
  EXPECT_EQ(failureOf([&] { log_.log(4) << "a" << 1 << endl; }), "nothing");
}

TEST_F(LogStreamFailureTest, AScopeThatEndsOnAFailedTargetThrowsNothing) {
  EXPECT_EQ(failureOf([&] {
              const CTovanLogger::CScopeMarker scope(CSTR("work"), log_.log(), nullptr);
              log_.out.setstate(std::ios::badbit);
            }),
            "nothing");
  log_.out.clear();
  EXPECT_EQ(plain(log_.taken()), "<mrk kind=\"begin\" what=\"work\"/>\n");
}

}  // namespace
