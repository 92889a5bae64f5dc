#include "tests/tools/launchctl/back_end_test.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

namespace test {
namespace {

// Set beside a manager: the home that it reads its units from.
constexpr const char* kManagerHome = "TOVAN_TEST_MANAGER_HOME";
constexpr int kCannotSetUp = 77;

std::string ownPath() {
  char path[4096];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
  return {path, static_cast<std::size_t>(length > 0 ? length : 0)};
}

}  // namespace

void BackEndTest::SetUp() {
  ::setenv("TOVAN_LAUNCHD", GetParam().c_str(), 1);
  hostFolder_ = scratchFolder("host");
  ASSERT_EQ(::chmod(hostFolder_.c_str(), 0700), 0);
  ::setenv("TOVAN_LAUNCHD_FOLDER", hostFolder_.c_str(), 1);
  if (embedded()) return;
  if (const char* const home = std::getenv(kManagerHome)) {
    ::setenv("HOME", home, 1);
  } else {
    runBesideManager();
  }
}

void BackEndTest::runBesideManager() {
  if (::geteuid() != 0) GTEST_SKIP() << "a systemd user manager of its own needs root";
  const auto* const information = ::testing::UnitTest::GetInstance()->current_test_info();
  const std::string filter =
      std::string("--gtest_filter=") + information->test_suite_name() + "." + information->name();
  ::setenv("XDG_RUNTIME_DIR", (scratchHome() + "/run").c_str(), 1);
  ::setenv(kManagerHome, scratchHome().c_str(), 1);
  const CommandResult result = runCommand(
      "/usr/bin/unshare", {"--cgroup", "--pid", "--fork", "--kill-child", "--mount", "--mount-proc", "/bin/bash",
                           TOVAN_SOURCE_DIR "/tests/tools/launchctl/user_manager.sh", ownPath(), filter});
  ::unsetenv(kManagerHome);
  ::unsetenv("XDG_RUNTIME_DIR");
  if (result.status == kCannotSetUp || result.err.find("unshare failed") != std::string::npos) {
    GTEST_SKIP() << result.err;
  }
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("[  PASSED  ] 1 test"), std::string::npos) << result.out << result.err;
  done_ = true;
}

void BackEndTest::load(JobFile& job) {
  const CommandResult result = test::launchctl({"load", job.write()});
  ASSERT_EQ(result.status, 0) << result.err;
  loaded_.push_back(job.path());
}

void BackEndTest::TearDown() {
  if (IsSkipped() || done_) return;
  for (const std::string& path : loaded_) test::launchctl({"unload", path});
  EXPECT_EQ(test::launchctl({"list"}).out, "PID\tStatus\tLabel\n") << "something stayed loaded";
}

}  // namespace test
