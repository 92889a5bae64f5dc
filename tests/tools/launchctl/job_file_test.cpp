// What launchctl refuses before anything runs, and what its command line takes.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/scratch_home.h"
#include "tests/tools/launchctl/launchctl_testing.h"

namespace {

using test::CommandResult;
using test::JobFile;
using test::launchctl;
using testing::HasSubstr;

class JobFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string folder = test::scratchFolder("host");
    ASSERT_EQ(::chmod(folder.c_str(), 0700), 0);
    ::setenv("TOVAN_LAUNCHD", "embedded", 1);
    ::setenv("TOVAN_LAUNCHD_FOLDER", folder.c_str(), 1);
  }
  // Loading must fail, with these words, and load nothing.
  void expectRefused(const std::string& path, const std::string& words) {
    const CommandResult result = launchctl({"load", path});
    EXPECT_EQ(result.status, 1) << path;
    EXPECT_THAT(result.err, HasSubstr(path));
    EXPECT_THAT(result.err, HasSubstr(words));
    EXPECT_EQ(launchctl({"list"}).out, "PID\tStatus\tLabel\n");
  }
};
using LaunchctlCommandLineTest = JobFileTest;

JobFile sleeper(const std::string& label) {
  JobFile job(label);
  job.arguments({"/bin/sleep", "1000"}).write();
  return job;
}

TEST_F(JobFileTest, AFileThatOthersCanWriteIsRefused) {
  const JobFile job = sleeper("test.writable");
  for (const mode_t mode : {0664U, 0646U, 0666U}) {
    ASSERT_EQ(::chmod(job.path().c_str(), mode), 0);
    expectRefused(job.path(), "refused: others can write it");
  }
}

TEST_F(JobFileTest, AnotherUsersFileIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file away needs root";
  const JobFile job = sleeper("test.foreign");
  ASSERT_EQ(::chown(job.path().c_str(), 65534, 65534), 0);
  expectRefused(job.path(), "refused: it belongs to user 65534, not to you (0)");
}

TEST_F(JobFileTest, LinksFifosAndDevicesAreRefusedWithoutBlocking) {
  const JobFile job = sleeper("test.odd.files");
  ASSERT_EQ(::symlink(job.path().c_str(), job.in("link.plist").c_str()), 0);
  expectRefused(job.in("link.plist"), "refused: it is a symbolic link");
  ASSERT_EQ(::mkfifo(job.in("fifo.plist").c_str(), 0600), 0);
  expectRefused(job.in("fifo.plist"), "refused: it is not a regular file");
  expectRefused("/dev/null", "refused: it is not a regular file");
  expectRefused("/nowhere.plist", "cannot open it: No such file or directory");
}

TEST_F(JobFileTest, AFolderThatOthersCanWriteIsRefused) {
  const JobFile job = sleeper("test.folder");
  ASSERT_EQ(::chmod(job.folder().c_str(), 0777), 0);
  expectRefused(job.folder(), "refused: others can write it");
  ASSERT_EQ(::chmod(job.folder().c_str(), 0755), 0);
  const std::string link = job.in("link");
  ASSERT_EQ(::symlink(job.folder().c_str(), link.c_str()), 0);
  expectRefused(link, "refused: it is a symbolic link");
}

TEST_F(JobFileTest, GarbageIsRefusedWithItsPlace) {
  const std::string folder = test::scratchFolder("garbage");
  const struct {
    std::string content;
    std::string words;
  } cases[] = {
      {"", "job.plist: "},
      {"garbage", "job.plist: "},
      {"<plist version=\"1.0\"><dict><key>Label", "line 1"},
      {"<plist version=\"1.0\"><array/></plist>", "the root is not a dictionary"},
      {std::string(2U << 20U, ' '), "larger than 1 MiB"},
  };
  for (const auto& one : cases) {
    test::writeFile(folder + "/job.plist", one.content);
    ASSERT_EQ(::chmod((folder + "/job.plist").c_str(), 0644), 0);
    expectRefused(folder + "/job.plist", one.words);
  }
}

