#include <tovan/cf_util.h>

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using plinth::CSharedCFRef;
using tovan::CFUtil;

CSharedCFRef<CFStringRef> string(const char* text) {
  return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}
std::string text(CFStringRef string) {
  const char* const bytes = string == nullptr ? nullptr : CFStringGetCStringPtr(string, kCFStringEncodingUTF8);
  return bytes != nullptr ? bytes : "(none)";
}

class CFUtilDictionaryTest : public ::testing::Test {
 protected:
  CFMutableDictionaryRef get() const { return dict_.get(); }
  CSharedCFRef<CFMutableDictionaryRef> dict_ = CFUtil::CFDictMakeMutable();
  const CFStringRef key_ = CFSTR("key");
};

TEST_F(CFUtilDictionaryTest, ANewDictionaryIsEmptyAndRetainsWhatItHolds) {
  ASSERT_NE(get(), nullptr);
  EXPECT_EQ(CFDictionaryGetCount(get()), 0);
  EXPECT_EQ(CFGetRetainCount(get()), 1);
  CSharedCFRef<CFMutableArrayRef> value = CFUtil::CFArrayMakeMutable();
  CFUtil::CFDictSet(get(), key_, value.get());
  EXPECT_EQ(CFGetRetainCount(value.get()), 2);
  dict_ = nullptr;
  EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST_F(CFUtilDictionaryTest, AMutableCopyIsIndependent) {
  CFUtil::CFDictSetInt(get(), key_, 1);
  const CSharedCFRef<CFMutableDictionaryRef> copy = CFUtil::CFDictMakeMutableCopy(get());
  CFUtil::CFDictSetInt(copy.get(), key_, 2);
  std::int32_t original = 0, copied = 0;
  EXPECT_TRUE(CFUtil::CFDictGetInt(get(), key_, original));
  EXPECT_TRUE(CFUtil::CFDictGetInt(copy.get(), key_, copied));
  EXPECT_EQ(original, 1);
  EXPECT_EQ(copied, 2);
}

TEST_F(CFUtilDictionaryTest, GetGivesTheValueOrNull) {
  CFTypeRef value = get();
  EXPECT_FALSE(CFUtil::CFDictGet(get(), key_, value));
  EXPECT_EQ(value, nullptr);
  CFUtil::CFDictSet(get(), key_, kCFBooleanFalse);
  EXPECT_TRUE(CFUtil::CFDictGet(get(), key_, value));
  EXPECT_EQ(value, kCFBooleanFalse);
}

TEST_F(CFUtilDictionaryTest, AddKeepsAValueThatIsThere) {
  CFUtil::CFDictAdd(get(), key_, kCFBooleanTrue);
  CFUtil::CFDictAdd(get(), key_, kCFBooleanFalse);
  EXPECT_EQ(CFDictionaryGetValue(get(), key_), kCFBooleanTrue);
}

TEST_F(CFUtilDictionaryTest, SetReplacesAValueThatIsThere) {
  CFUtil::CFDictSet(get(), key_, kCFBooleanTrue);
  CFUtil::CFDictSet(get(), key_, kCFBooleanFalse);
  EXPECT_EQ(CFDictionaryGetValue(get(), key_), kCFBooleanFalse);
}

TEST_F(CFUtilDictionaryTest, ANullValueRemovesTheKey) {
  const auto fill = [this] { CFUtil::CFDictSet(get(), key_, kCFBooleanTrue); };
  fill();
  CFUtil::CFDictSet(get(), key_, nullptr);
  EXPECT_EQ(CFDictionaryGetCount(get()), 0) << "after CFDictSet";
  fill();
  CFUtil::CFDictAdd(get(), key_, nullptr);
  EXPECT_EQ(CFDictionaryGetCount(get()), 0) << "after CFDictAdd";
  fill();
  CFUtil::CFDictSetString(get(), key_, nullptr);
  EXPECT_EQ(CFDictionaryGetCount(get()), 0) << "after CFDictSetString";
  fill();
  CFUtil::CFDictSetURL(get(), key_, nullptr);
  EXPECT_EQ(CFDictionaryGetCount(get()), 0) << "after CFDictSetURL";
}

TEST_F(CFUtilDictionaryTest, BooleansAreStoredAsTheTwoConstants) {
  CFUtil::CFDictSetBoolean(get(), key_, true);
  EXPECT_EQ(CFDictionaryGetValue(get(), key_), kCFBooleanTrue);
  bool value = false;
  EXPECT_TRUE(CFUtil::CFDictGetBoolean(get(), key_, value));
  EXPECT_TRUE(value);
  CFUtil::CFDictSetBoolean(get(), key_, false);
  EXPECT_EQ(CFDictionaryGetValue(get(), key_), kCFBooleanFalse);
  EXPECT_TRUE(CFUtil::CFDictGetBoolean(get(), key_, value));
  EXPECT_FALSE(value);
}

TEST_F(CFUtilDictionaryTest, ANumberIsNoBoolean) {
  CFUtil::CFDictSetInt(get(), key_, 1);
  bool value = true;
  EXPECT_FALSE(CFUtil::CFDictGetBoolean(get(), key_, value));
  EXPECT_FALSE(value);
}

TEST_F(CFUtilDictionaryTest, IntegersAreStoredAs32Bits) {
  for (const std::int32_t expected :
       {0, -1, 2189, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
    CFUtil::CFDictSetInt(get(), key_, expected);
    const auto number = static_cast<CFNumberRef>(CFDictionaryGetValue(get(), key_));
    EXPECT_EQ(CFNumberGetType(number), kCFNumberSInt32Type);
    std::int32_t value = 7;
    EXPECT_TRUE(CFUtil::CFDictGetInt(get(), key_, value));
    EXPECT_EQ(value, expected);
  }
}

TEST_F(CFUtilDictionaryTest, ARealReadAsAnIntegerLosesItsFraction) {
  CFUtil::CFDictSetDouble(get(), key_, -2.75);
  std::int32_t value = 7;
  EXPECT_TRUE(CFUtil::CFDictGetInt(get(), key_, value));
  EXPECT_EQ(value, -2);
}

TEST_F(CFUtilDictionaryTest, ABooleanOrStringIsNoNumber) {
  for (const CFTypeRef other : {CFTypeRef{kCFBooleanTrue}, CFTypeRef{CFSTR("1")}}) {
    CFUtil::CFDictSet(get(), key_, other);
    std::int32_t integer = 7;
    EXPECT_FALSE(CFUtil::CFDictGetInt(get(), key_, integer));
    EXPECT_EQ(integer, 0);
    double real = 7;
    EXPECT_FALSE(CFUtil::CFDictGetDouble(get(), key_, real));
    EXPECT_EQ(real, 0.0);
  }
}

TEST_F(CFUtilDictionaryTest, DoublesKeepEveryBit) {
  CFUtil::CFDictSetDouble(get(), key_, 0.1);
  double value = 7;
  EXPECT_TRUE(CFUtil::CFDictGetDouble(get(), key_, value));
  EXPECT_EQ(value, 0.1);
  CFUtil::CFDictSetInt(get(), key_, -3);
  EXPECT_TRUE(CFUtil::CFDictGetDouble(get(), key_, value));
  EXPECT_EQ(value, -3.0);
}

TEST_F(CFUtilDictionaryTest, StringsAreGivenWithoutARetain) {
  const auto stored = string("a string that is not a constant");
  CFUtil::CFDictSetString(get(), key_, stored.get());
  const CFIndex count = CFGetRetainCount(stored.get());
  CFStringRef value = nullptr;
  EXPECT_TRUE(CFUtil::CFDictGetString(get(), key_, value));
  EXPECT_EQ(value, stored.get());
  EXPECT_EQ(CFGetRetainCount(stored.get()), count);
}

TEST_F(CFUtilDictionaryTest, URLsAreStoredAsTheyAre) {
  const CSharedCFRef<CFURLRef> url =
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/a b"), kCFURLPOSIXPathStyle, false);
  CFUtil::CFDictSetURL(get(), key_, url.get());
  const CFIndex count = CFGetRetainCount(url.get());
  CFURLRef value = nullptr;
  EXPECT_TRUE(CFUtil::CFDictGetURL(get(), key_, value));
  EXPECT_EQ(value, url.get());
  EXPECT_EQ(CFGetRetainCount(url.get()), count);
}

TEST_F(CFUtilDictionaryTest, AStringIsNoURLAndAURLNoString) {
  const CSharedCFRef<CFURLRef> url =
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/a"), kCFURLPOSIXPathStyle, false);
  CFStringRef asString = CFSTR("untouched");
  CFURLRef asURL = url.get();
  CFUtil::CFDictSetURL(get(), key_, url.get());
  EXPECT_FALSE(CFUtil::CFDictGetString(get(), key_, asString));
  EXPECT_EQ(asString, nullptr);
  CFUtil::CFDictSetString(get(), key_, CFSTR("file:///a"));
  EXPECT_FALSE(CFUtil::CFDictGetURL(get(), key_, asURL));
  EXPECT_EQ(asURL, nullptr);
}

TEST_F(CFUtilDictionaryTest, AMissingKeyIsFalseAndNothing) {
  bool boolean = true;
  std::int32_t integer = 7;
  double real = 7;
  CFStringRef string = key_;
  CFURLRef url = reinterpret_cast<CFURLRef>(get());
  EXPECT_FALSE(CFUtil::CFDictGetBoolean(get(), key_, boolean));
  EXPECT_FALSE(CFUtil::CFDictGetInt(get(), key_, integer));
  EXPECT_FALSE(CFUtil::CFDictGetDouble(get(), key_, real));
  EXPECT_FALSE(CFUtil::CFDictGetString(get(), key_, string));
  EXPECT_FALSE(CFUtil::CFDictGetURL(get(), key_, url));
  EXPECT_FALSE(boolean);
  EXPECT_EQ(integer, 0);
  EXPECT_EQ(real, 0.0);
  EXPECT_EQ(string, nullptr);
  EXPECT_EQ(url, nullptr);
}

TEST_F(CFUtilDictionaryTest, ANullDictionaryHoldsNothingAndTakesNothing) {
  bool boolean = true;
  std::int32_t integer = 7;
  double real = 7;
  CFTypeRef any = key_;
  CFStringRef string = key_;
  CFURLRef url = reinterpret_cast<CFURLRef>(get());
  EXPECT_EQ(CFUtil::CFDictMakeMutableCopy(nullptr), nullptr);
  EXPECT_FALSE(CFUtil::CFDictGet(nullptr, key_, any));
  EXPECT_FALSE(CFUtil::CFDictGetBoolean(nullptr, key_, boolean));
  EXPECT_FALSE(CFUtil::CFDictGetInt(nullptr, key_, integer));
  EXPECT_FALSE(CFUtil::CFDictGetDouble(nullptr, key_, real));
  EXPECT_FALSE(CFUtil::CFDictGetString(nullptr, key_, string));
  EXPECT_FALSE(CFUtil::CFDictGetURL(nullptr, key_, url));
  EXPECT_EQ(any, nullptr);
  CFUtil::CFDictAdd(nullptr, key_, key_);
  CFUtil::CFDictSet(nullptr, key_, key_);
  CFUtil::CFDictSet(nullptr, key_, nullptr);
  CFUtil::CFDictSetBoolean(nullptr, key_, true);
  CFUtil::CFDictSetInt(nullptr, key_, 1);
  CFUtil::CFDictSetDouble(nullptr, key_, 1);
  CFUtil::CFDictSetString(nullptr, key_, key_);
  CFUtil::CFDictSetURL(nullptr, key_, nullptr);
}

TEST_F(CFUtilDictionaryTest, ANullKeyNamesNothing) {
  CFTypeRef any = key_;
  EXPECT_FALSE(CFUtil::CFDictGet(get(), nullptr, any));
  EXPECT_EQ(any, nullptr);
  CFUtil::CFDictAdd(get(), nullptr, key_);
  CFUtil::CFDictSet(get(), nullptr, key_);
  CFUtil::CFDictSetInt(get(), nullptr, 1);
  EXPECT_EQ(CFDictionaryGetCount(get()), 0);
}

class CFUtilArrayTest : public ::testing::Test {
 protected:
  void fill(std::vector<std::int32_t> values) {
    for (const std::int32_t value : values) CFUtil::CFArrayAppendInt(get(), value);
  }
  std::vector<std::int32_t> content() const {
    std::vector<std::int32_t> values;
    for (CFIndex i = 0; i < CFArrayGetCount(get()); ++i) {
      std::int32_t value = 0;
      EXPECT_TRUE(CFUtil::CFArrayGetIntAtIndex(get(), i, value)) << "at " << i;
      values.push_back(value);
    }
    return values;
  }
  CFMutableArrayRef get() const { return array_.get(); }
  CSharedCFRef<CFMutableArrayRef> array_ = CFUtil::CFArrayMakeMutable();
};

using ::testing::ElementsAre;

TEST_F(CFUtilArrayTest, ANewArrayIsEmptyAndRetainsWhatItHolds) {
  ASSERT_NE(get(), nullptr);
  EXPECT_EQ(CFArrayGetCount(get()), 0);
  const CSharedCFRef<CFMutableArrayRef> value = CFUtil::CFArrayMakeMutable();
  CFArrayAppendValue(get(), value.get());
  EXPECT_EQ(CFGetRetainCount(value.get()), 2);
  array_ = nullptr;
  EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST_F(CFUtilArrayTest, AMutableCopyIsIndependent) {
  fill({1});
  const CSharedCFRef<CFMutableArrayRef> copy = CFUtil::CFArrayMakeMutableCopy(get());
  CFUtil::CFArrayAppendInt(copy.get(), 2);
  EXPECT_EQ(CFArrayGetCount(copy.get()), 2);
  EXPECT_THAT(content(), ElementsAre(1));
}

TEST_F(CFUtilArrayTest, NumbersAreStoredAs32Bits) {
  fill({-5});
  EXPECT_EQ(CFNumberGetType(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(get(), 0))), kCFNumberSInt32Type);
}

TEST_F(CFUtilArrayTest, AddAppendsOnlyWhatIsAbsent) {
  EXPECT_TRUE(CFUtil::CFArrayAddInt(get(), 3));
  EXPECT_TRUE(CFUtil::CFArrayAddInt(get(), 4));
  EXPECT_FALSE(CFUtil::CFArrayAddInt(get(), 3));
  EXPECT_THAT(content(), ElementsAre(3, 4));
}

TEST_F(CFUtilArrayTest, AppendRepeatsWhatIsThere) {
  fill({3, 3});
  EXPECT_THAT(content(), ElementsAre(3, 3));
}

TEST_F(CFUtilArrayTest, FindContainsAndCountAgree) {
  fill({5, 7, 5, 5});
  EXPECT_EQ(CFUtil::CFArrayFindInt(get(), 5), 0);
  EXPECT_EQ(CFUtil::CFArrayFindInt(get(), 7), 1);
  EXPECT_EQ(CFUtil::CFArrayFindInt(get(), 9), kCFNotFound);
  EXPECT_TRUE(CFUtil::CFArrayContainsInt(get(), 7));
  EXPECT_FALSE(CFUtil::CFArrayContainsInt(get(), 9));
  EXPECT_EQ(CFUtil::CFArrayGetCountOfIntVal(get(), 5), 3);
  EXPECT_EQ(CFUtil::CFArrayGetCountOfIntVal(get(), 9), 0);
}

TEST_F(CFUtilArrayTest, ANumberOfAnotherTypeIsFoundByItsExactValue) {
  const std::int64_t wide = 5;
  const double real = 6.0, fraction = 7.5;
  const CSharedCFRef<CFNumberRef> numbers[] = {CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &wide),
                                               CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &real),
                                               CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &fraction)};
  for (const auto& number : numbers) CFArrayAppendValue(get(), number.get());
  EXPECT_EQ(CFUtil::CFArrayFindInt(get(), 5), 0);
  EXPECT_EQ(CFUtil::CFArrayFindInt(get(), 6), 1);
  EXPECT_EQ(CFUtil::CFArrayFindInt(get(), 7), kCFNotFound);
}

