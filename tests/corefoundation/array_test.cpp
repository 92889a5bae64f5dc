#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "tests/corefoundation/value_support.h"

namespace {

using values::all;
using values::descriptionOf;
using values::Held;
using values::integer;
using values::string;

Held<CFMutableArrayRef> emptyArray() { return CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks); }

Held<CFMutableArrayRef> arrayOf(std::initializer_list<int> numbers) {
  auto array = emptyArray();
  for (const int number : numbers) CFArrayAppendValue(array, integer(number));
  return array;
}

const void* pointer(std::uintptr_t value) { return reinterpret_cast<const void*>(value); }

TEST(CFArrayTest, RetainsItsValuesAndReleasesThemWithItself) {
  const auto value = string("value");
  {
    const void* list[] = {value, value};
    const Held<CFArrayRef> array(CFArrayCreate(nullptr, list, 2, &kCFTypeArrayCallBacks));
    EXPECT_EQ(CFGetRetainCount(array), 1);
    EXPECT_EQ(CFGetTypeID(array), CFArrayGetTypeID());
    EXPECT_EQ(CFGetRetainCount(value), 3);
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 1), value.get());
    EXPECT_EQ(CFGetRetainCount(value), 3);
  }
  EXPECT_EQ(CFGetRetainCount(value), 1);
}

TEST(CFArrayTest, RefusesWhatItCannotHold) {
  const auto value = string("value");
  const void* list[] = {value, nullptr};
  EXPECT_EQ(CFArrayCreate(nullptr, list, -1, &kCFTypeArrayCallBacks), nullptr);
  EXPECT_EQ(CFArrayCreate(nullptr, nullptr, 1, &kCFTypeArrayCallBacks), nullptr);
  EXPECT_EQ(CFArrayCreate(nullptr, list, 2, &kCFTypeArrayCallBacks), nullptr);
  EXPECT_EQ(CFGetRetainCount(value), 1);
  EXPECT_EQ(CFArrayCreateCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFArrayCreateMutableCopy(nullptr, 0, nullptr), nullptr);
  EXPECT_EQ(CFArrayGetCount(nullptr), 0);
  EXPECT_EQ(CFArrayGetValueAtIndex(nullptr, 0), nullptr);
}

TEST(CFArrayTest, CopyOfAnImmutableArrayIsTheSameObject) {
  const Held<CFArrayRef> array(CFArrayCreate(nullptr, nullptr, 0, &kCFTypeArrayCallBacks));
  const Held<CFArrayRef> copy(CFArrayCreateCopy(nullptr, array));
  EXPECT_EQ(copy.get(), array.get());
  EXPECT_EQ(CFGetRetainCount(array), 2);
}

TEST(CFArrayTest, CopiesOfAMutableArrayStandAlone) {
  const auto value = string("value");
  const auto array = emptyArray();
  CFArrayAppendValue(array, value);
  {
    const Held<CFArrayRef> copy(CFArrayCreateCopy(nullptr, array));
    const Held<CFMutableArrayRef> changing(CFArrayCreateMutableCopy(nullptr, 0, array));
    EXPECT_EQ(CFGetRetainCount(value), 4);
    CFArrayRemoveAllValues(array);
    EXPECT_EQ(CFGetRetainCount(value), 3);
    EXPECT_EQ(CFArrayGetCount(copy), 1);
    EXPECT_EQ(CFArrayGetCount(changing), 1);
    CFArrayAppendValue(changing, value);
    EXPECT_EQ(CFArrayGetCount(changing), 2);
  }
  EXPECT_EQ(CFGetRetainCount(value), 1);
}

TEST(CFArrayTest, AnImmutableArrayDoesNotChange) {
  const auto value = string("value");
  const void* list[] = {value};
  const Held<CFArrayRef> array(CFArrayCreate(nullptr, list, 1, &kCFTypeArrayCallBacks));
  const CFMutableArrayRef forced = const_cast<CFMutableArrayRef>(array.get());
  CFArrayAppendValue(forced, value);
  CFArrayInsertValueAtIndex(forced, 0, value);
  CFArraySetValueAtIndex(forced, 0, CFSTR("other"));
  CFArrayRemoveValueAtIndex(forced, 0);
  CFArrayRemoveAllValues(forced);
  CFArrayReplaceValues(forced, CFRangeMake(0, 1), nullptr, 0);
  CFArrayAppendArray(forced, array, CFRangeMake(0, 1));
  CFArrayExchangeValuesAtIndices(forced, 0, 0);
  EXPECT_EQ(descriptionOf(array), "(\"value\")");
  EXPECT_EQ(CFGetRetainCount(value), 2);
}

