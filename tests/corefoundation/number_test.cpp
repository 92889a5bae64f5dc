#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "tests/corefoundation/value_support.h"

namespace {

using values::descriptionOf;
using values::Held;
using values::integer;
using values::longInteger;
using values::real;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(CFBooleanTest, ThereAreTwoOfThem) {
  EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
  EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
  EXPECT_FALSE(CFBooleanGetValue(nullptr));
  EXPECT_TRUE(CFEqual(kCFBooleanTrue, kCFBooleanTrue));
  EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
  EXPECT_NE(CFHash(kCFBooleanTrue), CFHash(kCFBooleanFalse));
  EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
  EXPECT_NE(CFBooleanGetTypeID(), CFNumberGetTypeID());
  EXPECT_EQ(descriptionOf(kCFBooleanTrue), "true");
  EXPECT_EQ(descriptionOf(kCFBooleanFalse), "false");
}

// Creates a number of a type, reads it back, and checks what it says of its type.
template <class T>
void expectRoundTrip(CFNumberType type, CFNumberType fixedWidth, T value) {
  SCOPED_TRACE(testing::Message() << "type " << type << " value " << value);
  const Held<CFNumberRef> number(CFNumberCreate(nullptr, type, &value));
  ASSERT_NE(number.get(), nullptr);
  EXPECT_EQ(CFGetTypeID(number), CFNumberGetTypeID());
  EXPECT_EQ(CFNumberGetType(number), fixedWidth);
  EXPECT_EQ(CFNumberGetByteSize(number), static_cast<CFIndex>(sizeof(T)));
  EXPECT_EQ(static_cast<bool>(CFNumberIsFloatType(number)), std::is_floating_point_v<T>);
  T back = 77;
  EXPECT_TRUE(CFNumberGetValue(number, type, &back));
  EXPECT_EQ(back, value);
}

template <class T>
void expectRoundTrips(CFNumberType type, CFNumberType fixedWidth) {
  for (const T value : {std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max(), T(0), T(1), T(-1), T(100)}) {
    expectRoundTrip<T>(type, fixedWidth, value);
  }
}

TEST(CFNumberTest, EveryTypeIsKeptWithItsWidth) {
  expectRoundTrips<SInt8>(kCFNumberSInt8Type, kCFNumberSInt8Type);
  expectRoundTrips<SInt16>(kCFNumberSInt16Type, kCFNumberSInt16Type);
  expectRoundTrips<SInt32>(kCFNumberSInt32Type, kCFNumberSInt32Type);
  expectRoundTrips<SInt64>(kCFNumberSInt64Type, kCFNumberSInt64Type);
  expectRoundTrips<Float32>(kCFNumberFloat32Type, kCFNumberFloat32Type);
  expectRoundTrips<Float64>(kCFNumberFloat64Type, kCFNumberFloat64Type);
  expectRoundTrips<signed char>(kCFNumberCharType, kCFNumberSInt8Type);
  expectRoundTrips<short>(kCFNumberShortType, kCFNumberSInt16Type);
  expectRoundTrips<int>(kCFNumberIntType, kCFNumberSInt32Type);
  expectRoundTrips<long>(kCFNumberLongType, kCFNumberSInt64Type);
  expectRoundTrips<long long>(kCFNumberLongLongType, kCFNumberSInt64Type);
  expectRoundTrips<float>(kCFNumberFloatType, kCFNumberFloat32Type);
  expectRoundTrips<double>(kCFNumberDoubleType, kCFNumberFloat64Type);
  expectRoundTrips<CFIndex>(kCFNumberCFIndexType, kCFNumberSInt64Type);
  expectRoundTrips<long>(kCFNumberNSIntegerType, kCFNumberSInt64Type);
  expectRoundTrips<double>(kCFNumberCGFloatType, kCFNumberFloat64Type);
}

TEST(CFNumberTest, SmallIntegersKeepTheirTypeAndValueAtTheEdgesOfTheConstants) {
  for (int value = -5; value < 300; ++value) {
    const auto narrow = integer(value);
    const auto wide = longInteger(value);
    EXPECT_EQ(CFNumberGetType(narrow), kCFNumberSInt32Type) << value;
    EXPECT_EQ(CFNumberGetType(wide), kCFNumberSInt64Type) << value;
    long long back = -77;
    EXPECT_TRUE(CFNumberGetValue(wide, kCFNumberLongLongType, &back));
    EXPECT_EQ(back, value);
    EXPECT_TRUE(CFEqual(narrow, wide)) << value;
    EXPECT_EQ(CFHash(narrow), CFHash(wide)) << value;
  }
}

TEST(CFNumberTest, RefusesWhatIsNoNumber) {
  const int value = 1;
  EXPECT_EQ(CFNumberCreate(nullptr, kCFNumberIntType, nullptr), nullptr);
  EXPECT_EQ(CFNumberCreate(nullptr, static_cast<CFNumberType>(0), &value), nullptr);
  EXPECT_EQ(CFNumberCreate(nullptr, static_cast<CFNumberType>(31), &value), nullptr);
  int stored = 5;
  EXPECT_FALSE(CFNumberGetValue(nullptr, kCFNumberIntType, &stored));
  EXPECT_FALSE(CFNumberGetValue(integer(1), static_cast<CFNumberType>(0), &stored));
  EXPECT_FALSE(CFNumberGetValue(integer(1), kCFNumberIntType, nullptr));
  EXPECT_EQ(stored, 5);
  EXPECT_FALSE(CFNumberIsFloatType(nullptr));
}

template <class T>
void expectValue(CFNumberRef number, CFNumberType type, T value, bool exact) {
  T stored = 55;
  EXPECT_EQ(static_cast<bool>(CFNumberGetValue(number, type, &stored)), exact) << descriptionOf(number);
  EXPECT_EQ(stored, value) << descriptionOf(number);
}

TEST(CFNumberTest, ConversionsThatLoseSaySoAndGiveTheNearest) {
  expectValue<SInt8>(integer(300), kCFNumberSInt8Type, 127, false);
  expectValue<SInt8>(integer(-300), kCFNumberSInt8Type, -128, false);
  expectValue<SInt16>(integer(-300), kCFNumberSInt16Type, -300, true);
  expectValue<SInt16>(integer(70000), kCFNumberSInt16Type, 32767, false);
  expectValue<SInt32>(longInteger(1LL << 40), kCFNumberSInt32Type, INT_MAX, false);
  expectValue<SInt32>(longInteger(-(1LL << 40)), kCFNumberSInt32Type, INT_MIN, false);
  expectValue<SInt32>(longInteger(-5), kCFNumberSInt32Type, -5, true);

  expectValue<SInt32>(real(2.75), kCFNumberSInt32Type, 2, false);
  expectValue<SInt32>(real(-2.75), kCFNumberSInt32Type, -2, false);
  expectValue<SInt32>(real(-3.0), kCFNumberSInt32Type, -3, true);
  expectValue<SInt8>(real(127.5), kCFNumberSInt8Type, 127, false);
  expectValue<SInt8>(real(128.0), kCFNumberSInt8Type, 127, false);
  expectValue<SInt64>(real(1e30), kCFNumberSInt64Type, LLONG_MAX, false);
  expectValue<SInt64>(real(-1e30), kCFNumberSInt64Type, LLONG_MIN, false);
  expectValue<SInt64>(real(9223372036854775808.0), kCFNumberSInt64Type, LLONG_MAX, false);
  expectValue<SInt64>(real(-9223372036854775808.0), kCFNumberSInt64Type, LLONG_MIN, true);
  expectValue<SInt64>(real(kNaN), kCFNumberSInt64Type, 0, false);
  expectValue<SInt64>(real(kInfinity), kCFNumberSInt64Type, LLONG_MAX, false);

  expectValue<double>(longInteger((1LL << 53) + 1), kCFNumberDoubleType, 9007199254740992.0, false);
  expectValue<double>(longInteger(1LL << 53), kCFNumberDoubleType, 9007199254740992.0, true);
  expectValue<double>(longInteger(LLONG_MAX), kCFNumberDoubleType, 9223372036854775808.0, false);
  expectValue<float>(integer(16777217), kCFNumberFloatType, 16777216.0F, false);
  expectValue<float>(real(0.5), kCFNumberFloatType, 0.5F, true);
  expectValue<float>(real(0.1), kCFNumberFloatType, 0.1F, false);
  expectValue<float>(real(1e300), kCFNumberFloatType, FLT_MAX, false);
  expectValue<float>(real(-1e300), kCFNumberFloatType, -FLT_MAX, false);
  expectValue<float>(real(kInfinity), kCFNumberFloatType, std::numeric_limits<float>::infinity(), true);
  float stored = 0;
  EXPECT_TRUE(CFNumberGetValue(real(kNaN), kCFNumberFloatType, &stored));
  EXPECT_TRUE(std::isnan(stored));
}

TEST(CFNumberTest, ComparesIntegersAndRealsExactly) {
  EXPECT_EQ(CFNumberCompare(integer(1), integer(2), nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(integer(2), integer(1), nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(integer(2), real(2.0), nullptr), kCFCompareEqualTo);
  EXPECT_EQ(CFNumberCompare(integer(2), real(2.5), nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(integer(-2), real(-2.5), nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(real(-2.5), integer(-2), nullptr), kCFCompareLessThan);
  // As doubles these two would be the same.
  EXPECT_EQ(CFNumberCompare(longInteger((1LL << 53) + 1), real(9007199254740992.0), nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(longInteger(LLONG_MAX), real(9223372036854775808.0), nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(longInteger(LLONG_MIN), real(-9223372036854775808.0), nullptr), kCFCompareEqualTo);
  EXPECT_EQ(CFNumberCompare(longInteger(LLONG_MIN), real(-1e300), nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(real(kInfinity), longInteger(LLONG_MAX), nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(real(0.0), real(-0.0), nullptr), kCFCompareEqualTo);
}

TEST(CFNumberTest, NotANumberHasAPlaceInTheOrder) {
  EXPECT_EQ(CFNumberCompare(real(kNaN), kCFNumberNaN, nullptr), kCFCompareEqualTo);
  EXPECT_EQ(CFNumberCompare(kCFNumberNaN, kCFNumberNegativeInfinity, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(kCFNumberNegativeInfinity, kCFNumberNaN, nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(kCFNumberNaN, integer(-1), nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(integer(-1), kCFNumberNaN, nullptr), kCFCompareGreaterThan);
  EXPECT_TRUE(CFEqual(real(kNaN), real(-kNaN)));
  EXPECT_EQ(CFHash(real(kNaN)), CFHash(real(-kNaN)));
  EXPECT_EQ(CFNumberCompare(kCFNumberPositiveInfinity, real(DBL_MAX), nullptr), kCFCompareGreaterThan);
}

TEST(CFNumberTest, EqualValuesHaveEqualHashesWhateverTheirTypes) {
  const std::vector<std::pair<long long, double>> pairs{
      {0, 0.0}, {0, -0.0}, {-1, -1.0}, {12345678901, 12345678901.0}, {LLONG_MIN, -9223372036854775808.0}};
  for (const auto& [whole, same] : pairs) {
    EXPECT_TRUE(CFEqual(longInteger(whole), real(same))) << whole;
    EXPECT_EQ(CFHash(longInteger(whole)), CFHash(real(same))) << whole;
  }
  const float half = 0.5F;
  const Held<CFNumberRef> narrow(CFNumberCreate(nullptr, kCFNumberFloatType, &half));
  EXPECT_TRUE(CFEqual(narrow, real(0.5)));
  EXPECT_EQ(CFHash(narrow), CFHash(real(0.5)));
  EXPECT_FALSE(CFEqual(integer(1), real(1.5)));
}

TEST(CFNumberTest, TheOrderOfRandomIntegersAndRealsHoldsTogether) {
  std::mt19937_64 random(20010101);
  std::vector<Held<CFNumberRef>> numbers;
  for (int i = 0; i < 60; ++i) {
    const auto shifted = static_cast<long long>(random()) >> (random() % 64);
    numbers.push_back(longInteger(shifted));
    numbers.push_back(real(static_cast<double>(shifted)));
    numbers.push_back(real(static_cast<double>(shifted) + 0.5));
  }
  for (const auto& left : numbers) {
    for (const auto& right : numbers) {
      const int order = CFNumberCompare(left, right, nullptr);
      ASSERT_EQ(order, -CFNumberCompare(right, left, nullptr));
      ASSERT_EQ(static_cast<bool>(CFEqual(left, right)), order == 0);
      if (order == 0) {
        ASSERT_EQ(CFHash(left), CFHash(right));
      }
      for (const auto& third : numbers) {
        if (order <= 0 && CFNumberCompare(right, third, nullptr) <= 0) {
          ASSERT_LE(CFNumberCompare(left, third, nullptr), 0)
              << descriptionOf(left) << ' ' << descriptionOf(right) << ' ' << descriptionOf(third);
        }
      }
    }
  }
}

TEST(CFNumberTest, IsDescribedByItsDigits) {
  EXPECT_EQ(descriptionOf(integer(-42)), "-42");
  EXPECT_EQ(descriptionOf(longInteger(LLONG_MIN)), "-9223372036854775808");
  EXPECT_EQ(descriptionOf(real(0.1)), "0.1");
  EXPECT_EQ(descriptionOf(real(2.0)), "2");
  EXPECT_EQ(descriptionOf(kCFNumberPositiveInfinity), "inf");
}

TEST(CFNumberTest, NumbersThatAreNoConstantsAreCounted) {
  const auto number = integer(123456);
  EXPECT_EQ(CFGetRetainCount(number), 1);
}

}  // namespace
