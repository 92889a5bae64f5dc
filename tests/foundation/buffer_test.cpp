#include <gtest/gtest.h>
#include <plinth/buffer.h>
#include <plinth/exception.h>

#include <cstdint>
#include <string>

#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;

std::string bytes(const CBuffer& buffer) { return {reinterpret_cast<const char*>(buffer.data()), buffer.size()}; }

TEST(CBufferTest, BeginsEmpty) {
  const CBuffer buffer;
  EXPECT_EQ(buffer.size(), 0u);
  EXPECT_TRUE(buffer.isEmpty());
  EXPECT_NE(buffer.data(), nullptr);
  EXPECT_STREQ(buffer.typeName(), "CBuffer");
}

TEST(CBufferTest, OfASizeHoldsZeros) { EXPECT_EQ(bytes(CBuffer(3)), std::string(3, '\0')); }

TEST(CBufferTest, CopiesBytes) {
  std::string source("a\0b", 3);
  const CBuffer buffer(source.data(), source.size());
  source[0] = 'x';
  EXPECT_EQ(bytes(buffer), std::string("a\0b", 3));
  EXPECT_TRUE(CBuffer(nullptr, 0).isEmpty());
}

TEST(CBufferTest, RefusesNullBytesOfASize) {
  EXPECT_EQ(test::messageOf<CNullPointerException>([] { CBuffer(nullptr, 1); }), "Error: bytes is null!");
  CBuffer buffer("ab", 2);
  EXPECT_EQ(test::messageOf<CNullPointerException>([&] { buffer.append(nullptr, 1); }), "Error: bytes is null!");
  EXPECT_EQ(bytes(buffer), "ab");
}

TEST(CBufferTest, ResizeKeepsTheFirstBytesAndFillsUpWithZeros) {
  CBuffer buffer("abcd", 4);
  buffer.resize(2);
  EXPECT_EQ(bytes(buffer), "ab");
  buffer.resize(4);
  EXPECT_EQ(bytes(buffer), std::string("ab\0\0", 4));
  buffer.resize(0);
  EXPECT_TRUE(buffer.isEmpty());
}

TEST(CBufferTest, AppendsBytesAndBuffers) {
  CBuffer buffer("ab", 2);
  buffer.append("cd", 2);
  buffer.append(CBuffer("ef", 2));
  buffer.append(nullptr, 0);
  EXPECT_EQ(bytes(buffer), "abcdef");
}

TEST(CBufferTest, AppendsItsOwnBytesWhileItMoves) {
  CBuffer buffer("abc", 3);
  for (int i = 0; i < 10; ++i) buffer.append(buffer);
  EXPECT_EQ(buffer.size(), 3u << 10);
  buffer.append(buffer.data() + 1, 2);
  EXPECT_EQ(bytes(buffer).substr(buffer.size() - 5), "abcbc");
}

TEST(CBufferTest, RoomThatIsReservedIsUsedWithoutMoving) {
  CBuffer buffer;
  buffer.reserve(100);
  buffer.append("a", 1);
  const std::uint8_t* const place = buffer.data();
  buffer.resize(100);
  EXPECT_EQ(buffer.data(), place);
}

TEST(CBufferTest, SizesBeyondAllMemoryAreAnErrorThatChangesNothing) {
  CBuffer buffer("ab", 2);
  EXPECT_EQ(test::messageOf<CParamException>([&] { buffer.resize(SIZE_MAX); }),
            "CBuffer::resize failed: no memory for 18446744073709551615 bytes");
  EXPECT_EQ(test::messageOf<CParamException>([&] { buffer.reserve(SIZE_MAX); }),
            "CBuffer::reserve failed: no memory for 18446744073709551615 bytes");
  EXPECT_EQ(test::messageOf<CParamException>([&] { buffer.append("x", SIZE_MAX - 1); }),
            "CBuffer::append failed: no memory for 18446744073709551615 bytes");
  test::messageOf<CParamException>([] { CBuffer all(SIZE_MAX); });
  EXPECT_EQ(bytes(buffer), "ab");
}

TEST(CBufferTest, ClearsAndCompares) {
  CBuffer buffer("ab", 2);
  EXPECT_TRUE(buffer == CBuffer("ab", 2));
  EXPECT_FALSE(buffer == CBuffer("ac", 2));
  buffer.clear();
  EXPECT_TRUE(buffer == CBuffer());
}

TEST(CBufferTest, CopiesAreIndependent) {
  CBuffer original("ab", 2);
  CBuffer copy(original);
  copy.data()[0] = 'x';
  EXPECT_EQ(bytes(original), "ab");
  original = copy;
  EXPECT_EQ(bytes(original), "xb");
}

TEST(CBufferTest, GivesItsBytesAsData) {
  const CBuffer buffer("a\0b", 3);
  const CSharedCFRef<CFDataRef> data = buffer.copyData();
  ASSERT_EQ(CFDataGetLength(data.get()), 3);
  EXPECT_EQ(CFDataGetBytePtr(data.get())[2], 'b');
  EXPECT_EQ(CFGetRetainCount(data.get()), 1);
  EXPECT_EQ(CFDataGetLength(CBuffer().copyData().get()), 0);
}

TEST(CBufferTest, GivesItsBytesAsText) {
  EXPECT_EQ(test::text(CBuffer("caf\u00e9", 5).copyString()), "caf\u00e9");
  EXPECT_EQ(test::text(CBuffer("\xE9", 1).copyString(kCFStringEncodingISOLatin1)), "\u00e9");
  EXPECT_TRUE(CBuffer("\xE9", 1).copyString().isNull());
  EXPECT_EQ(test::text(CBuffer().copyString()), "");
}

TEST(CBufferedDataCopyTest, CopiesDataTextAndBuffers) {
  const UInt8 source[] = {1, 0, 255};
  const CSharedCFRef<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, source, 3));
  EXPECT_TRUE(CBufferedDataCopy(data.get()) == CBuffer(source, 3));
  EXPECT_TRUE(CBufferedDataCopy(source, 3) == CBuffer(source, 3));
  EXPECT_EQ(bytes(CBufferedDataCopy(CSTR("caf\u00e9"))), "caf\u00e9");
  EXPECT_EQ(CBufferedDataCopy(CSTR("")).size(), 0u);
  const CBufferRef original = makeShared<CBuffer>("ab", 2);
  CBufferedDataCopy copy(original);
  copy.resize(1);
  EXPECT_EQ(bytes(*original), "ab");
  EXPECT_STREQ(copy.typeName(), "CBufferedDataCopy");
}

TEST(CBufferedDataCopyTest, RefusesEmptySources) {
  EXPECT_EQ(test::messageOf<CNullPointerException>([] { CBufferedDataCopy copy{CFDataRef()}; }),
            "Error: data is null!");
  EXPECT_EQ(test::messageOf<CNullPointerException>([] { CBufferedDataCopy copy{CStringRef()}; }),
            "Error: text is null!");
  EXPECT_EQ(test::messageOf<CNullPointerException>([] { CBufferedDataCopy copy{CBufferRef()}; }),
            "Error: buffer is null!");
}

}  // namespace
