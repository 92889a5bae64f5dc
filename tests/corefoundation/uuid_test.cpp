#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "tests/corefoundation/value_support.h"

namespace {

using values::descriptionOf;
using values::Held;
using values::textOfOwned;

constexpr const char* kText = "68753A44-4D6F-1226-9C60-0050E4C00067";

Held<CFUUIDRef> uuidOf(std::string_view text) { return CFUUIDCreateFromString(nullptr, values::string(text)); }

TEST(CFUUIDTest, TextAndBytesLeadToEachOther) {
  const auto uuid = uuidOf(kText);
  ASSERT_NE(uuid.get(), nullptr);
  EXPECT_EQ(CFGetTypeID(uuid), CFUUIDGetTypeID());
  EXPECT_EQ(CFGetRetainCount(uuid), 1);
  EXPECT_EQ(textOfOwned(CFUUIDCreateString(nullptr, uuid)), kText);
  EXPECT_EQ(descriptionOf(uuid), kText);
  const CFUUIDBytes bytes = CFUUIDGetUUIDBytes(uuid);
  EXPECT_EQ(bytes.byte0, 0x68);
  EXPECT_EQ(bytes.byte4, 0x4d);
  EXPECT_EQ(bytes.byte15, 0x67);
  const Held<CFUUIDRef> again(CFUUIDCreateFromUUIDBytes(nullptr, bytes));
  EXPECT_TRUE(CFEqual(uuid, again));
  EXPECT_EQ(CFHash(uuid), CFHash(again));
}

TEST(CFUUIDTest, EitherCaseIsReadAndUpperCaseWritten) {
  const auto uuid = uuidOf("68753a44-4d6f-1226-9c60-0050e4c00067");
  EXPECT_TRUE(CFEqual(uuid, uuidOf(kText)));
  EXPECT_EQ(textOfOwned(CFUUIDCreateString(nullptr, uuid)), kText);
}

TEST(CFUUIDTest, OtherTextIsRefused) {
  for (const std::string& text :
       {std::string(), std::string("x"), std::string("68753A44-4D6F-1226-9C60-0050E4C0006"),
        std::string("68753A44-4D6F-1226-9C60-0050E4C000677"), std::string("{68753A44-4D6F-1226-9C60-0050E4C00067}"),
        std::string("68753A4404D6F-1226-9C60-0050E4C00067"), std::string("G8753A44-4D6F-1226-9C60-0050E4C00067"),
        std::string("68753A44-4D6F-1226-9C60-0050E4C0006\0", 36)}) {
    EXPECT_EQ(uuidOf(text).get(), nullptr) << text;
  }
  EXPECT_EQ(CFUUIDCreateFromString(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFUUIDCreateString(nullptr, nullptr), nullptr);
  EXPECT_EQ(CFUUIDGetUUIDBytes(nullptr).byte0, 0);
}

TEST(CFUUIDTest, NewOnesAreRandomAndDiffer) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const Held<CFUUIDRef> uuid(CFUUIDCreate(nullptr));
    const std::string text = textOfOwned(CFUUIDCreateString(nullptr, uuid));
    ASSERT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14], '4') << text << " does not say that it is random";
    EXPECT_TRUE(seen.insert(text).second) << text << " came twice";
  }
  EXPECT_FALSE(CFEqual(Held<CFUUIDRef>(CFUUIDCreate(nullptr)), Held<CFUUIDRef>(CFUUIDCreate(nullptr))));
}

}  // namespace