TEST_F(CFUtilArrayTest, OtherKindsArePassedOver) {
  CFArrayAppendValue(get(), CFSTR("5"));
  CFArrayAppendValue(get(), kCFBooleanTrue);
  EXPECT_FALSE(CFUtil::CFArrayContainsInt(get(), 5));
  EXPECT_FALSE(CFUtil::CFArrayContainsInt(get(), 1));
  EXPECT_TRUE(CFUtil::CFArrayAddInt(get(), 1));
  EXPECT_EQ(CFUtil::CFArrayFindInt(get(), 1), 2);
}

TEST_F(CFUtilArrayTest, GetAtAnIndexIsFalseOutsideAndForOtherKinds) {
  fill({8});
  CFArrayAppendValue(get(), CFSTR("8"));
  std::int32_t value = 0;
  EXPECT_TRUE(CFUtil::CFArrayGetIntAtIndex(get(), 0, value));
  EXPECT_EQ(value, 8);
  for (const CFIndex index : {CFIndex{1}, CFIndex{2}, CFIndex{-1}}) {
    value = 7;
    EXPECT_FALSE(CFUtil::CFArrayGetIntAtIndex(get(), index, value)) << "at " << index;
    EXPECT_EQ(value, 0) << "at " << index;
  }
}

TEST_F(CFUtilArrayTest, RemoveTakesTheFirstEqualNumber) {
  fill({5, 7, 5});
  EXPECT_TRUE(CFUtil::CFArrayRemoveInt(get(), 5));
  EXPECT_THAT(content(), ElementsAre(7, 5));
  EXPECT_FALSE(CFUtil::CFArrayRemoveInt(get(), 9));
  EXPECT_THAT(content(), ElementsAre(7, 5));
}

