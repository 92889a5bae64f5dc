#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <plinth/uuid_string.h>

#include <set>
#include <string>

#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;

TEST(CUUIDStringTest, IsAFreshRandomUUIDInUpperCase) {
  const CUUIDString identifier;
  EXPECT_THAT(identifier.str(),
              ::testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
  EXPECT_STREQ(identifier.typeName(), "CUUIDString");
}

TEST(CUUIDStringTest, NoTwoAreEqual) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(CUUIDString().str());
  EXPECT_EQ(seen.size(), 1000u);
}

TEST(CUUIDStringTest, IsHeldLikeAnyString) {
  const CUUIDStringRef identifier = makeShared<CUUIDString>();
  const CStringRef string = identifier;
  EXPECT_EQ(test::text(string), identifier->str());
  EXPECT_EQ(CUUIDStringRef(string).get(), identifier.get());
  EXPECT_TRUE(CUUIDStringRef(CSTR("plain")).isNull());
}

}  // namespace
