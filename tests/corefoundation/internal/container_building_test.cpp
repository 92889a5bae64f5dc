// What this folder's readers build values with: ownership and content.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/corefoundation/array.h"
#include "platform/corefoundation/data.h"
#include "platform/corefoundation/dictionary.h"
#include "platform/corefoundation/number.h"
#include "tests/corefoundation/value_support.h"

namespace {

using values::descriptionOf;
using values::Held;
using values::string;

TEST(ContainerBuildingTest, ArraysTakeOverReferences) {
  for (const bool changing : {false, true}) {
    const auto one = string("one");
    const auto two = string("two");
    {
      const void* objects[] = {CFRetain(one), CFRetain(two)};
      const Held<CFArrayRef> array(changing ? cf::createMutableArrayTaking(objects) : cf::createArrayTaking(objects));
      EXPECT_EQ(CFGetRetainCount(one), 2);
      EXPECT_EQ(descriptionOf(array), "(\"one\", \"two\")");
      EXPECT_EQ(cf::isMutable(array), changing);
      EXPECT_EQ(cf::items(array).size(), 2u);
      EXPECT_EQ(cf::items(array)[1], two.get());
    }
    EXPECT_EQ(CFGetRetainCount(one), 1);
    EXPECT_EQ(CFGetRetainCount(two), 1);
  }
}

TEST(ContainerBuildingTest, EmptyArraysAreArraysOfObjects) {
  const Held<CFArrayRef> array(cf::createArrayTaking({}));
  const Held<CFMutableArrayRef> changing(cf::createMutableArrayTaking({}));
  EXPECT_TRUE(CFEqual(array, changing));
  const auto value = string("value");
  CFArrayAppendValue(changing, value);
  EXPECT_EQ(CFGetRetainCount(value), 2);
  EXPECT_TRUE(cf::items(nullptr).empty());
}

TEST(ContainerBuildingTest, DictionariesTakeOverReferencesInOrder) {
  for (const bool changing : {false, true}) {
    for (const int count : {0, 1, 8, 9, 500}) {
      std::vector<Held<CFStringRef>> held;
      std::vector<cf::KeyAndValue> pairs;
      for (int i = 0; i < count; ++i) {
        held.push_back(string("key" + std::to_string(i)));
        pairs.push_back({CFRetain(held.back()), CFRetain(held.back())});
      }
      {
        const Held<CFDictionaryRef> dictionary(changing ? cf::createMutableDictionaryTaking(pairs)
                                                        : cf::createDictionaryTaking(pairs));
        ASSERT_EQ(CFDictionaryGetCount(dictionary), count);
        EXPECT_EQ(cf::isMutable(dictionary), changing);
        std::size_t at = 0;
        for (const cf::DictionaryEntry& entry : cf::entries(dictionary)) {
          ASSERT_EQ(entry.key, held[at].get());
          ASSERT_EQ(entry.value, held[at].get());
          ++at;
        }
        EXPECT_EQ(at, held.size());
        for (const auto& key : held) {
          ASSERT_EQ(CFDictionaryGetValue(dictionary, string(values::textOf(key))), key.get());
          ASSERT_EQ(CFGetRetainCount(key), 3);
        }
        EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("absent")), nullptr);
      }
      for (const auto& key : held) ASSERT_EQ(CFGetRetainCount(key), 1);
    }
  }
}

TEST(ContainerBuildingTest, OfEqualKeysTheLastValueCountsAndTheRestIsReleased) {
  for (const bool changing : {false, true}) {
    const auto key = string("key");
    const auto sameKey = string("key");
    const auto first = string("first");
    const auto last = string("last");
    {
      const cf::KeyAndValue pairs[] = {
          {CFRetain(key), CFRetain(first)}, {CFSTR("other"), kCFBooleanTrue}, {CFRetain(sameKey), CFRetain(last)}};
      const Held<CFDictionaryRef> dictionary(changing ? cf::createMutableDictionaryTaking(pairs)
                                                      : cf::createDictionaryTaking(pairs));
      EXPECT_EQ(descriptionOf(dictionary), R"({"key" = "last", "other" = true})");
      EXPECT_EQ(CFGetRetainCount(key), 2);
      EXPECT_EQ(CFGetRetainCount(sameKey), 1);
      EXPECT_EQ(CFGetRetainCount(first), 1);
      EXPECT_EQ(CFGetRetainCount(last), 2);
    }
    EXPECT_EQ(CFGetRetainCount(key), 1);
    EXPECT_EQ(CFGetRetainCount(last), 1);
  }
}

