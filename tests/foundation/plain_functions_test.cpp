// The plain functions and the constants, used from C.
#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>

#include <string>

extern "C" const char* failureOfConstantsInC();
extern "C" const char* failureOfFunctionsInC(const char* home);

namespace {

std::string textOf(const char* failure) { return failure != nullptr ? failure : "none"; }

TEST(PlainFunctionsInCTest, TheConstantsHaveTheirValues) { EXPECT_EQ(textOf(failureOfConstantsInC()), "none"); }

TEST(PlainFunctionsInCTest, TheFunctionsAnswer) {
  EXPECT_EQ(textOf(failureOfFunctionsInC(test::scratchHome().c_str())), "none");
}

}  // namespace
