// docs/job-description.md shows what the library writes.
#include "tests/launch/configuration.h"
#include "tests/launch/lists.h"

#include <tovan/launchctl_plist.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

namespace {

// The text between the first line that opens an XML block and the one that closes it.
std::string exampleIn(const std::string& page) {
  const std::string opening = "```xml\n";
  const std::string::size_type start = page.find(opening);
  const std::string::size_type end = page.find("```\n", start + 1);
  if (start == std::string::npos || end == std::string::npos) return "no example";
  return page.substr(start + opening.size(), end - start - opening.size());
}

TEST(JobDescriptionDocumentTest, ExampleIsWhatTheLibraryWrites) {
  std::string example = exampleIn(test::readFile(TOVAN_SOURCE_DIR "/docs/job-description.md"));
  const std::string uid = ".launchagent.1000<";
  const std::string::size_type at = example.find(uid);
  ASSERT_NE(at, std::string::npos) << example;
  example.replace(at, uid.size(), ".launchagent." + std::to_string(::geteuid()) + "<");

  test::writeConfiguration("<key>mervaneconfig</key><dict><key>ServerName</key><string>Render Host</string></dict>");
  const auto entry = test::cacheEntry("servicecontroller:com.brant.klarn.transcoder.klarn",
                                      "<key>LaunchHint</key><string>launchd.LaunchAgent.User</string>"
                                      "<key>Path</key><string>/srv/Lumisphere Services/LumisphereTranscoder</string>"
                                      "<key>CaptureKey</key><string>transcode</string><key>Logging</key><true/>");
  const auto job = tovan::CLaunchCtlPList::plistDataForService(entry, 1);
  EXPECT_TRUE(CFEqual(test::listFromText(example).get(), job.get())) << test::xmlOf(job.get());
  EXPECT_EQ(tovan::CLaunchCtlPList::plistFilePathForService(entry, 1)->str(),
            "~/Library/LaunchAgents/com.brant.klarn.transcoder.klarn-2.plist");

  // The indentation and the order of the keys are shown as they are, too.
  const std::string written = test::xmlOf(job.get());
  EXPECT_EQ(written.substr(written.find("<plist ")), example);
}

}  // namespace
