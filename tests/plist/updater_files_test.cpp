// Where the updater's files lie, and its copying.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/plist/updater_support.h"
#include "tests/support/failing_system_call.h"

namespace {

using namespace test;
using plinth::CSTR;
using tovan::TovanConfigUpdater;

class UpdaterFilesTest : public UpdaterTest {
 protected:
  const std::string source = folder + "/source";
  const std::string target = folder + "/target";

  std::string copied(const std::string& from, const std::string& to, unsigned int mode) {
    return thrownBy([&] { updater.copyFile(CSTR(from), CSTR(to), mode); });
  }
  // What a call throws in a process of its own in which these system calls fail.
  template <class Call>
  static std::string thrownWithout(const std::vector<long>& systemCalls, int error, Call call) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      bool isRefused = true;
      for (const long number : systemCalls) isRefused = makeSystemCallFail(number, error) && isRefused;
      const std::string text = isRefused ? thrownBy(call) : "no filter";
      const ssize_t written = ::write(ends[1], text.data(), text.size());
      ::_exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    std::string text(4096, '\0');
    const ssize_t count = ::read(ends[0], text.data(), text.size());
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
  }
  // In a process where no mode can be changed.
  template <class Call>
  static std::string thrownWithoutChmod(Call call) {
    std::vector<long> calls = {SYS_fchmodat};
#ifdef SYS_chmod
    calls.push_back(SYS_chmod);
#endif
    return thrownWithout(calls, EPERM, call);
  }
};

