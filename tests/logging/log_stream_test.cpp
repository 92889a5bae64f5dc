// Messages in pieces, and what every kind of piece looks like.
#include <climits>
#include <limits>

#include "tests/logging/fixed_clock.h"
#include "tests/logging/log_support.h"

namespace {

using namespace test;
using tovan::endl;
using tovan::flush;

class LogStreamTest : public ::testing::Test {
 protected:
  // The message of the record that one piece makes.
  template <class Piece>
  std::string written(const Piece& piece) {
    log_.log() << piece << "\n";
    const std::string line = log_.taken();
    const std::string before = "<log " + kTimes + " pid=\"" + pid() + "\" msg=\"";
    if (line.rfind(before, 0) != 0 || line.size() < before.size() + 4) return "(not a record: " + line + ")";
    return line.substr(before.size(), line.size() - before.size() - 4);
  }

  FixedClock clock_{kMoment, kQuarter};
  MemoryLog log_;
};

TEST_F(LogStreamTest, PiecesMakeOneRecord) {
  OStream& stream = log_.log();
  stream << "a"
         << "b";
  EXPECT_EQ(log_.taken(), "") << "the message has not ended";
  stream << "c\n";
  EXPECT_EQ(log_.taken(), record("abc"));
  stream << "a"
         << "b"
         << "c" << endl;
  EXPECT_EQ(log_.taken(), record("abc"));
}

TEST_F(LogStreamTest, OperatorsGiveTheStreamThatTheyWereGiven) {
  OStream& stream = log_.log();
  EXPECT_EQ(&(stream << "a"), &stream);
  EXPECT_EQ(&(stream << 1), &stream);
  EXPECT_EQ(&(stream << CSTR("a")), &stream);
  EXPECT_EQ(&(stream << plinth::CXMLService(CSTR("<mrk/>"))), &stream);
  EXPECT_EQ(&(stream << flush), &stream);
  EXPECT_EQ(&(stream << endl), &stream);
}

TEST_F(LogStreamTest, TrailingNewlinesEndTheMessageOnce) {
  log_.log() << "x\n\n\n";
  EXPECT_EQ(log_.taken(), record("x"));
  log_.log() << "x"
             << "\n\n";
  EXPECT_EQ(log_.taken(), record("x"));
  log_.log() << "x\n"
             << endl
             << "\n"
             << "y\n";
  EXPECT_EQ(log_.taken(), record("x") + record("y"));
}

TEST_F(LogStreamTest, NewlinesOnAnEmptyBufferWriteNothing) {
  log_.log() << "\n"
             << "\n\n\n"
             << endl
             << endl;
  EXPECT_EQ(log_.taken(), "");
  log_.log() << "" << endl;
  EXPECT_EQ(log_.taken(), "");
}

TEST_F(LogStreamTest, NewlinesWithinAMessageStay) {
  log_.log() << "a\nb"
             << "\nc\n";
  EXPECT_EQ(log_.taken(), record("a\nb\nc"));
  log_.log() << "\na\n";
  EXPECT_EQ(log_.taken(), record("\na"));
}

// The newline of the first piece ends the message: what follows is another.
TEST_F(LogStreamTest, ANewlineAtTheEndOfAPieceEndsTheMessageWhateverFollows) {
  log_.log() << "a\n"
             << "b"
             << "\n";
  EXPECT_EQ(log_.taken(), record("a") + record("b"));
}

TEST_F(LogStreamTest, TheTimeOfARecordIsThatOfItsFirstPiece) {
  log_.log() << "a";
  clock_.set(kMoment + 60);
  log_.log() << "b\n";
  EXPECT_EQ(log_.taken(), record("ab"));
  log_.log() << "c\n";
  EXPECT_EQ(log_.taken(), record("c", "", R"(tms="352821969.000" tmt="03/07/2012 14:06:09.000")"));
}

TEST_F(LogStreamTest, TheTimeIsThatOfTheFirstPieceAfterAnEmptyOne) {
  log_.log() << ""
             << "\n";
  clock_.set(kMoment + 60);
  log_.log() << "c\n";
  EXPECT_EQ(log_.taken(), record("c", "", R"(tms="352821969.000" tmt="03/07/2012 14:06:09.000")"));
}

TEST_F(LogStreamTest, TheLevelOfARecordIsThatOfItsFirstPiece) {
  log_.log(1) << "a";
  log_.log(2) << "b\n";
  EXPECT_EQ(log_.taken(), record("ab", "1"));
  log_.log(3) << "a";
  log_.log(0) << 5 << "\n";
  EXPECT_EQ(log_.taken(), record("a5"));
}

TEST_F(LogStreamTest, AFilteredMessageDoesNotDisturbOneThatHasBegun) {
  log_.log(3) << "a";
  log_.log(4) << "filtered\n";
  log_.log(3) << "b\n";
  EXPECT_EQ(log_.taken(), record("ab"));
}

TEST_F(LogStreamTest, NullAndEmptyTexts) {
  EXPECT_EQ(written(static_cast<const char*>(nullptr)), "null");
  EXPECT_EQ(written(plinth::CStringRef()), "null");
  EXPECT_EQ(written(plinth::CURLRef()), "null");
  log_.log() << plinth::makeShared<plinth::CString>() << ""
             << "\n";
  EXPECT_EQ(log_.taken(), "");
}

TEST_F(LogStreamTest, TextsAndURLs) {
  EXPECT_EQ(written(CSTR("gr\u00fcn")), "gr\u00fcn");
  EXPECT_EQ(written(plinth::makeShared<plinth::CURL>(CSTR("/srv/a b"), kCFURLPOSIXPathStyle, false)),
            "file:///srv/a%20b");
  log_.log() << CSTR("ended\n");
  EXPECT_EQ(log_.taken(), record("ended")) << "a string may end the message as well";
}

TEST_F(LogStreamTest, BooleansAndTimeStamps) {
  EXPECT_EQ(written(true), "true");
  EXPECT_EQ(written(false), "false");
  EXPECT_EQ(written(tovan::CTimeStamp(0.5)), "01/01/2001 00:00:00.500: ");
}

TEST_F(LogStreamTest, Integers) {
  EXPECT_EQ(written(static_cast<short>(-32768)), "-32768");
  EXPECT_EQ(written(static_cast<unsigned short>(65535)), "65535");
  EXPECT_EQ(written(INT_MIN), "-2147483648");
  EXPECT_EQ(written(UINT_MAX), "4294967295");
  EXPECT_EQ(written(LONG_MIN), "-9223372036854775808");
  EXPECT_EQ(written(ULONG_MAX), "18446744073709551615");
  EXPECT_EQ(written(LLONG_MAX), "9223372036854775807");
  EXPECT_EQ(written(ULLONG_MAX), "18446744073709551615");
  EXPECT_EQ(written(0), "0");
}

// Every number is what a standard stream makes of it.
TEST_F(LogStreamTest, FloatingPointNumbersAndAddresses) {
  const auto standard = [](auto value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
  };
  for (const double value : {0.0, -0.0, 1.0, 0.1, 1234567.0, 1e-5, 1e100, 123456.5,
                             std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::max()}) {
    EXPECT_EQ(written(value), standard(value));
    EXPECT_EQ(written(static_cast<float>(value)), standard(static_cast<double>(static_cast<float>(value))));
    EXPECT_EQ(written(static_cast<long double>(value)), standard(static_cast<long double>(value)));
  }
  EXPECT_EQ(written(0.1), "0.1");
  EXPECT_EQ(written(1e6), "1e+06");
  const void* const address = &log_;
  EXPECT_EQ(written(address), standard(address));
  EXPECT_EQ(written(static_cast<const void*>(nullptr)), "0");
}

TEST_F(LogStreamTest, NumbersBeginAMessageAndNeverEndOne) {
  log_.log(1) << 5;
  EXPECT_EQ(log_.taken(), "");
  clock_.set(kMoment + 60);
  log_.log(2) << 1.5 << "\n";
  EXPECT_EQ(log_.taken(), record("51.5", "1"));
}

// The target of a logger counts its flushes.
class CountingBuffer : public std::stringbuf {
 public:
  int flushes = 0;