TEST_F(CFUtilArrayTest, RemoveAtAnIndexIgnoresOneThatIsOutside) {
  fill({5, 7});
  CFUtil::CFArrayRemoveValueAtIndex(get(), 2);
  CFUtil::CFArrayRemoveValueAtIndex(get(), -1);
  EXPECT_THAT(content(), ElementsAre(5, 7));
  CFUtil::CFArrayRemoveValueAtIndex(get(), 0);
  EXPECT_THAT(content(), ElementsAre(7));
}

TEST_F(CFUtilArrayTest, ANullArrayHoldsNothingAndTakesNothing) {
  std::int32_t value = 7;
  EXPECT_EQ(CFUtil::CFArrayMakeMutableCopy(nullptr), nullptr);
  EXPECT_FALSE(CFUtil::CFArrayContainsInt(nullptr, 1));
  EXPECT_EQ(CFUtil::CFArrayFindInt(nullptr, 1), kCFNotFound);
  EXPECT_EQ(CFUtil::CFArrayGetCountOfIntVal(nullptr, 1), 0);
  EXPECT_FALSE(CFUtil::CFArrayGetIntAtIndex(nullptr, 0, value));
  EXPECT_EQ(value, 0);
  EXPECT_FALSE(CFUtil::CFArrayAddInt(nullptr, 1));
  CFUtil::CFArrayAppendInt(nullptr, 1);
  EXPECT_FALSE(CFUtil::CFArrayRemoveInt(nullptr, 1));
  CFUtil::CFArrayRemoveValueAtIndex(nullptr, 0);
}

