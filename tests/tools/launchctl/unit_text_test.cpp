// The texts of units, against systemd's rules for them.
#include <gmock/gmock.h>

#include "tools/launchctl/failure.h"
#include "tools/launchctl/systemd/record.h"
#include "tools/launchctl/systemd/unit_text.h"

#include <signal.h>

namespace {

using launchctl::escapedLabel;
using launchctl::JobToLoad;
using launchctl::quotedWord;
using launchctl::UnitNames;
using testing::HasSubstr;
using testing::Not;

JobToLoad jobWith(const std::string& entries) {
  JobToLoad job;
  job.description = launchctl::describeJob(
      launchctl::parseDictionary("<plist version=\"1.0\"><dict><key>Label</key><string>a b%</string>"
                                 "<key>Program</key><string>/bin/true</string>" +
                                 entries + "</dict></plist>"),
      nullptr);
  job.environment = {{"PATH", "/x y%:/bin"}};
  return job;
}

std::string service(const std::string& entries) {
  return launchctl::serviceUnit(jobWith(entries), UnitNames("a b%"), "/home/a b%/$x", "/opt/launchd-host");
}

TEST(UnitTextTest, AWordIsQuotedSoThatItComesOutUnchanged) {
  EXPECT_EQ(quotedWord(""), "\"\"");
  EXPECT_EQ(quotedWord("a b"), "\"a b\"");
  EXPECT_EQ(quotedWord("50%"), "\"50%%\"");
  EXPECT_EQ(quotedWord("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(quotedWord("a\nb\tc"), "\"a\\x0ab\\x09c\"");
}

TEST(UnitTextTest, ALabelBecomesAUnitNameOfItsOwn) {
  EXPECT_EQ(escapedLabel("com.brant-2_x"), "com.brant-2_x");
  EXPECT_EQ(escapedLabel("a b@c:%"), "a\\x20b\\x40c\\x3a\\x25");
  EXPECT_NE(escapedLabel("a b"), escapedLabel("a\\x20b")) << "two labels, one unit";
  EXPECT_THROW(UnitNames(std::string(100, '%')), launchctl::Failure);
}

TEST(UnitTextTest, PathsAndThePathVariableAreQuotedAndDollarsMeanNothing) {
  const std::string unit = service("");
  EXPECT_THAT(unit, HasSubstr("\nExecStart=:\"/opt/launchd-host\" --become-job "
                              "\"/home/a b%%/$x/tovan-job-a\\\\x20b\\\\x25.plist\"\n"));
  EXPECT_THAT(unit, HasSubstr("\nEnvironment=\"PATH=/x y%%:/bin\"\n"));
  EXPECT_THAT(unit, HasSubstr("\nDescription=Launch agent a b%%\n"));
}

TEST(UnitTextTest, TimesAreSetOnPurpose) {
  const std::string unit =
      service("<key>ExitTimeOut</key><real>1.5</real><key>ThrottleInterval</key><real>0.25</real>");
  EXPECT_THAT(unit, HasSubstr("\nStartLimitIntervalSec=0\n"));
  EXPECT_THAT(unit, HasSubstr("\nTimeoutStopSec=1500ms\n"));
  EXPECT_THAT(unit, HasSubstr("\nRestartSec=250ms\n"));
  EXPECT_THAT(service(""), HasSubstr("\nRestartSec=10000ms\n"));
  EXPECT_THAT(service(""), HasSubstr("\nTimeoutStopSec=20000ms\n"));
  EXPECT_THAT(service("<key>ExitTimeOut</key><integer>0</integer>"), HasSubstr("\nTimeoutStopSec=infinity\n"));
}

TEST(UnitTextTest, TheRestartFollowsTheConditions) {
  EXPECT_THAT(service(""), HasSubstr("\nRestart=no\n"));
  EXPECT_THAT(service("<key>KeepAlive</key><true/>"), HasSubstr("\nRestart=always\n"));
  EXPECT_THAT(service("<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/></dict>"),
              HasSubstr("\nRestart=on-success\nRestartPreventExitStatus=SIGHUP SIGINT SIGTERM SIGPIPE\n"));
  EXPECT_THAT(service("<key>KeepAlive</key><dict><key>SuccessfulExit</key><false/></dict>"),
              HasSubstr("\nRestart=on-failure\nRestartForceExitStatus=SIGHUP SIGINT SIGTERM SIGPIPE\n"));
  const std::string triggered = service(
      "<key>KeepAlive</key><dict><key>SuccessfulExit</key><true/><key>PathState</key>"
      "<dict><key>/t</key><true/></dict></dict>");
  EXPECT_THAT(triggered, HasSubstr("\nRestart=always\n"));
  EXPECT_THAT(triggered, Not(HasSubstr("[Install]"))) << "the trigger starts it, not the session";
}

TEST(UnitTextTest, ThePathUnitNamesWhatItCanExpress) {
  const auto unit = [](const std::string& states) {
    return launchctl::pathUnit(
        jobWith("<key>KeepAlive</key><dict><key>PathState</key><dict>" + states + "</dict></dict>"), UnitNames("a b%"));
  };
  const std::string plain = unit("<key>/t x%</key><true/><key>/brake</key><false/>");
  EXPECT_THAT(plain, HasSubstr("\nUnit=tovan-job-a\\x20b\\x25.service\n"));
  EXPECT_THAT(plain, HasSubstr("\nPathExists=/t x%%\n"));
  EXPECT_THAT(plain, HasSubstr("\nAfter=tovan-watch-a\\x20b\\x25.service\n")) << "nothing starts unwatched";
  EXPECT_THAT(plain, HasSubstr("\nTriggerLimitIntervalSec=0\n"));
  EXPECT_THAT(plain, Not(HasSubstr("brake")));
  EXPECT_EQ(unit("<key>/brake</key><false/>"), "") << "no path unit without a path";
  EXPECT_EQ(unit("<key>/line\nbreak</key><true/><key>/blank </key><true/>"), "") << "these are the watch's";
}

TEST(UnitTextTest, TheManagersWordsForAnEndBecomeAStatus) {
  EXPECT_EQ(launchctl::exitStatusOf("exited", "0"), 0);
  EXPECT_EQ(launchctl::exitStatusOf("exited", "3"), 3 << 8);
  EXPECT_EQ(launchctl::exitStatusOf("killed", "TERM"), SIGTERM);
  EXPECT_EQ(launchctl::exitStatusOf("dumped", "SEGV") & 0x7f, SIGSEGV);
  EXPECT_EQ(launchctl::exitStatusOf("", ""), launchctl::kExitUnknown);
  EXPECT_EQ(launchctl::exitStatusOf("killed", "NONSENSE"), launchctl::kExitUnknown);
  EXPECT_EQ(launchctl::exitStatusOf("exited", "many"), launchctl::kExitUnknown);
}

}  // namespace