 protected:
  int sync() override {
    ++flushes;
    return 0;
  }
};

TEST_F(LogStreamTest, EveryRecordIsFlushedAndFlushEndsNoMessage) {
  CountingBuffer buffer;
  std::ostream target(&buffer);
  const OStreamRef stream(new OStream(CTovanLogger::kStreamKindConsole, target, nullptr));
  *stream << "a";
  EXPECT_EQ(buffer.flushes, 0);
  *stream << flush;
  EXPECT_EQ(buffer.flushes, 1);
  EXPECT_EQ(buffer.str(), "");
  *stream << "b\n";
  EXPECT_GE(buffer.flushes, 2);
  EXPECT_EQ(buffer.str(), record("ab"));
}

TEST_F(LogStreamTest, AStreamOfItsOwnHasLevelThree) {
  std::ostringstream target;
  const OStreamRef stream(new OStream(CTovanLogger::kStreamKindFile, target, CSTR("/a")));
  EXPECT_EQ(stream->level(), 3u);
  EXPECT_EQ(stream->kind(), CTovanLogger::kStreamKindFile);
  EXPECT_EQ(stream->target(), &target);
  EXPECT_EQ(text(stream->path()), "/a");
  const OStreamRef other(new OStream(CTovanLogger::kStreamKindConsole));
  EXPECT_EQ(other->target(), nullptr);
  EXPECT_EQ(text(other->path()), "");
  const OStreamRef buffered(new CTovanLogger::OBufferStream());
  EXPECT_EQ(buffered->kind(), CTovanLogger::kStreamKindConsole);
}

TEST_F(LogStreamTest, TheNullStreamDiscardsEverything) {
  const plinth::CSharedObjectRef<CTovanLogger::ONullStream> null(new CTovanLogger::ONullStream());
  EXPECT_EQ(null->kind(), CTovanLogger::kStreamKindNull);
  OStream& stream = *null;
  stream << "a" << 1 << 1.5 << true << CSTR("b") << static_cast<const char*>(nullptr) << tovan::CTimeStamp(0.5)
         << plinth::CXMLService(CSTR("<mrk/>")) << endl
         << flush;
  ASSERT_NE(null->target(), nullptr);
  *null->target() << "written directly" << std::endl;
  EXPECT_TRUE(null->target()->good()) << "goes to /dev/null";
}

TEST_F(LogStreamTest, ANullStreamWithATargetLeavesItAlone) {
  std::ostringstream target;
  const OStreamRef stream(new OStream(CTovanLogger::kStreamKindNull, target, nullptr));
  target.setstate(std::ios::badbit);
  *stream << "a" << 1 << plinth::CXMLService(CSTR("<mrk/>")) << endl << flush;
  target.clear();
  *stream << "a" << 1 << plinth::CXMLService(CSTR("<mrk/>")) << endl << flush;
  EXPECT_EQ(target.str(), "");
}

}  // namespace
