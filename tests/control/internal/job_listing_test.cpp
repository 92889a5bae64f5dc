// Reading from launchctl's listing whether a job is loaded.
#include "control/launch_agent.h"

#include "tests/launch/lists.h"

#include <plinth/string.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using tovan::listsJob;

const std::string kListing = test::document("<dict><key>Label</key><string>com.brant.test</string></dict>");

bool lists(const std::string& output) { return listsJob(output, plinth::CSTR("com.brant.test")); }

TEST(JobListingTest, ListingOfTheJobIsOne) {
  EXPECT_TRUE(lists(kListing));
  EXPECT_TRUE(lists("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + kListing + "\n"));
  EXPECT_TRUE(lists("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n" + kListing + "\r\n")) << "as a terminal shows it";
}

TEST(JobListingTest, WhatTheToolSaysAroundItDoesNotMatter) {
  EXPECT_TRUE(lists("launchctl: a warning\n" + kListing + "a postscript\n"));
}

TEST(JobListingTest, ComplaintIsNone) {
  EXPECT_FALSE(lists(""));
  EXPECT_FALSE(lists("launchctl list returned unknown response\n"));
  EXPECT_FALSE(lists("Could not find service \"com.brant.test\"\n"));
}

TEST(JobListingTest, ListingOfAnotherJobIsNone) {
  EXPECT_FALSE(lists(test::document("<dict><key>Label</key><string>com.brant.test-2</string></dict>")));
}

TEST(JobListingTest, WhatIsNoJobIsNone) {
  EXPECT_FALSE(lists(test::document("<dict/>")));
  EXPECT_FALSE(lists(test::document("<dict><key>Label</key><true/></dict>")));
  EXPECT_FALSE(lists(test::document("<array><string>com.brant.test</string></array>")));
  EXPECT_FALSE(lists(kListing.substr(0, kListing.size() / 2))) << "cut off";
  EXPECT_FALSE(lists("<?xml"));
}

}  // namespace
