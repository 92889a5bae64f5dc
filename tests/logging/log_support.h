// log_support.h: a logger that writes into memory, and the lines that a log has at a moment that stands still.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <tovan/global_logger.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <typeinfo>

#include "tests/support/scratch_home.h"

namespace test {

using plinth::CSTR;
using tovan::CTovanLogger;
using tovan::CTovanLoggerRef;
using OStream = CTovanLogger::OStream;
using OStreamRef = CTovanLogger::OStreamRef;

inline std::string pid() { return std::to_string(::getpid()); }
inline std::string text(const plinth::CStringRef& holder) { return holder ? holder->str() : "(empty holder)"; }

// 2012-03-07 14:05:09.25 GMT, and its two texts (the zone of the tests is UTC).
constexpr std::int64_t kMoment = 352821909;
constexpr std::int64_t kQuarter = 250'000'000;
inline const std::string kTimes = R"(tms="352821909.250" tmt="03/07/2012 14:05:09.250")";

inline std::string header(const std::string& processName, const std::string& times = kTimes) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<logs " + times + " pnm=\"" + processName +
         "\">\n";
}
inline std::string sessionMark(const std::string& kind, const std::string& times = kTimes) {
  return "<mrk " + times + " pid=\"" + pid() + "\" kind=\"" + kind + "\" what=\"log-session\"/>\n";
}
// A record of level 3 when no level is given.
inline std::string record(const std::string& message, const std::string& level = "",
                          const std::string& times = kTimes) {
  const std::string shown = level.empty() ? "" : " lvl=\"" + level + "\"";
  return "<log " + times + " pid=\"" + pid() + "\"" + shown + " msg=\"" + message + "\"/>\n";
}

// The elements of a log from which the two times, the process ids and all header lines are taken out.
inline std::string plain(const std::string& log) {
  std::istringstream lines(log);
  std::string line, result;
  while (std::getline(lines, line)) {
    if (line.rfind("<?xml", 0) == 0 || line.rfind("<logs", 0) == 0) continue;
    for (const char* const attribute : {" tms=\"", " tmt=\"", " pid=\""}) {
      const std::size_t begin = line.find(attribute);
      if (begin == std::string::npos) continue;
      line.erase(begin, line.find('"', begin + 6) + 1 - begin);
    }
    result += line + "\n";
  }
  return result;
}

// A logger on a stream of kind console in memory.
struct MemoryLog {
  MemoryLog() { logger->startupLogging(OStreamRef(new OStream(CTovanLogger::kStreamKindConsole, out, nullptr))); }
  // What was written since the last call.
  std::string taken() {
    std::string written = out.str();
    out.str("");
    return written;
  }
  OStream& log(unsigned int level = 3) { return logger->log(level); }

  std::ostringstream out;
  const CTovanLoggerRef logger{new CTovanLogger()};
};

// What a call throws: the class's own message of the exception of exactly that class.
template <class Expected, class Call>
std::string messageOf(Call call) {
  try {
    call();
  } catch (const plinth::CException& failure) {
    EXPECT_STREQ(typeid(failure).name(), typeid(Expected).name()) << failure.what();
    return failure.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return {};
}

template <class Call>
std::string standardErrorOf(Call call) {
  ::testing::internal::CaptureStderr();
  call();
  return ::testing::internal::GetCapturedStderr();
}

}  // namespace test