TEST(CFArrayTest, ValuesAreAppendedInsertedSetAndRemovedInPlace) {
  const auto array = arrayOf({1, 2, 3});
  CFArrayInsertValueAtIndex(array, 0, integer(0));
  CFArrayInsertValueAtIndex(array, 4, integer(5));
  CFArrayInsertValueAtIndex(array, 4, integer(4));
  EXPECT_EQ(descriptionOf(array), "(0, 1, 2, 3, 4, 5)");
  CFArraySetValueAtIndex(array, 2, integer(22));
  CFArraySetValueAtIndex(array, 6, integer(6));
  EXPECT_EQ(descriptionOf(array), "(0, 1, 22, 3, 4, 5, 6)");
  CFArrayRemoveValueAtIndex(array, 0);
  CFArrayRemoveValueAtIndex(array, 5);
  EXPECT_EQ(descriptionOf(array), "(1, 22, 3, 4, 5)");
  CFArrayExchangeValuesAtIndices(array, 0, 4);
  CFArrayExchangeValuesAtIndices(array, 1, 1);
  EXPECT_EQ(descriptionOf(array), "(5, 22, 3, 4, 1)");
  CFArrayRemoveAllValues(array);
  EXPECT_EQ(descriptionOf(array), "()");
}

TEST(CFArrayTest, WrongIndexesAndNullsChangeNothing) {
  const auto array = arrayOf({1, 2});
  CFArrayInsertValueAtIndex(array, 3, integer(9));
  CFArrayInsertValueAtIndex(array, -1, integer(9));
  CFArraySetValueAtIndex(array, 3, integer(9));
  CFArraySetValueAtIndex(array, -1, integer(9));
  CFArrayRemoveValueAtIndex(array, 2);
  CFArrayRemoveValueAtIndex(array, -1);
  CFArrayExchangeValuesAtIndices(array, 0, 2);
  CFArrayReplaceValues(array, CFRangeMake(1, 2), nullptr, 0);
  CFArrayReplaceValues(array, CFRangeMake(0, 1), nullptr, 1);
  CFArrayAppendArray(array, array, CFRangeMake(1, 2));
  CFArrayAppendArray(array, nullptr, CFRangeMake(0, 0));
  CFArrayAppendValue(array, nullptr);
  CFArrayInsertValueAtIndex(array, 0, nullptr);
  CFArraySetValueAtIndex(array, 0, nullptr);
  CFArrayAppendValue(nullptr, integer(1));
  EXPECT_EQ(descriptionOf(array), "(1, 2)");
  EXPECT_EQ(CFArrayGetValueAtIndex(array, 2), nullptr);
  EXPECT_EQ(CFArrayGetValueAtIndex(array, -1), nullptr);
}

TEST(CFArrayTest, ReplacingAndRemovingReleaseExactlyWhatGoes) {
  const auto kept = string("kept");
  const auto gone = string("gone");
  const auto array = emptyArray();
  CFArrayAppendValue(array, kept);
  for (int i = 0; i < 3; ++i) CFArrayAppendValue(array, gone);
  EXPECT_EQ(CFGetRetainCount(gone), 4);
  const void* list[] = {kept};
  CFArrayReplaceValues(array, CFRangeMake(1, 2), list, 1);
  EXPECT_EQ(CFGetRetainCount(gone), 2);
  EXPECT_EQ(CFGetRetainCount(kept), 3);
  CFArraySetValueAtIndex(array, 2, kept);
  EXPECT_EQ(CFGetRetainCount(gone), 1);
  CFArraySetValueAtIndex(array, 2, kept);
  EXPECT_EQ(CFGetRetainCount(kept), 4) << "a value put in its own place must survive";
  CFArrayRemoveValueAtIndex(array, 0);
  EXPECT_EQ(CFGetRetainCount(kept), 3);
}