TEST_F(JobFileTest, WrongTypesAreNamedByFileAndKey) {
  const struct {
    const char* key;
    const char* value;
    const char* words;
  } cases[] = {
      {"Label", "<integer>1</integer>", "\"Label\" must be a string, not a number"},
      {"Label", "<string></string>", "\"Label\" is empty"},
      {"Label", "<string>a/b</string>", "\"Label\" holds a slash or a control character"},
      {"Label", "<string>a\nb</string>", "\"Label\" holds a slash or a control character"},
      {"Program", "<true/>", "\"Program\" must be a string, not a boolean"},
      {"Program", "<string>bin/sleep</string>", "\"Program\" must be an absolute path or a plain name"},
      {"Program", "<string>no-such-program-here</string>",
       "\"Program\": the program \"no-such-program-here\" is in none"},
      {"ProgramArguments", "<string>sleep</string>", "\"ProgramArguments\" must be an array of strings, not a string"},
      {"ProgramArguments", "<array><integer>1</integer></array>", "\"ProgramArguments[0]\" must be a string"},
      {"ProgramArguments", "<array/>", "neither \"Program\" nor \"ProgramArguments\" names a program"},
      {"EnvironmentVariables", "<array/>", "\"EnvironmentVariables\" must be a dictionary, not an array"},
      {"EnvironmentVariables", "<dict><key>A</key><integer>1</integer></dict>",
       "\"EnvironmentVariables.A\" must be a string"},
      {"EnvironmentVariables", "<dict><key>A=B</key><string/></dict>", "which is no name of a variable"},
      {"WorkingDirectory", "<string>relative</string>", "\"WorkingDirectory\" must be an absolute path"},
      {"RunAtLoad", "<string>yes</string>", "\"RunAtLoad\" must be a boolean, not a string"},
      {"KeepAlive", "<string>yes</string>", "\"KeepAlive\" must be a boolean or a dictionary, not a string"},
      {"KeepAlive", "<dict><key>SuccessfulExit</key><integer>1</integer></dict>",
       "\"KeepAlive.SuccessfulExit\" must be a boolean"},
      {"KeepAlive", "<dict><key>PathState</key><true/></dict>", "\"KeepAlive.PathState\" must be a dictionary"},
      {"KeepAlive", "<dict><key>PathState</key><dict><key>x</key><true/></dict></dict>", "must hold absolute paths"},
      {"KeepAlive", "<dict><key>PathState</key><dict><key>/x</key><string/></dict></dict>",
       "\"KeepAlive.PathState./x\" must be a boolean"},
      {"ExitTimeOut", "<string>30</string>", "\"ExitTimeOut\" must be a number of seconds, not a string"},
      {"ExitTimeOut", "<integer>-1</integer>", "\"ExitTimeOut\" must be a number of seconds from 0"},
      {"ThrottleInterval", "<real>nan</real>", "\"ThrottleInterval\" must be a number of seconds from 0"},
      {"StandardOutPath", "<data></data>", "\"StandardOutPath\" must be a string, not data"},
      {"StandardErrorPath", "<string>relative</string>", "\"StandardErrorPath\" must be an absolute path"},
      {"StandardInPath", "<string></string>", "\"StandardInPath\" must be an absolute path"},
  };
  for (const auto& one : cases) {
    JobFile job("test.types");
    job.arguments({"/bin/sleep", "1000"}).set(one.key, one.value).write();
    expectRefused(job.path(), one.words);
  }
}

TEST_F(JobFileTest, AnUnknownKeyIsReportedOnceAndIgnored) {
  JobFile job("test.unknown.key");
  job.arguments({"/bin/sleep", "1000"}).set("Nice", "<integer>5</integer>");
  job.set("KeepAlive", "<dict><key>NetworkState</key><true/></dict>");
  const CommandResult result = launchctl({"load", job.write()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "launchctl: " + job.path() +
                            ": the key \"KeepAlive.NetworkState\" is unknown here and ignored\n" +
                            "launchctl: " + job.path() + ": the key \"Nice\" is unknown here and ignored\n");
  EXPECT_TRUE(test::statusOf(job.label()));
  EXPECT_EQ(launchctl({"unload", job.path()}).err, "");
}

TEST_F(LaunchctlCommandLineTest, WrongOnesAreRefused) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{{},
                                                                     {"frobnicate"},
                                                                     {"load"},
                                                                     {"load", "-w"},
                                                                     {"load", "-S"},
                                                                     {"unload", "-q", "x"},
                                                                     {"list", "-x"},
                                                                     {"list", "-y"},
                                                                     {"list", "a", "b"},
                                                                     {"start"},
                                                                     {"stop", "a", "b"}}) {
    const CommandResult result = launchctl(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("launchctl help shows the verbs"));
  }
}

TEST_F(LaunchctlCommandLineTest, HelpNamesEveryVerb) {
  const CommandResult result = launchctl({"help"});
  EXPECT_EQ(result.status, 0);
  for (const char* const verb : {"load", "unload", "list", "start", "stop"}) EXPECT_THAT(result.out, HasSubstr(verb));
}

TEST_F(LaunchctlCommandLineTest, AnUnknownBackEndIsRefused) {
  ::setenv("TOVAN_LAUNCHD", "other", 1);
  const CommandResult result = launchctl({"list"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("it may be \"systemd\" or \"embedded\""));
}

TEST_F(LaunchctlCommandLineTest, SystemdWithoutAManagerSaysSo) {
  ::setenv("TOVAN_LAUNCHD", "systemd", 1);
  ::setenv("XDG_RUNTIME_DIR", test::scratchFolder("runtime").c_str(), 1);
  const CommandResult result = launchctl({"list"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("no systemd user manager answers"));
  ::unsetenv("TOVAN_LAUNCHD");
  EXPECT_EQ(launchctl({"list"}).status, 0) << "without a wish the embedded one is taken";
}

}  // namespace
