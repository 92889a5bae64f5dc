// Clients of the daemon, and whether a restart ends the jobs under way.
#include "tests/control/control_test.h"

#include <tovan/service_control.h>
#include <tovan/service_pid_file.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdint>

namespace {

using plinth::CParamException;
using test::exists;
using test::isDict;
using test::thrownBy;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class MervaneClientTest : public test::ControlTest {
 protected:
  static std::vector<std::int32_t> clients() {
    std::vector<std::int32_t> pids;
    tovan::CServicePIDFile(CFSTR("mervaneclients")).get(pids);
    return pids;
  }
};

TEST_F(MervaneClientTest, IsRegisteredOnce) {
  EXPECT_TRUE(addMervaneClient());
  EXPECT_FALSE(addMervaneClient());
  EXPECT_THAT(clients(), ElementsAre(::getpid()));
}

TEST_F(MervaneClientTest, JoinsTheOthersDeadOnesIncluded) {
  writePIDFile(
      "<key>mervaneclients</key><array><integer>2147483646</integer><integer>1</integer></array>"
      "<key>other</key><array><integer>7</integer></array>");
  EXPECT_TRUE(addMervaneClient());
  EXPECT_THAT(clients(), ElementsAre(2147483646, 1, ::getpid()));
  EXPECT_THAT(test::readFile(pidPath()), HasSubstr("<key>other</key>"));
}

TEST_F(MervaneClientTest, MakesTheFolderForAllToRead) {
  const mode_t before = ::umask(077);
  EXPECT_TRUE(addMervaneClient());
  EXPECT_EQ(::umask(before), 077U) << "the mask is put back";
  struct stat info {};
  ASSERT_EQ(::stat(test::configurationFolder().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777u, 0755u);
}

TEST_F(MervaneClientTest, FolderThatIsThereStaysAsItIs) {
  test::makeFolders(test::configurationFolder());
  std::filesystem::permissions(test::configurationFolder(), std::filesystem::perms{0700});
  EXPECT_TRUE(addMervaneClient());
  EXPECT_EQ(std::filesystem::status(test::configurationFolder()).permissions(), std::filesystem::perms{0700});
}

TEST_F(MervaneClientTest, FolderThatCannotBeMadeIsAnErrorThatNamesIt) {
  test::writeFile(test::scratchHome() + "/Library", "");
  EXPECT_EQ(thrownBy<CParamException>([] { addMervaneClient(); }),
            "Couldn't create directory \"" + test::configurationFolder() + "/\", error = Not a directory");
  std::filesystem::remove(test::scratchHome() + "/Library");
}

TEST_F(MervaneClientTest, DamagedFileIsAnErrorAndStaysAsItIs) {
  test::makeFolders(test::configurationFolder());
  test::writeFile(pidPath(), "garbage");
  consoleOf([] { EXPECT_THROW(addMervaneClient(), plinth::CException); });
  EXPECT_EQ(test::readFile(pidPath()), "garbage");
}

TEST_F(MervaneClientTest, ProcessesThatRegisterAtOnceAreAllListed) {
  constexpr int kProcesses = 12;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(addMervaneClient() && !addMervaneClient() ? 0 : 1);
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_THAT(clients(), ::testing::UnorderedElementsAreArray(children));
}

class CancelJobsTest : public test::ControlTest {
 protected:
  static constexpr const char* kService = "jobcontroller:com.brant.lumisphere.cluster.admin";

  // Writes the instances of the job controller, an ordered section.
  static void writeInstances(const std::string& entries) {
    test::writeConfiguration("<key>serviceconfig</key><dict><key>" + std::string(kService) + "</key><dict>" + entries +
                             "</dict><key>other</key><dict/></dict><key>mine</key><true/>");
  }
  static void writeConfig(const std::string& config) {
    writeInstances("<key>first</key><dict><key>ckey</key><string>c</string>" + config + "</dict>");
  }
  // The whole file must be this, but for the version of the file.
  static ::testing::AssertionResult isConfig(const std::string& config) {
    return isDict("<key>serviceconfig</key><dict><key>" + std::string(kService) +
                      "</key><dict><key>first</key><dict><key>ckey</key><string>c</string>" + config +
                      "</dict></dict><key>other</key><dict/></dict><key>mine</key><true/>",
                  withoutVersion().get());
  }
  static plinth::CSharedCFRef<CFMutableDictionaryRef> withoutVersion() {
    const auto list = test::asDictionary(test::listFromText(configuration()));
    plinth::CSharedCFRef<CFMutableDictionaryRef> copy(
        CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, list.get()));
    CFDictionaryRemoveValue(copy.get(), CFSTR("Version"));
    return copy;
  }
};

TEST_F(CancelJobsTest, IsFalseWhereNothingIsConfigured) {
  EXPECT_FALSE(getCancelActiveJobsOnRestart());
  writeConfig("");
  EXPECT_FALSE(getCancelActiveJobsOnRestart());
  writeConfig("<key>config</key><dict><key>x</key><true/></dict>");
  EXPECT_FALSE(getCancelActiveJobsOnRestart());
}

TEST_F(CancelJobsTest, IsTheFirstInstancesSwitch) {
  writeConfig("<key>config</key><dict><key>cancelJobs</key><true/></dict>");
  EXPECT_TRUE(getCancelActiveJobsOnRestart());
  writeConfig("<key>config</key><dict><key>cancelJobs</key><false/></dict>");
  EXPECT_FALSE(getCancelActiveJobsOnRestart());
  writeConfig("<key>config</key><dict><key>cancelJobs</key><string>yes</string></dict>");
  EXPECT_FALSE(getCancelActiveJobsOnRestart()) << "a string is no switch";
  writeInstances(
      "<key>_orderList</key><array><string>b</string><string>a</string></array>"
      "<key>a</key><dict><key>config</key><dict><key>cancelJobs</key><true/></dict></dict>"
      "<key>b</key><dict/>");
  EXPECT_FALSE(getCancelActiveJobsOnRestart()) << "b is the first";
}

TEST_F(CancelJobsTest, TrueIsStoredBesideWhatIsThere) {
  writeConfig("<key>config</key><dict><key>x</key><integer>1</integer></dict>");
  setCancelActiveJobsOnRestart(true);
  EXPECT_TRUE(isConfig("<key>config</key><dict><key>x</key><integer>1</integer><key>cancelJobs</key><true/></dict>"));
  EXPECT_TRUE(getCancelActiveJobsOnRestart());
}

TEST_F(CancelJobsTest, FalseLeavesNoKey) {
  writeConfig("<key>config</key><dict><key>x</key><integer>1</integer><key>cancelJobs</key><true/></dict>");
  setCancelActiveJobsOnRestart(false);
  EXPECT_TRUE(isConfig("<key>config</key><dict><key>x</key><integer>1</integer></dict>"));
  EXPECT_FALSE(getCancelActiveJobsOnRestart());
}

TEST_F(CancelJobsTest, TrueMakesTheConfigurationWhenThereIsNone) {
  writeConfig("");
  setCancelActiveJobsOnRestart(false);
  EXPECT_TRUE(isConfig("")) << "nothing to remove";
  setCancelActiveJobsOnRestart(true);
  EXPECT_TRUE(isConfig("<key>config</key><dict><key>cancelJobs</key><true/></dict>"));
}

TEST_F(CancelJobsTest, WithoutAnInstanceNothingIsStored) {
  setCancelActiveJobsOnRestart(true);
  EXPECT_FALSE(exists(test::configurationPath()));
  writeInstances("");
  const std::string before = configuration();
  setCancelActiveJobsOnRestart(true);
  EXPECT_EQ(configuration(), before);
}

TEST_F(CancelJobsTest, ConfigurationThatIsNoDictionaryIsReportedAndKept) {
  writeConfig("<key>config</key><string>mine</string>");
  const std::string reason =
      " failed, exception = Configuration of service " + std::string(kService) + " is not a dictionary.\n";
  EXPECT_THAT(consoleOf([] { setCancelActiveJobsOnRestart(true); }),
              EndsWith("] TovanConfig::setCancelActiveJobsOnRestart" + reason));
  EXPECT_THAT(consoleOf([] { EXPECT_FALSE(getCancelActiveJobsOnRestart()); }),
              EndsWith("] TovanConfig::getCancelActiveJobsOnRestart" + reason));
  EXPECT_TRUE(isConfig("<key>config</key><string>mine</string>"));
}

TEST_F(CancelJobsTest, UnreadableFileIsReportedAndKept) {
  test::makeFolders(test::configurationFolder());
  test::writeFile(test::configurationPath(), "garbage");
  EXPECT_THAT(consoleOf([] { EXPECT_FALSE(getCancelActiveJobsOnRestart()); }),
              HasSubstr("] TovanConfig::getCancelActiveJobsOnRestart failed, exception = CPropertyListBasicFile::"));
  EXPECT_THAT(consoleOf([] { setCancelActiveJobsOnRestart(true); }),
              HasSubstr("] TovanConfig::setCancelActiveJobsOnRestart failed, exception = CPropertyListBasicFile::"));
  EXPECT_EQ(configuration(), "garbage");
}

}  // namespace
