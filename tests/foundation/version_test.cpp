#include <tovan/version.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(VersionTest, TheTextHasTwoBlanksBetweenItsFields) {
  EXPECT_EQ(std::string(TovanCoreVersionString), "@(#)PROGRAM:TovanCore  PROJECT:TovanCore-303\n");
}

TEST(VersionTest, TheNumberIsThatOfTheProject) { EXPECT_EQ(TovanCoreVersionNumber, 303.0); }

}  // namespace
