// The number that a string begins with.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/corefoundation/string_testing.h"

using namespace strings;

namespace {

SInt32 integer(std::string_view text) { return CFStringGetIntValue(fromUTF8(text).get()); }
double real(std::string_view text) { return CFStringGetDoubleValue(fromUTF8(text).get()); }

TEST(StringNumberTest, IntegersAreReadAsFarAsTheyGo) {
  EXPECT_EQ(integer("42"), 42);
  EXPECT_EQ(integer("-42"), -42);
  EXPECT_EQ(integer("+42"), 42);
  EXPECT_EQ(integer(" \t\n42abc"), 42);
  EXPECT_EQ(integer("0042"), 42);
  EXPECT_EQ(integer("42.9"), 42);
  for (const char* none : {"", "abc", "-", "+", "- 5", " ", "é5", "--5"}) EXPECT_EQ(integer(none), 0) << none;
  EXPECT_EQ(CFStringGetIntValue(nullptr), 0);
}

TEST(StringNumberTest, IntegersOutOfRangeAreTheNearest) {
  EXPECT_EQ(integer("2147483647"), INT32_MAX);
  EXPECT_EQ(integer("2147483646"), INT32_MAX - 1);
  EXPECT_EQ(integer("2147483648"), INT32_MAX);
  EXPECT_EQ(integer("-2147483648"), INT32_MIN);
  EXPECT_EQ(integer("-2147483647"), -INT32_MAX);
  EXPECT_EQ(integer("-2147483649"), INT32_MIN);
  EXPECT_EQ(integer(std::string(500, '9')), INT32_MAX);
  EXPECT_EQ(integer("-" + std::string(500, '9')), INT32_MIN);
}

TEST(StringNumberTest, RealNumbersAreReadAsFarAsTheyGo) {
  EXPECT_EQ(real("3.25"), 3.25);
  EXPECT_EQ(real("-3.25e2xyz"), -325);
  EXPECT_EQ(real(" +.5"), 0.5);
  EXPECT_EQ(real("5."), 5);
  EXPECT_EQ(real("1e"), 1);
  EXPECT_EQ(real("1e+"), 1);
  EXPECT_EQ(real("1E-2"), 0.01);
  EXPECT_EQ(real("1,5"), 1);
  EXPECT_EQ(real("0.1"), 0.1);
  EXPECT_EQ(real("9007199254740993"), 9007199254740992.0);
  for (const char* none : {"", ".", "-.", "abc", "e5", "inf", "nan", "- 1"}) EXPECT_EQ(real(none), 0) << none;
  EXPECT_EQ(real("0x10"), 0) << "hexadecimal is not read";
  EXPECT_EQ(CFStringGetDoubleValue(nullptr), 0);
  EXPECT_TRUE(std::signbit(real("-0")));
}

TEST(StringNumberTest, RealNumbersOutOfRangeAreInfiniteOrZero) {
  EXPECT_EQ(real("1e999"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(real("-1e99999999999"), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(real("1e-99999999999"), 0);
  EXPECT_EQ(real("0." + std::string(5000, '0') + "1"), 0);
  EXPECT_EQ(real("4.9406564584124654e-324"), std::numeric_limits<double>::denorm_min());
}

}  // namespace
