// Failures that end on the console.
#include "control/failure_report.h"

#include <plinth/exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using ::testing::EndsWith;

template <class Action>
std::string consoleOf(Action&& action) {
  ::testing::internal::CaptureStderr();
  action();
  return ::testing::internal::GetCapturedStderr();
}

TEST(FailureReportTest, NamesTheFunctionAndTheReason) {
  EXPECT_THAT(consoleOf([] {
                tovan::reportingFailures("TovanConfig::restartDaemon",
                                         [] { throw plinth::CParamException("no %s", "bus 100%"); });
              }),
              EndsWith("] TovanConfig::restartDaemon failed, exception = no bus 100%.\n"));
}

TEST(FailureReportTest, AdviceFollowsOnALineOfItsOwn) {
  EXPECT_THAT(consoleOf([] {
                tovan::reportingFailures(
                    "\nTovanConfig::x", [] { throw plinth::CException(plinth::kExceptionTypeSystemCall, "why"); },
                    "Do this.\n");
              }),
              EndsWith("] \nTovanConfig::x failed, exception = why.\nDo this.\n"));
}

TEST(FailureReportTest, SuccessSaysNothing) {
  bool done = false;
  EXPECT_EQ(consoleOf([&done] { tovan::reportingFailures("x", [&done] { done = true; }); }), "");
  EXPECT_TRUE(done);
}

TEST(FailureReportTest, OtherExceptionsPass) {
  EXPECT_EQ(consoleOf([] {
              EXPECT_THROW(tovan::reportingFailures("x", [] { throw std::runtime_error("other"); }),
                           std::runtime_error);
            }),
            "");
}

}  // namespace