TEST(CFArrayTest, AppendsARangeOfAnotherArrayAndOfItself) {
  const auto array = arrayOf({1, 2, 3});
  CFArrayAppendArray(array, arrayOf({7, 8, 9}), CFRangeMake(1, 2));
  EXPECT_EQ(descriptionOf(array), "(1, 2, 3, 8, 9)");
  CFArrayAppendArray(array, array, all(array));
  EXPECT_EQ(descriptionOf(array), "(1, 2, 3, 8, 9, 1, 2, 3, 8, 9)");
}

TEST(CFArrayTest, FindsValuesByContentWithinTheRange) {
  const auto array = arrayOf({5, 6, 5, 7, 5});
  const auto five = values::real(5.0);
  EXPECT_EQ(CFArrayGetFirstIndexOfValue(array, all(array), five), 0);
  EXPECT_EQ(CFArrayGetFirstIndexOfValue(array, CFRangeMake(1, 4), five), 2);
  EXPECT_EQ(CFArrayGetLastIndexOfValue(array, all(array), five), 4);
  EXPECT_EQ(CFArrayGetLastIndexOfValue(array, CFRangeMake(1, 3), five), 2);
  EXPECT_EQ(CFArrayGetCountOfValue(array, all(array), five), 3);
  EXPECT_EQ(CFArrayGetCountOfValue(array, CFRangeMake(1, 3), five), 1);
  EXPECT_TRUE(CFArrayContainsValue(array, CFRangeMake(3, 1), integer(7)));
  EXPECT_FALSE(CFArrayContainsValue(array, CFRangeMake(0, 3), integer(7)));
  EXPECT_EQ(CFArrayGetFirstIndexOfValue(array, all(array), integer(8)), kCFNotFound);
  EXPECT_EQ(CFArrayGetLastIndexOfValue(array, all(array), nullptr), kCFNotFound);
  EXPECT_EQ(CFArrayGetFirstIndexOfValue(array, CFRangeMake(0, 6), five), kCFNotFound);
  EXPECT_FALSE(CFArrayContainsValue(nullptr, CFRangeMake(0, 0), five));
}

TEST(CFArrayTest, GivesTheValuesOfARange) {
  const auto array = arrayOf({1, 2, 3});
  const void* list[3] = {};
  CFArrayGetValues(array, CFRangeMake(1, 2), list);
  EXPECT_EQ(list[0], CFArrayGetValueAtIndex(array, 1));
  EXPECT_EQ(list[1], CFArrayGetValueAtIndex(array, 2));
  EXPECT_EQ(list[2], nullptr);
  CFArrayGetValues(array, CFRangeMake(2, 2), list + 2);
  EXPECT_EQ(list[2], nullptr);
}

TEST(CFArrayTest, AppliesAFunctionInOrder) {
  const auto array = arrayOf({1, 2, 3, 4});
  std::string seen;
  CFArrayApplyFunction(
      array, CFRangeMake(1, 3),
      [](const void* value, void* context) { *static_cast<std::string*>(context) += descriptionOf(value); }, &seen);
  EXPECT_EQ(seen, "234");
}

CFComparisonResult byNumber(const void* left, const void* right, void* context) {
  ++*static_cast<int*>(context);
  return CFNumberCompare(static_cast<CFNumberRef>(left), static_cast<CFNumberRef>(right), nullptr);
}

TEST(CFArrayTest, SortsTheRangeAndFindsItsPlacesByBisection) {
  const auto array = arrayOf({9, 5, 3, 8, 1, 7, 0});
  int calls = 0;
  CFArraySortValues(array, CFRangeMake(1, 5), byNumber, &calls);
  EXPECT_EQ(descriptionOf(array), "(9, 1, 3, 5, 7, 8, 0)");
  EXPECT_GT(calls, 0);
  const CFRange sorted = CFRangeMake(1, 5);
  EXPECT_EQ(CFArrayBSearchValues(array, sorted, integer(5), byNumber, &calls), 3);
  EXPECT_EQ(CFArrayBSearchValues(array, sorted, integer(4), byNumber, &calls), 3);
  EXPECT_EQ(CFArrayBSearchValues(array, sorted, integer(-1), byNumber, &calls), 1);
  EXPECT_EQ(CFArrayBSearchValues(array, sorted, integer(99), byNumber, &calls), 6);
  EXPECT_EQ(CFArrayBSearchValues(array, CFRangeMake(1, 7), integer(5), byNumber, &calls), kCFNotFound);
  CFArraySortValues(array, CFRangeMake(1, 7), byNumber, &calls);
  EXPECT_EQ(descriptionOf(array), "(9, 1, 3, 5, 7, 8, 0)");
}

