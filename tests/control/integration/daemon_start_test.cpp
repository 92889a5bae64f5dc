// Launching the daemon and waiting for it, with a real process in the daemon's place.
#include "tests/control/integration/framework_probe.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>

namespace {

using test::ProbeResult;
using test::StubDaemon;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr const char* kTimeOut = "threw CParamException: Couldn't start mervane daemon: PID time-out\n";

class DaemonStartTest : public test::FrameworkTest {
 protected:
  std::string cannotLaunch(const std::string& reason) const {
    return "threw CParamException: Couldn't launch mervane daemon with path " + daemonPath_ + ", error = " + reason +
           "\n";
  }
  static void expectAboutTenSeconds(const ProbeResult& result) {
    EXPECT_GE(result.seconds, 9.0);
    EXPECT_LT(result.seconds, 14.0);
  }
};

TEST_F(DaemonStartTest, ReturnsWhenTheDaemonIsRegistered) {
  makeDaemon();
  const ProbeResult result = probe("startDaemon");
  EXPECT_THAT(result.out, StartsWith("returned\nrunning: 1, "));
  EXPECT_THAT(result.out, HasSubstr("loop empty: 1")) << "its timer is gone";
  EXPECT_EQ(result.err, "");
  EXPECT_LT(result.seconds, 8.0);
  ASSERT_THAT(launched(), SizeIs(1));
  EXPECT_EQ(::kill(launched().front(), 0), 0) << "it outlives its caller";
}

TEST_F(DaemonStartTest, WaitsForADaemonThatTakesItsTime) {
  makeDaemon(StubDaemon::registersLate);
  const ProbeResult result = probe("startDaemon");
  EXPECT_THAT(result.out, StartsWith("returned\nrunning: 1, "));
  EXPECT_GE(result.seconds, 1.5);
  EXPECT_LT(result.seconds, 9.0);
}

TEST_F(DaemonStartTest, RunningDaemonIsNotStartedAgain) {
  makeDaemon();
  probe("startDaemon");
  std::filesystem::remove(daemonPath_);
  EXPECT_THAT(probe("startDaemon").out, StartsWith("returned\n"));
  EXPECT_THAT(launched(), SizeIs(1));
}

TEST_F(DaemonStartTest, DaemonThatWentIsStartedAgain) {
  makeDaemon();
  probe("startDaemon");
  ASSERT_THAT(launched(), SizeIs(1));
  end(launched().front());
  EXPECT_THAT(probe("startDaemon").out, StartsWith("returned\nrunning: 1, ")) << "its stale entry is no hindrance";
  EXPECT_THAT(launched(), SizeIs(2));
}

TEST_F(DaemonStartTest, TwoCallersAtOnceBothSeeTheOneDaemon) {
  makeDaemon();
  const std::string out = probeTwiceAtOnce("startDaemon").out;
  const std::string one = "returned\nrunning: 1, ";
  EXPECT_THAT(out, StartsWith(one));
  EXPECT_NE(out.find(one), out.rfind(one)) << out;
  const auto alive = [this] {
    const auto daemons = launched();
    return std::count_if(daemons.begin(), daemons.end(), test::isRunningProgram);
  };
  // A second one may be there still, about to find that it is not needed.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (alive() != 1 && std::chrono::steady_clock::now() < limit) ::usleep(10'000);
  EXPECT_EQ(alive(), 1) << "of " << launched().size() << " that were launched";
}

TEST_F(DaemonStartTest, WithoutTheFrameworkThereIsNothingToStart) {
  makeDaemon();
  std::filesystem::rename(frameworks_ + "/Mervane.framework", frameworks_ + "/Other.framework");
  std::filesystem::remove(root_ + "/lib/libTovanCore.so");
  std::filesystem::create_symlink(
      frameworks_ + "/Other.framework/Versions/A/Frameworks/TovanCore.framework/Versions/A/TovanCore",
      root_ + "/lib/libTovanCore.so");
  EXPECT_THAT(probe("startDaemon").out, StartsWith("threw CParamException: Mervane.framework not found\n"));
  EXPECT_THAT(launched(), IsEmpty());
}

TEST_F(DaemonStartTest, DaemonThatCannotBeLaunchedIsAnErrorWithItsPathAndTheReason) {
  EXPECT_THAT(probe("startDaemon").out, StartsWith(cannotLaunch("No such file or directory")));
  test::writeFile(daemonPath_, "no program\n");
  EXPECT_THAT(probe("startDaemon").out, StartsWith(cannotLaunch("Permission denied")));
  std::filesystem::permissions(daemonPath_, std::filesystem::perms{0755});
  const ProbeResult result = probe("startDaemon");
  EXPECT_THAT(result.out, StartsWith(cannotLaunch("Exec format error")));
  EXPECT_LT(result.seconds, 8.0) << "nothing to wait for";
}

TEST_F(DaemonStartTest, DaemonThatNeverRegistersIsATimeOutDuringWhichTheCallersTimersFire) {
  makeDaemon(StubDaemon::neverRegisters);
  const ProbeResult result = probe("startDaemon with a timer");
  EXPECT_THAT(result.out, HasSubstr(kTimeOut));
  EXPECT_THAT(result.out, ContainsRegex("calls: 1?[0-9][0-9][0-9]\n")) << "one in 50 ms";
  EXPECT_THAT(result.out, HasSubstr("loop empty: 1"));
  expectAboutTenSeconds(result);
  EXPECT_THAT(launched(), SizeIs(1));
}

TEST_F(DaemonStartTest, DaemonThatEndsAtOnceIsATimeOut) {
  makeDaemon(StubDaemon::endsAtOnce);
  const ProbeResult result = probe("startDaemon");
  EXPECT_THAT(result.out, StartsWith(kTimeOut));
  expectAboutTenSeconds(result);
}

TEST_F(DaemonStartTest, AnotherVersionsDaemonIsNoneAndASecondOneIsLaunched) {
  makeDaemon(StubDaemon::registersAsVersion1);
  probe("startDaemon");
  ASSERT_THAT(launched(), SizeIs(1));
  const ProbeResult result = probe("startDaemon");
  EXPECT_THAT(result.out, StartsWith(std::string(kTimeOut) + "running: 0, other version: 1"));
  expectAboutTenSeconds(result);
  EXPECT_THAT(launched(), SizeIs(2));
}

}  // namespace
