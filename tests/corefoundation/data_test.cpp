#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "tests/corefoundation/value_support.h"

namespace {

using values::descriptionOf;
using values::Held;

const UInt8* bytesOf(std::string_view text) { return reinterpret_cast<const UInt8*>(text.data()); }

Held<CFDataRef> dataOf(std::string_view text) {
  return CFDataCreate(nullptr, bytesOf(text), static_cast<CFIndex>(text.size()));
}
Held<CFMutableDataRef> mutableData(std::string_view text) { return CFDataCreateMutableCopy(nullptr, 0, dataOf(text)); }
std::string contentOf(CFDataRef data) {
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<std::size_t>(CFDataGetLength(data))};
}

TEST(CFDataTest, KeepsACopyOfTheBytes) {
  std::string original = "hello";
  const auto copy = dataOf(original);
  original[0] = 'J';
  EXPECT_EQ(contentOf(copy), "hello");
  EXPECT_EQ(CFGetTypeID(copy), CFDataGetTypeID());
  EXPECT_EQ(CFGetRetainCount(copy), 1);
}

TEST(CFDataTest, MayBeEmptyAndStillPointsSomewhere) {
  const auto empty = dataOf("");
  EXPECT_EQ(CFDataGetLength(empty), 0);
  EXPECT_NE(CFDataGetBytePtr(empty), nullptr);
  const Held<CFDataRef> ofNull(CFDataCreate(nullptr, nullptr, 0));
  EXPECT_NE(CFDataGetBytePtr(ofNull), nullptr);
  const Held<CFMutableDataRef> changing(CFDataCreateMutable(nullptr, 0));
  EXPECT_NE(CFDataGetBytePtr(changing), nullptr);
  EXPECT_TRUE(CFEqual(ofNull, changing));
}

TEST(CFDataTest, RefusesImpossibleLengths) {
  EXPECT_EQ(CFDataCreate(nullptr, bytesOf("x"), -1), nullptr);
  EXPECT_EQ(CFDataCreate(nullptr, nullptr, 1), nullptr);
  EXPECT_EQ(CFDataCreateWithBytesNoCopy(nullptr, nullptr, 1, kCFAllocatorNull), nullptr);
  EXPECT_EQ(CFDataCreateWithBytesNoCopy(nullptr, bytesOf("x"), -1, kCFAllocatorNull), nullptr);
  EXPECT_EQ(CFDataCreateCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFDataCreateMutableCopy(nullptr, 0, nullptr), nullptr);
  EXPECT_EQ(CFDataGetLength(nullptr), 0);
  EXPECT_EQ(CFDataGetBytePtr(nullptr), nullptr);
}

TEST(CFDataTest, LeavesBytesAloneThatSomebodyElseFrees) {
  char bytes[] = "outside";
  Held<CFDataRef> outside(CFDataCreateWithBytesNoCopy(nullptr, bytesOf(bytes), 7, kCFAllocatorNull));
  EXPECT_EQ(CFDataGetBytePtr(outside), bytesOf(bytes));
  const Held<CFDataRef> copy(CFDataCreateCopy(nullptr, outside));
  outside = Held<CFDataRef>();
  std::memset(bytes, 'x', 7);
  EXPECT_EQ(contentOf(copy), "outside") << "a copy must not lean on bytes that others may free";
}

// A leak or a double free here is what AddressSanitizer reports.
TEST(CFDataTest, TakesOverABlockAndFreesIt) {
  UInt8* const block = static_cast<UInt8*>(std::malloc(3));
  std::memcpy(block, "abc", 3);
  const Held<CFDataRef> taken(CFDataCreateWithBytesNoCopy(nullptr, block, 3, kCFAllocatorDefault));
  EXPECT_EQ(CFDataGetBytePtr(taken), block);
  const Held<CFDataRef> copy(CFDataCreateCopy(nullptr, taken));
  EXPECT_EQ(contentOf(copy), "abc");
}

TEST(CFDataTest, CopyOfImmutableDataIsTheSameObject) {
  const auto original = dataOf("same");
  const Held<CFDataRef> copy(CFDataCreateCopy(nullptr, original));
  EXPECT_EQ(copy.get(), original.get());
  EXPECT_EQ(CFGetRetainCount(original), 2);
}

TEST(CFDataTest, CopiesOfMutableDataStandAlone) {
  const auto original = mutableData("before");
  const Held<CFDataRef> copy(CFDataCreateCopy(nullptr, original));
  const Held<CFMutableDataRef> changing(CFDataCreateMutableCopy(nullptr, 0, original));
  CFDataAppendBytes(original, bytesOf("!"), 1);
  EXPECT_EQ(contentOf(copy), "before");
  EXPECT_EQ(contentOf(changing), "before");
  CFDataAppendBytes(copy.get() == nullptr ? nullptr : const_cast<CFMutableDataRef>(copy.get()), bytesOf("!"), 1);
  EXPECT_EQ(contentOf(copy), "before") << "immutable data changed";
  EXPECT_EQ(CFDataGetMutableBytePtr(const_cast<CFMutableDataRef>(copy.get())), nullptr);
}

TEST(CFDataTest, IsEqualByContent) {
  EXPECT_TRUE(CFEqual(dataOf("abc"), mutableData("abc")));
  EXPECT_EQ(CFHash(dataOf("abc")), CFHash(mutableData("abc")));
  EXPECT_FALSE(CFEqual(dataOf("abc"), dataOf("abd")));
  EXPECT_FALSE(CFEqual(dataOf("abc"), dataOf("ab")));
}