TEST(CFArrayTest, SortingKeepsTheOrderOfEqualValues) {
  std::mt19937 random(3);
  std::vector<std::uintptr_t> expected;
  const Held<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, nullptr));
  for (std::uintptr_t i = 0; i < 1000; ++i) {
    expected.push_back((random() % 10) << 32 | i);
    CFArrayAppendValue(array, pointer(expected.back()));
  }
  const auto key = [](const void* value) { return reinterpret_cast<std::uintptr_t>(value) >> 32; };
  std::ranges::stable_sort(expected, {}, [](std::uintptr_t value) { return value >> 32; });
  CFArraySortValues(
      array, all(array),
      [](const void* left, const void* right, void* context) {
        const auto& keyOf = *static_cast<decltype(key)*>(context);
        const auto one = keyOf(left);
        const auto other = keyOf(right);
        return one < other ? kCFCompareLessThan : one > other ? kCFCompareGreaterThan : kCFCompareEqualTo;
      },
      const_cast<void*>(static_cast<const void*>(&key)));
  for (std::size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(CFArrayGetValueAtIndex(array, static_cast<CFIndex>(i)), pointer(expected[i])) << i;
  }
}

TEST(CFArrayTest, AComparatorThatContradictsItselfLosesNoValue) {
  const Held<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, nullptr));
  for (std::uintptr_t i = 1; i <= 500; ++i) CFArrayAppendValue(array, pointer(i));
  std::mt19937 random(11);
  CFArraySortValues(
      array, all(array),
      [](const void*, const void*, void* context) {
        return static_cast<CFComparisonResult>(static_cast<int>((*static_cast<std::mt19937*>(context))() % 3) - 1);
      },
      &random);
  for (std::uintptr_t i = 1; i <= 500; ++i) EXPECT_EQ(CFArrayGetCountOfValue(array, all(array), pointer(i)), 1) << i;
}

TEST(CFArrayTest, WithoutCallbacksHoldsBarePointersAndNull) {
  const void* list[] = {nullptr, pointer(16), nullptr};
  const Held<CFArrayRef> array(CFArrayCreate(nullptr, list, 3, nullptr));
  EXPECT_EQ(CFArrayGetCount(array), 3);
  EXPECT_EQ(CFArrayGetLastIndexOfValue(array, all(array), nullptr), 2);
  EXPECT_EQ(descriptionOf(array), "(0x0, 0x10, 0x0)");
  const Held<CFArrayRef> same(CFArrayCreate(nullptr, list, 3, nullptr));
  EXPECT_TRUE(CFEqual(array, same));
  EXPECT_EQ(CFHash(array), CFHash(same));
}

// Callbacks of a client's own: values are C strings, kept as copies.
int copiesAlive = 0;
const void* keepCopy(CFAllocatorRef, const void* value) {
  ++copiesAlive;
  return strdup(static_cast<const char*>(value));
}
void freeCopy(CFAllocatorRef, const void* value) {
  --copiesAlive;
  std::free(const_cast<void*>(value));
}
CFStringRef describe(const void* value) {
  return CFStringCreateWithCString(nullptr, static_cast<const char*>(value), kCFStringEncodingUTF8);
}
Boolean sameText(const void* left, const void* right) {
  return std::strcmp(static_cast<const char*>(left), static_cast<const char*>(right)) == 0;
}

TEST(CFArrayTest, CallbacksOfAClientAreCopiedAndUsed) {
  copiesAlive = 0;
  {
    Held<CFMutableArrayRef> array;
    {
      CFArrayCallBacks callBacks{0, keepCopy, freeCopy, describe, sameText};
      array = Held<CFMutableArrayRef>(CFArrayCreateMutable(nullptr, 0, &callBacks));
      std::memset(&callBacks, 0xff, sizeof callBacks);
    }
    char text[] = "one";
    CFArrayAppendValue(array, text);
    CFArrayAppendValue(array, "two");
    text[0] = 'X';
    EXPECT_EQ(copiesAlive, 2);
    EXPECT_EQ(descriptionOf(array), "(one, two)");
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array, all(array), "two"), 1);
    const Held<CFArrayRef> copy(CFArrayCreateCopy(nullptr, array));
    EXPECT_EQ(copiesAlive, 4);
    EXPECT_TRUE(CFEqual(array, copy));
    CFArraySetValueAtIndex(array, 0, "three");
    CFArrayRemoveValueAtIndex(array, 1);
    EXPECT_EQ(copiesAlive, 3);
    EXPECT_FALSE(CFEqual(array, copy));
    EXPECT_EQ(descriptionOf(copy), "(one, two)");
  }
  EXPECT_EQ(copiesAlive, 0);
}

