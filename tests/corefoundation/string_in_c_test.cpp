// Runs what string_in_c_test.c does in C.
#include "tests/corefoundation/string_in_c_test.h"

#include <gtest/gtest.h>

namespace {

TEST(CoreFoundationInCTest, StringsWork) { EXPECT_STREQ(stringsFromC(), nullptr); }
TEST(CoreFoundationInCTest, CollectionsNumbersAndDataWork) { EXPECT_STREQ(collectionsFromC(), nullptr); }
TEST(CoreFoundationInCTest, DatesTimeZonesIdentifiersAndErrorsWork) { EXPECT_STREQ(datesFromC(), nullptr); }
TEST(CoreFoundationInCTest, URLsAndBundlesWork) { EXPECT_STREQ(locationsFromC(), nullptr); }
TEST(CoreFoundationInCTest, PropertyListsAndStreamsWork) { EXPECT_STREQ(propertyListsFromC(), nullptr); }

}  // namespace