TEST(CFDataTest, GivesBytesOfARangeInsideOnly) {
  const auto source = dataOf("abcdef");
  UInt8 buffer[8] = "-------";
  CFDataGetBytes(source, CFRangeMake(2, 3), buffer);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer)), "cde----");
  for (const CFRange outside : {CFRangeMake(4, 3), CFRangeMake(-1, 2), CFRangeMake(7, 0), CFRangeMake(0, -1),
                                CFRangeMake(1, PTRDIFF_MAX), CFRangeMake(PTRDIFF_MAX, 1)}) {
    CFDataGetBytes(source, outside, buffer);
  }
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer)), "cde----");
}

TEST(CFDataTest, GrowsWithZerosAndShrinks) {
  const auto changing = mutableData("ab");
  CFDataSetLength(changing, 4);
  EXPECT_EQ(contentOf(changing), std::string("ab\0\0", 4));
  CFDataIncreaseLength(changing, 1);
  EXPECT_EQ(CFDataGetLength(changing), 5);
  CFDataIncreaseLength(changing, -4);
  EXPECT_EQ(contentOf(changing), "a");
  CFDataSetLength(changing, 2);
  EXPECT_EQ(contentOf(changing), std::string("a\0", 2)) << "bytes cut off must not come back";
  CFDataSetLength(changing, -1);
  CFDataIncreaseLength(changing, -3);
  EXPECT_EQ(CFDataGetLength(changing), 2);
  EXPECT_THROW(CFDataIncreaseLength(changing, PTRDIFF_MAX), std::bad_alloc);
  EXPECT_EQ(CFDataGetLength(changing), 2);
}

TEST(CFDataTest, ReplacesARangeByMoreFewerAndAsManyBytes) {
  const auto changing = mutableData("0123456789");
  CFDataReplaceBytes(changing, CFRangeMake(2, 3), bytesOf("abc"), 3);
  EXPECT_EQ(contentOf(changing), "01abc56789");
  CFDataReplaceBytes(changing, CFRangeMake(2, 3), bytesOf("-"), 1);
  EXPECT_EQ(contentOf(changing), "01-56789");
  CFDataReplaceBytes(changing, CFRangeMake(2, 1), bytesOf("<long>"), 6);
  EXPECT_EQ(contentOf(changing), "01<long>56789");
  CFDataDeleteBytes(changing, CFRangeMake(0, 2));
  EXPECT_EQ(contentOf(changing), "<long>56789");
  CFDataDeleteBytes(changing, CFRangeMake(6, 5));
  EXPECT_EQ(contentOf(changing), "<long>");
  CFDataReplaceBytes(changing, CFRangeMake(0, 0), bytesOf(">"), 1);
  EXPECT_EQ(contentOf(changing), "><long>");
  CFDataReplaceBytes(changing, CFRangeMake(7, 1), bytesOf("x"), 1);
  CFDataReplaceBytes(changing, CFRangeMake(0, 1), nullptr, 1);
  CFDataReplaceBytes(changing, CFRangeMake(0, 1), bytesOf("x"), -1);
  EXPECT_EQ(contentOf(changing), "><long>") << "a range or length that is wrong must change nothing";
}

TEST(CFDataTest, TakesItsOwnBytes) {
  const auto changing = mutableData("abcdef");
  for (int i = 0; i < 6; ++i) CFDataAppendBytes(changing, CFDataGetBytePtr(changing), CFDataGetLength(changing));
  EXPECT_EQ(CFDataGetLength(changing), 6 * 64);
  const std::string content = contentOf(changing);
  for (std::size_t i = 0; i < content.size(); ++i) ASSERT_EQ(content[i], "abcdef"[i % 6]) << i;
  const auto shifted = mutableData("abcdef");
  CFDataReplaceBytes(shifted, CFRangeMake(0, 1), CFDataGetBytePtr(shifted) + 2, 3);
  EXPECT_EQ(contentOf(shifted), "cdebcdef");
}

TEST(CFDataTest, TheBytesOfMutableDataMayBeWritten) {
  const auto changing = mutableData("abc");
  CFDataGetMutableBytePtr(changing)[1] = 'X';
  EXPECT_EQ(contentOf(changing), "aXc");
}

TEST(CFDataTest, RandomChangesAgreeWithAPlainString) {
  std::mt19937 random(7);
  const Held<CFMutableDataRef> changing(CFDataCreateMutable(nullptr, 1 << 30));
  std::string expected;
  for (int round = 0; round < 5000; ++round) {
    const std::size_t at = random() % (expected.size() + 1);
    const std::size_t length = random() % (expected.size() - at + 1);
    const std::string piece(random() % 20, static_cast<char>('a' + random() % 26));
    CFDataReplaceBytes(changing, CFRangeMake(static_cast<CFIndex>(at), static_cast<CFIndex>(length)), bytesOf(piece),
                       static_cast<CFIndex>(piece.size()));
    expected.replace(at, length, piece);
    ASSERT_EQ(contentOf(changing), expected) << "round " << round;
  }
}

TEST(CFDataTest, IsDescribedByLengthAndFirstBytes) {
  EXPECT_EQ(descriptionOf(dataOf("hello")), "{length = 5, bytes = 0x68656c6c6f}");
  EXPECT_EQ(descriptionOf(dataOf(std::string(25, 'a'))),
            "{length = 25, bytes = 0x616161616161616161616161616161616161616161616161...}");
}

}  // namespace