// The one line that writing the text leaves on standard error.
std::string consoleLine(const char* line) {
  ::testing::internal::CaptureStderr();
  CFUtil::LogToConsole(line);
  return ::testing::internal::GetCapturedStderr();
}

TEST(CFUtilSystemTest, AConsoleLineIsTheTextAsItIs) {
  EXPECT_THAT(consoleLine("TovanConfig::restartDaemon failed, 100%s of %@ %n"),
              ::testing::EndsWith("] TovanConfig::restartDaemon failed, 100%s of %@ %n\n"));
}

TEST(CFUtilSystemTest, ANullTextIsNoConsoleLine) { EXPECT_EQ(consoleLine(nullptr), ""); }

TEST(CFUtilSystemTest, TheHostHasANameAndTheFirstIsTheHostName) {
  const CSharedCFRef<CFArrayRef> names = CFUtil::HostNames();
  ASSERT_TRUE(names);
  ASSERT_GT(CFArrayGetCount(names.get()), 0);
  for (CFIndex i = 0; i < CFArrayGetCount(names.get()); ++i) {
    EXPECT_EQ(CFGetTypeID(CFArrayGetValueAtIndex(names.get(), i)), CFStringGetTypeID());
  }
  const CSharedCFRef<CFStringRef> first = CFUtil::HostName();
  EXPECT_EQ(text(first.get()), text(static_cast<CFStringRef>(CFArrayGetValueAtIndex(names.get(), 0))));
}

TEST(CFUtilSystemTest, TheFirstAddressIsTheHostAddress) {
  const CSharedCFRef<CFArrayRef> addresses = CFUtil::HostAddresses();
  const CSharedCFRef<CFStringRef> first = CFUtil::HostAddress();
  if (!addresses) {
    EXPECT_FALSE(first) << text(first.get());
    return;
  }
  ASSERT_GT(CFArrayGetCount(addresses.get()), 0);
  EXPECT_EQ(text(first.get()), text(static_cast<CFStringRef>(CFArrayGetValueAtIndex(addresses.get(), 0))));
}

}  // namespace