TEST_F(UpdaterFilesTest, TheThreeFilesLieInTheHomeAndInTheClusterFramework) {
  const TovanConfigUpdater standard(reported);
  const std::string file = scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist";
  EXPECT_EQ(standard.filePath(TovanConfigUpdater::kUserFile)->str(), file);
  EXPECT_EQ(standard.filePath(TovanConfigUpdater::kPreviousDefaultsFile)->str(), file + ".default");
  EXPECT_EQ(standard.filePath(TovanConfigUpdater::kMasterFile)->str(),
            TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Resources/LumisphereConfig.plist.default");
}

TEST_F(UpdaterFilesTest, TheConfigurationFolderIsMadeForTheFirstFiles) {
  std::filesystem::remove_all(scratchHome() + "/Library");
  TovanConfigUpdater standard(reported);
  EXPECT_TRUE(standard.run()) << reported.str();
  EXPECT_EQ(readFile(standard.filePath(TovanConfigUpdater::kUserFile)->str()),
            readFile(standard.filePath(TovanConfigUpdater::kMasterFile)->str()));
  EXPECT_EQ(modeOf(scratchHome() + "/Library/Application Support/Lumisphere"), 0700U);
  std::filesystem::remove_all(scratchHome() + "/Library");
}

TEST_F(UpdaterFilesTest, ARunLooksForTheHomeAnew) {
  std::filesystem::remove_all(scratchHome() + "/Library");
  TovanConfigUpdater standard(reported);
  const std::string other = scratchFolder("other home");
  ::setenv("HOME", other.c_str(), 1);
  EXPECT_TRUE(standard.run()) << reported.str();
  ::setenv("HOME", scratchHome().c_str(), 1);
  EXPECT_TRUE(exists(other + "/Library/Application Support/Lumisphere/LumisphereConfig.plist"));
  EXPECT_FALSE(exists(scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist"));
}

TEST_F(UpdaterFilesTest, PathsBeginAtTheHomeOrTheFrameworks) {
  EXPECT_TRUE(TovanConfigUpdater::isUserHomeBasedFilePath(CSTR("~/x")));
  EXPECT_FALSE(TovanConfigUpdater::isUserHomeBasedFilePath(CSTR("/~/x")));
  EXPECT_TRUE(TovanConfigUpdater::isRelativeFilePath(CSTR("@Frameworks/x")));
  EXPECT_FALSE(TovanConfigUpdater::isRelativeFilePath(CSTR("Frameworks/@x")));
  EXPECT_FALSE(TovanConfigUpdater::isRelativeFilePath(CSTR("")));
  EXPECT_EQ(TovanConfigUpdater::resolveFilePath(CSTR("~/x y"))->str(), scratchHome() + "/x y");
  EXPECT_EQ(TovanConfigUpdater::resolveFilePath(CSTR("@Frameworks/x y"))->str(),
            TOVAN_BUILD_DIR "/lib/tovan/Frameworks/x y");
  EXPECT_EQ(TovanConfigUpdater::resolveFilePath(CSTR("/opt/x"))->str(), "/opt/x");
  EXPECT_EQ(thrownBy([] { TovanConfigUpdater::resolveFilePath(CSTR("@Elsewhere/x")); }),
            "4: TovanConfigUpdater: file \"@Elsewhere/x\" has an unknown base location");
  EXPECT_EQ(thrownBy([] { TovanConfigUpdater::resolveFilePath(CSTR("@FrameworksOld/x")); }),
            "4: TovanConfigUpdater: file \"@FrameworksOld/x\" has an unknown base location");
}

TEST_F(UpdaterFilesTest, ACopyHasTheBytesAndIsForItsOwnerOnly) {
  const std::string bytes("any\0thing\xFF", 10);
  writeFile(source, bytes);
  ASSERT_EQ(::chmod(source.c_str(), 0644), 0);
  EXPECT_EQ(copied(source, target, 0), "nothing");
  EXPECT_EQ(readFile(target), bytes);
  EXPECT_EQ(modeOf(target), 0600U);
  EXPECT_EQ(copied(source, source, 0), "nothing") << "onto itself";
  EXPECT_EQ(readFile(source), bytes);
}

TEST_F(UpdaterFilesTest, AShorterFileLeavesNothingOfALongerOne) {
  writeFile(source, "short");
  writeFile(target, std::string(10000, 'x'));
  EXPECT_EQ(copied(source, target, 0), "nothing");
  EXPECT_EQ(readFile(target), "short");
}

TEST_F(UpdaterFilesTest, TheModeIsAppliedWhenItIsNeitherZeroNor0600) {
  writeFile(source, "x");
  EXPECT_EQ(copied(source, target, 0640), "nothing");
  EXPECT_EQ(modeOf(target), 0640U);
  EXPECT_EQ(copied(source, target, 0600), "nothing");
  EXPECT_EQ(modeOf(target), 0640U) << "of a file that was there";
  EXPECT_EQ(copied(source, target, 0), "nothing");
  EXPECT_EQ(modeOf(target), 0640U);
}

TEST_F(UpdaterFilesTest, ACopyThatFailsNamesTheCallAndTheFile) {
  EXPECT_EQ(copied(folder + "/missing", target, 0600), "4: TovanConfigUpdater::copyFile: stat() on file " + folder +
                                                           "/missing failed, error = No such file or directory");
  EXPECT_FALSE(exists(target));
  writeFile(source, "x");
  EXPECT_EQ(copied(source, folder + "/no folder/target", 0600),
            "4: TovanConfigUpdater::copyFile: open() on file " + folder +
                "/no folder/target failed, error = No such file or directory");
  EXPECT_EQ(copied(folder, target, 0600),
            "4: TovanConfigUpdater::copyFile: read() on file " + folder + " failed, error = Is a directory");
  EXPECT_EQ(thrownWithoutChmod([&] { updater.copyFile(CSTR(source), CSTR(target), 0640); }),
            "4: TovanConfigUpdater::copyFile: chmod() on file " + target + " failed, error = Operation not permitted");
  EXPECT_EQ(thrownWithoutChmod([&] { updater.copyFile(CSTR(source), CSTR(target), 0600); }), "nothing");
}

TEST_F(UpdaterFilesTest, AWriteThatFailsIsAFailureOfTheCopy) {
  writeFile(source, "x");
  EXPECT_EQ(thrownWithout({SYS_ftruncate}, EIO, [&] { updater.copyFile(CSTR(source), CSTR(target), 0); }),
            "4: TovanConfigUpdater::copyFile: write() on file " + target + " failed, error = Input/output error");
}

TEST_F(UpdaterFilesTest, WithoutACopyAnInvalidFileIsNotReplaced) {
  writeFile(master, configuration("1.1"));
  writeFile(user, document("<key>own</key><true/>"));
  const std::string said = thrownWithout({SYS_fsync}, EIO, [&] {
    const bool isDone = updater.run();
    throw plinth::CException(plinth::kExceptionTypeUnknown, "%s%s", isDone ? "done: " : "", reported.str().c_str());
  });
  EXPECT_THAT(said, testing::StartsWith("255: "));
  EXPECT_THAT(said, testing::HasSubstr(" Exception caught while copying/merging the lumisphere config file : "
                                       "TovanConfigUpdater::copyFile: write() on file " +
                                       user + ".20"));
  EXPECT_THAT(said, testing::HasSubstr(" failed, error = Input/output error\n"));
  EXPECT_THAT(said, testing::Not(testing::HasSubstr("done: ")));
  EXPECT_EQ(readFile(user), document("<key>own</key><true/>"));
  EXPECT_THAT(keptCopies(), testing::IsEmpty()) << "not half a copy either";
  EXPECT_FALSE(exists(previous));
}

TEST_F(UpdaterFilesTest, TheCopyStaysWhenAFailureComesAfterTheReplacement) {
  writeFile(master, configuration("1.1"));
  writeFile(user, document("<key>own</key><true/>"));
  ASSERT_EQ(::chmod(user.c_str(), 0644), 0);
  const std::string said = thrownWithoutChmod([&] {
    const bool isDone = updater.run();
    throw plinth::CException(plinth::kExceptionTypeUnknown, "%s%s", isDone ? "done: " : "", reported.str().c_str());
  });
  ASSERT_THAT(keptCopies(), testing::SizeIs(1));
  EXPECT_EQ(readFile(keptCopies()[0]), document("<key>own</key><true/>"));
  EXPECT_EQ(readFile(user), readFile(master));
  EXPECT_THAT(said, testing::HasSubstr(" Mervane daemon keeps the former lumisphere config file as " + keptCopies()[0] +
                                       " (fewer than two services are installed)\n"));
  EXPECT_THAT(said, testing::HasSubstr("setFilePermissions: chmod() on file " + user + " failed"));
  EXPECT_THAT(said, testing::Not(testing::HasSubstr("done: ")));
}

// The last moment at which they can go away: after it was looked for, before it is opened.
TEST_F(UpdaterFilesTest, ShippedDefaultsThatCannotBeOpenedAnyMoreAreNotMerged) {
  writeFile(master, configuration("1.1"));
  writeFile(user, configuration("1.0"));
  const std::string missing = "4: TovanConfigUpdater: file \"" + master + "\" not found";
  EXPECT_EQ(thrownWithout({SYS_openat}, ENOENT, [&] { updater.mergeLumisphereConfigFile(); }), missing);
  EXPECT_EQ(thrownWithout({SYS_openat}, ENOENT, [&] { updater.needMergeLumisphereConfigFile(); }), missing);
  EXPECT_EQ(thrownWithout({SYS_openat}, ENOENT, [&] { updater.planMerge(); }), missing);
  EXPECT_EQ(readFile(user), configuration("1.0"));
  EXPECT_FALSE(exists(previous));
}

TEST_F(UpdaterFilesTest, PermissionsAreChangedOnlyWhenTheyDiffer) {
  writeFile(source, "x");
  ASSERT_EQ(::chmod(source.c_str(), 0644), 0);
  const auto set = [&] { updater.setFilePermissions(CSTR(source), 0600); };
  EXPECT_EQ(thrownWithoutChmod(set), "4: TovanConfigUpdater::setFilePermissions: chmod() on file " + source +
                                         " failed, error = Operation not permitted");
  set();
  EXPECT_EQ(modeOf(source), 0600U);
  EXPECT_EQ(thrownWithoutChmod(set), "nothing") << "there is nothing to change";
  EXPECT_EQ(thrownBy([&] { updater.setFilePermissions(CSTR(target), 0600); }),
            "4: TovanConfigUpdater::setFilePermissions: stat() on file " + target +
                " failed, error = No such file or directory");
}

TEST_F(UpdaterFilesTest, AFileThatIsNotThereIsNamed) {
  EXPECT_EQ(thrownBy([&] { updater.throwFileNotFoundException(CSTR("/a/b")); }),
            "4: TovanConfigUpdater: file \"/a/b\" not found");
  try {
    updater.throwFileNotFoundException(CSTR("/a/b"));
  } catch (const plinth::CException& failure) {
    EXPECT_EQ(failure.getKind(), plinth::ExceptionKind::file);
  }
  EXPECT_FALSE(updater.isFilePresent(CSTR(target)));
  EXPECT_TRUE(updater.isFilePresent(CSTR(folder)));
}

}  // namespace