TEST(CFArrayTest, EqualityAndHashGoByContent) {
  const auto array = arrayOf({1, 2, 3});
  const Held<CFArrayRef> copy(CFArrayCreateCopy(nullptr, array));
  EXPECT_TRUE(CFEqual(array, copy));
  EXPECT_EQ(CFHash(array), CFHash(copy));
  EXPECT_FALSE(CFEqual(array, arrayOf({1, 2})));
  EXPECT_FALSE(CFEqual(array, arrayOf({1, 3, 2})));
  const Held<CFArrayRef> bare(CFArrayCreate(nullptr, nullptr, 0, nullptr));
  EXPECT_FALSE(CFEqual(bare, emptyArray())) << "arrays that compare their values in different ways are not equal";
}

// A value whose release reaches back into the array it came from.
CFMutableArrayRef reentered = nullptr;
TEST(CFArrayTest, AReleaseMayCallBackIntoTheArray) {
  const CFArrayCallBacks callBacks{
      0, nullptr, [](CFAllocatorRef, const void*) { CFArrayAppendValue(reentered, nullptr); }, nullptr, nullptr};
  Held<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &callBacks));
  reentered = array;
  for (std::uintptr_t i = 1; i < 10; ++i) CFArrayAppendValue(array, pointer(i));
  CFArrayRemoveAllValues(array);
  EXPECT_EQ(CFArrayGetCount(array), 9) << "each of the nine releases appended one value";
  CFArrayRemoveValueAtIndex(array, 0);
  EXPECT_EQ(CFArrayGetCount(array), 9);
  reentered = nullptr;
}

TEST(CFArrayTest, ACapacityIsOnlyAHint) {
  const Held<CFMutableArrayRef> tight(CFArrayCreateMutable(nullptr, 1, &kCFTypeArrayCallBacks));
  const Held<CFMutableArrayRef> vast(CFArrayCreateMutable(nullptr, PTRDIFF_MAX, &kCFTypeArrayCallBacks));
  for (int i = 0; i < 100; ++i) CFArrayAppendValue(tight, integer(i));
  EXPECT_EQ(CFArrayGetCount(tight), 100);
  EXPECT_EQ(CFArrayGetCount(vast), 0);
}

TEST(CFArrayTest, RandomChangesAgreeWithAPlainVector) {
  std::mt19937 random(5);
  const auto array = emptyArray();
  std::vector<CFNumberRef> pool;
  for (int i = 0; i < 20; ++i) {
    const int value = 1000 + i;
    pool.push_back(CFNumberCreate(nullptr, kCFNumberIntType, &value));
  }
  std::vector<const void*> expected;
  for (int round = 0; round < 3000; ++round) {
    const std::size_t at = random() % (expected.size() + 1);
    const std::size_t length = random() % (std::min<std::size_t>(expected.size() - at, 5) + 1);
    std::vector<const void*> fresh;
    for (std::size_t i = random() % 6; i > 0; --i) fresh.push_back(pool[random() % pool.size()]);
    CFArrayReplaceValues(array, CFRangeMake(static_cast<CFIndex>(at), static_cast<CFIndex>(length)), fresh.data(),
                         static_cast<CFIndex>(fresh.size()));
    const auto place = expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(at),
                                      expected.begin() + static_cast<std::ptrdiff_t>(at + length));
    expected.insert(place, fresh.begin(), fresh.end());
    ASSERT_EQ(CFArrayGetCount(array), static_cast<CFIndex>(expected.size()));
    for (std::size_t i = 0; i < expected.size(); ++i) {
      ASSERT_EQ(CFArrayGetValueAtIndex(array, static_cast<CFIndex>(i)), expected[i]) << "round " << round;
    }
  }
  for (const CFNumberRef number : pool) {
    EXPECT_EQ(CFGetRetainCount(number), 1 + CFArrayGetCountOfValue(array, all(array), number));
    CFRelease(number);
  }
}

}  // namespace