TEST(ContainerBuildingTest, EntriesSkipWhatWasRemoved) {
  const Held<CFMutableDictionaryRef> dictionary(cf::createMutableDictionaryTaking({}));
  for (const char* const key : {"a", "b", "c", "d"}) CFDictionarySetValue(dictionary, string(key), kCFBooleanTrue);
  for (const char* const key : {"a", "c", "d"}) CFDictionaryRemoveValue(dictionary, string(key));
  const cf::DictionaryEntries left = cf::entries(dictionary);
  ASSERT_NE(left.begin(), left.end());
  EXPECT_TRUE(CFEqual(left.begin()->key, CFSTR("b")));
  EXPECT_EQ(std::next(left.begin()), left.end());
  EXPECT_EQ(cf::entries(nullptr).begin(), cf::entries(nullptr).end());
}

TEST(ContainerBuildingTest, DataTakesOverABlock) {
  auto* const block = static_cast<std::uint8_t*>(std::malloc(2));
  std::memcpy(block, "ab", 2);
  const Held<CFDataRef> data(cf::createDataTaking(block, 2));
  EXPECT_EQ(cf::bytes(data).data(), block);
  EXPECT_FALSE(cf::isMutable(data));
  const Held<CFDataRef> empty(cf::createDataTaking(nullptr, 0));
  EXPECT_EQ(CFDataGetLength(empty), 0);
  EXPECT_NE(CFDataGetBytePtr(empty), nullptr);
  EXPECT_TRUE(cf::bytes(nullptr).empty());
}

TEST(ContainerBuildingTest, DataOfALengthIsFilledByItsMaker) {
  const Held<CFMutableDataRef> data(cf::createDataOfLength(3));
  ASSERT_EQ(CFDataGetLength(data), 3);
  std::memcpy(CFDataGetMutableBytePtr(data), "xyz", 3);
  CFDataAppendBytes(data, reinterpret_cast<const UInt8*>("!"), 1);
  EXPECT_EQ(descriptionOf(data), "{length = 4, bytes = 0x78797a21}");
  const Held<CFMutableDataRef> none(cf::createDataOfLength(0));
  EXPECT_EQ(CFDataGetLength(none), 0);
}

TEST(NumberFormsTest, UnsignedValuesAboveTheSignedRangeAreKept) {
  const Held<CFNumberRef> greatest(cf::createUnsigned(UINT64_MAX));
  const Held<CFNumberRef> next(cf::createUnsigned(std::uint64_t{1} << 63));
  const Held<CFNumberRef> fits(cf::createUnsigned(INT64_MAX));
  EXPECT_EQ(cf::numberValue(greatest).form, cf::NumberForm::kUnsigned);
  EXPECT_EQ(cf::numberValue(greatest).largeUnsigned, UINT64_MAX);
  EXPECT_EQ(cf::numberValue(fits).form, cf::NumberForm::kSigned);
  EXPECT_EQ(descriptionOf(greatest), "18446744073709551615");
  EXPECT_EQ(CFNumberGetType(greatest), kCFNumberSInt64Type);
  EXPECT_FALSE(CFNumberIsFloatType(greatest));
  SInt64 stored = 0;
  EXPECT_FALSE(CFNumberGetValue(greatest, kCFNumberSInt64Type, &stored));
  EXPECT_EQ(stored, INT64_MAX);
  double real = 0;
  EXPECT_FALSE(CFNumberGetValue(greatest, kCFNumberDoubleType, &real));
  EXPECT_EQ(real, 18446744073709551616.0);
  EXPECT_TRUE(CFNumberGetValue(next, kCFNumberDoubleType, &real));
  EXPECT_EQ(real, 9223372036854775808.0);

  EXPECT_EQ(CFNumberCompare(fits, next, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(next, fits, nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(next, greatest, nullptr), kCFCompareLessThan);
  const Held<CFNumberRef> sameAsNext(cf::createReal(9223372036854775808.0));
  EXPECT_TRUE(CFEqual(next, sameAsNext));
  EXPECT_EQ(CFHash(next), CFHash(sameAsNext));
  const Held<CFNumberRef> beyond(cf::createReal(18446744073709551616.0));
  EXPECT_EQ(CFNumberCompare(greatest, beyond, nullptr), kCFCompareLessThan);
  EXPECT_EQ(CFNumberCompare(greatest, kCFNumberNaN, nullptr), kCFCompareGreaterThan);
  EXPECT_EQ(CFNumberCompare(Held<CFNumberRef>(cf::createInteger(-1)), greatest, nullptr), kCFCompareLessThan);
}

TEST(NumberFormsTest, IntegersAndRealsTellTheirForm) {
  const Held<CFNumberRef> integer(cf::createInteger(-5'000'000'000));
  EXPECT_EQ(cf::numberValue(integer).form, cf::NumberForm::kSigned);
  EXPECT_EQ(cf::numberValue(integer).integer, -5'000'000'000);
  const Held<CFNumberRef> real(cf::createReal(1.5));
  EXPECT_EQ(cf::numberValue(real).form, cf::NumberForm::kReal);
  EXPECT_EQ(cf::numberValue(real).real, 1.5);
}

}  // namespace
