// What every back end of launchctl must do. A job tells what it sees through files in its folder.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/scratch_home.h"
#include "tests/tools/launchctl/back_end_test.h"

namespace {

using test::await;
using test::awaitDown;
using test::awaitRunning;
using test::JobFile;
using test::launchctl;
using test::linesOf;
using test::pidOf;
using test::statusOf;
using testing::HasSubstr;

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

// Writes when the kernel made the job's process, in ticks: however late the job comes to run, that is exact.
const std::string kNoteStart = "cut -d' ' -f22 /proc/$$/stat";
double secondsBetween(const std::string& start, const std::string& end) {
  return (std::stod(end) - std::stod(start)) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// The last exit status of a loaded job; one that wait(2) never gives for a job that is not loaded.
int exitOf(const std::string& label) {
  const auto status = statusOf(label);
  return status ? status->lastExitStatus : -2;
}

using LaunchctlTest = test::BackEndTest;

INSTANTIATE_TEST_SUITE_P(BackEnd, LaunchctlTest, ::testing::Values("embedded", "systemd"),
                         [](const auto& information) { return information.param; });

TEST_P(LaunchctlTest, AJobRunsAtLoadAndEndsAtUnload) {
  if (done()) return;
  JobFile job("test.run.at.load");
  job.arguments({"/bin/sleep", "1000"}).set("RunAtLoad", "<true/>");
  load(job);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  EXPECT_TRUE(test::isAlive(pid));
  EXPECT_THAT(launchctl({"list"}).out, HasSubstr(std::to_string(pid) + "\t0\ttest.run.at.load\n"));
  const auto result = launchctl({"unload", job.path()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(test::isAlive(pid)) << "unload returned before the job had ended";
  EXPECT_FALSE(statusOf(job.label()));
}

TEST_P(LaunchctlTest, AJobWithoutConditionsStaysDownUntilItIsStarted) {
  if (done()) return;
  JobFile job("test.on.demand");
  job.arguments({"/bin/sleep", "1000"});
  load(job);
  const auto status = statusOf(job.label());
  ASSERT_TRUE(status);
  EXPECT_FALSE(status->pid);
  EXPECT_FALSE(status->hasEnded);
  EXPECT_EQ(status->lastExitStatus, 0);
  EXPECT_EQ(launchctl({"start", job.label()}).status, 0);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  EXPECT_EQ(launchctl({"start", job.label()}).status, 0) << "starting what runs is no failure";
  EXPECT_EQ(pidOf(job.label()), pid);
  EXPECT_EQ(launchctl({"stop", job.label()}).status, 0);
  EXPECT_FALSE(test::isAlive(pid)) << "stop returned before the job had ended";
  ASSERT_TRUE(awaitDown(job.label()));
  EXPECT_TRUE(await([&] { return exitOf(job.label()) == SIGTERM; })) << exitOf(job.label());
  EXPECT_TRUE(statusOf(job.label())->hasEnded);
}

TEST_P(LaunchctlTest, ArgumentsEnvironmentAndFolderArriveUnchanged) {
  if (done()) return;
  const std::string odd = "a b\t\"q\" 'r' `s` $HOME ${x} %n %% \\ \\n\nline two; & | < > ~ * ? # é \xE2\x82\xAC";
  JobFile job("test.odd \"label\" %n $HOME é");
  const std::string folder = job.in("a folder %n $HOME \"q\"");
  test::makeFolders(folder);
  const std::string script =
      "for a in \"$@\"; do printf '%s\\0' \"$a\"; done > \"$OUT\"; printf '%s\\0' \"$ODD\" > \"$OUT.env\"; pwd > "
      "\"$OUT.pwd\"; "
      "touch \"$OUT.done\"";
  job.arguments({"/bin/sh", "-c", script, "name", odd, "", "-leading", " ", ";", "%i"});
  job.set("EnvironmentVariables", "<dict><key>ODD</key><string>" + test::escaped(odd) +
                                      "</string><key>OUT</key><string>" + job.in("out") + "</string></dict>");
  job.set("WorkingDirectory", "<string>" + test::escaped(folder) + "</string>");
  job.set("RunAtLoad", "<true/>");
  load(job);
  ASSERT_TRUE(await([&] { return test::exists(job.in("out.done")); })) << launchctl({"list", job.label()}).out;
  using namespace std::string_literals;
  EXPECT_EQ(test::readFile(job.in("out")), odd + "\0\0-leading\0 \0;\0%i\0"s);
  EXPECT_EQ(test::readFile(job.in("out.env")), odd + "\0"s);
  EXPECT_EQ(linesOf(job.in("out.pwd")), std::vector<std::string>{folder});
  EXPECT_EQ(statusOf(job.label()).value_or(::launchctl::JobStatus{}).arguments.at(4), odd)
      << "the listing carries them too";
}

TEST_P(LaunchctlTest, TheStandardStreamsAreTheNamedFiles) {
  if (done()) return;
  JobFile job("test.streams");
  job.script("cat; echo complaint >&2").set("RunAtLoad", "<true/>");
  test::writeFile(job.in("in put"), "from the file\n");
  test::writeFile(job.in("out %n"), "before\n");
  job.set("StandardInPath", "<string>" + job.in("in put") + "</string>");
  job.set("StandardOutPath", "<string>" + job.in("out %n") + "</string>");
  job.set("StandardErrorPath", "<string>" + job.in("err") + "</string>");
  load(job);
  ASSERT_TRUE(await([&] { return !linesOf(job.in("err")).empty(); }));
  EXPECT_EQ(test::readFile(job.in("out %n")), "before\nfrom the file\n");
  EXPECT_EQ(test::readFile(job.in("err")), "complaint\n");
}

TEST_P(LaunchctlTest, AnOutputFileThatIsALinkOrAFifoIsNotOpened) {
  if (done()) return;
  JobFile link("test.link");
  test::writeFile(link.in("victim"), "untouched");
  ASSERT_EQ(::symlink("victim", link.in("log").c_str()), 0);
  link.script("echo written").set("RunAtLoad", "<true/>");
  link.set("StandardOutPath", "<string>" + link.in("log") + "</string>");
  load(link);
  JobFile fifo("test.fifo");
  ASSERT_EQ(::mkfifo(fifo.in("log").c_str(), 0600), 0);
  fifo.script("echo written").set("RunAtLoad", "<true/>");
  fifo.set("StandardOutPath", "<string>" + fifo.in("log") + "</string>");
  load(fifo);
  for (const JobFile* job : {&link, &fifo}) {
    EXPECT_TRUE(await([&] { return exitOf(job->label()) == 127 << 8; }))
        << job->label() << ": " << exitOf(job->label());
  }
  EXPECT_EQ(test::readFile(link.in("victim")), "untouched");
}

TEST_P(LaunchctlTest, AProgramThatIsNotThereIsAFailedStart) {
  if (done()) return;
  JobFile job("test.missing.program");
  job.arguments({"/nowhere/at all"}).set("RunAtLoad", "<true/>");
  load(job);
  EXPECT_TRUE(await([&] { return exitOf(job.label()) == 127 << 8; })) << exitOf(job.label());
  EXPECT_EQ(pidOf(job.label()), 0);
}

TEST_P(LaunchctlTest, AProgramIsFoundAlongPathAndMayHaveAnotherName) {
  if (done()) return;
  JobFile job("test.path");
  job.set("Program", "<string>sleep</string>").arguments({"slumber", "1000"}).set("RunAtLoad", "<true/>");
  load(job);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  EXPECT_TRUE(await([&] {
    return test::readFile("/proc/" + std::to_string(pid) + "/cmdline") == std::string(
                                                                              "slumber\0"
                                                                              "1000\0",
                                                                              13);
  })) << test::readFile("/proc/" + std::to_string(pid) + "/cmdline");
}

TEST_P(LaunchctlTest, ASuccessfulEndIsToldFromNone) {
  if (done()) return;
  JobFile job("test.success");
  job.script("while [ ! -e \"" + job.in("end") + "\" ]; do sleep 0.02; done").set("RunAtLoad", "<true/>");
  load(job);
  ASSERT_GT(awaitRunning(job.label()), 0);
  EXPECT_FALSE(statusOf(job.label())->hasEnded);
  test::writeFile(job.in("end"), "");
  EXPECT_TRUE(await([&] { return statusOf(job.label())->hasEnded; }));
  EXPECT_EQ(exitOf(job.label()), 0);
}

TEST_P(LaunchctlTest, KeepAliveStartsItAgainNotSoonerThanTheThrottleInterval) {
  if (done()) return;
  JobFile job("test.keep.alive");
  job.script(kNoteStart + " >> \"" + job.in("starts") + "\"").set("KeepAlive", "<true/>").throttle(0.5);
  load(job);
  ASSERT_TRUE(await([&] { return linesOf(job.in("starts")).size() >= 4; }));
  const auto starts = linesOf(job.in("starts"));
  for (std::size_t index = 1; index < 4; ++index) {
    const double gap = secondsBetween(starts[index - 1], starts[index]);
    EXPECT_GE(gap, 0.48) << "start " << index << " came too soon";
    EXPECT_LT(gap, 5);
  }
}

TEST_P(LaunchctlTest, AKilledJobComesBack) {
  if (done()) return;
  JobFile job("test.killed");
  job.arguments({"/bin/sleep", "1000"}).set("KeepAlive", "<true/>");
  load(job);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  const pid_t next = awaitRunning(job.label(), pid);
  EXPECT_GT(next, 0);
  EXPECT_EQ(exitOf(job.label()), SIGKILL);
}

TEST_P(LaunchctlTest, SuccessfulExitTrueRunsAgainUntilItFails) {
  if (done()) return;
  JobFile job("test.until.failure");
  job.script("echo >> \"" + job.in("starts") + "\"; [ $(wc -l < \"" + job.in("starts") + "\") -lt 3 ]");
  job.set("KeepAlive", "<dict><key>SuccessfulExit</key><true/></dict>");
  load(job);
  ASSERT_TRUE(await([&] { return exitOf(job.label()) == 1 << 8; }));
  EXPECT_EQ(linesOf(job.in("starts")).size(), 3U);
  EXPECT_FALSE(await([&] { return linesOf(job.in("starts")).size() > 3; }, 0.6)) << "it was started after a failure";
}

TEST_P(LaunchctlTest, SuccessfulExitTrueDoesNotTakeASignalForASuccess) {
  if (done()) return;
  JobFile job("test.signal.is.no.success");
  job.arguments({"/bin/sleep", "1000"}).set("KeepAlive", "<dict><key>SuccessfulExit</key><true/></dict>");
  load(job);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  ASSERT_EQ(::kill(pid, SIGTERM), 0);
  ASSERT_TRUE(awaitDown(job.label()));
  EXPECT_FALSE(await([&] { return pidOf(job.label()) != 0; }, 0.6));
}

TEST_P(LaunchctlTest, SuccessfulExitFalseRunsAgainUntilItSucceeds) {
  if (done()) return;
  JobFile job("test.until.success");
  job.script("echo >> \"" + job.in("starts") + "\"; case $(wc -l < \"" + job.in("starts") +
             "\") in 1) exit 3;; 2) kill -TERM $$;; esac");
  job.set("KeepAlive", "<dict><key>SuccessfulExit</key><false/></dict>");
  load(job);
  ASSERT_TRUE(await([&] { return linesOf(job.in("starts")).size() == 3; })) << linesOf(job.in("starts")).size();
  ASSERT_TRUE(awaitDown(job.label()));
  EXPECT_FALSE(await([&] { return linesOf(job.in("starts")).size() > 3; }, 0.6)) << "it was started after a success";
}

TEST_P(LaunchctlTest, TheTriggerStartsAndEndsTheJob) {
  if (done()) return;
  JobFile job("test.trigger");
  const std::string trigger = job.in("a trigger %n");
  job.arguments({"/bin/sleep", "1000"}).trigger(trigger);
  load(job);
  ASSERT_TRUE(statusOf(job.label()));
  EXPECT_FALSE(await([&] { return pidOf(job.label()) != 0; }, 0.3)) << "it runs without its trigger";
  for (int round = 0; round < 2; ++round) {
    test::writeFile(trigger, "");
    const pid_t pid = awaitRunning(job.label());
    ASSERT_GT(pid, 0) << "round " << round;
    std::filesystem::remove(trigger);
    ASSERT_TRUE(awaitDown(job.label())) << "round " << round;
    EXPECT_FALSE(test::isAlive(pid));
    EXPECT_FALSE(await([&] { return pidOf(job.label()) != 0; }, 0.4)) << "it came back without its trigger";
  }
}

TEST_P(LaunchctlTest, ATriggerThatIsThereAtLoadStartsTheJob) {
  if (done()) return;
  JobFile job("test.trigger.first");
  test::writeFile(job.in("trigger"), "");
  job.arguments({"/bin/sleep", "1000"}).trigger(job.in("trigger"));
  load(job);
  EXPECT_GT(awaitRunning(job.label()), 0);
}

TEST_P(LaunchctlTest, WhileTheTriggerIsThereTheJobRunsAgainWhateverItsExit) {
  if (done()) return;
  for (const char* const exit : {"exit 0", "exit 5", "kill -KILL $$", "kill -TERM $$"}) {
    JobFile job("test.trigger.restart");
    test::writeFile(job.in("trigger"), "");
    job.script(kNoteStart + " >> \"" + job.in("starts") + "\"; " + exit).trigger(job.in("trigger")).throttle(0.3);
    load(job);
    ASSERT_TRUE(await([&] { return linesOf(job.in("starts")).size() >= 3; })) << exit;
    const auto starts = linesOf(job.in("starts"));
    EXPECT_GE(secondsBetween(starts[1], starts[2]), 0.28) << exit;
    ASSERT_EQ(launchctl({"unload", job.path()}).status, 0);
  }
}

TEST_P(LaunchctlTest, AnInvertedTriggerRunsTheJobWhileThePathIsMissing) {
  if (done()) return;
  JobFile job("test.inverted");
  job.arguments({"/bin/sleep", "1000"}).trigger(job.in("brake"), false);
  load(job);
  ASSERT_GT(awaitRunning(job.label()), 0);
  test::writeFile(job.in("brake"), "");
  ASSERT_TRUE(awaitDown(job.label()));
  std::filesystem::remove(job.in("brake"));
  EXPECT_GT(awaitRunning(job.label()), 0);
}

TEST_P(LaunchctlTest, RunAtLoadDoesNotOverrideTheTrigger) {
  if (done()) return;
  JobFile job("test.trigger.decides");
  job.arguments({"/bin/sleep", "1000"}).trigger(job.in("trigger")).set("RunAtLoad", "<true/>");
  load(job);
  EXPECT_FALSE(await([&] { return pidOf(job.label()) != 0; }, 0.3));
  const auto result = launchctl({"start", job.label()});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr(job.in("trigger") + " is not there"));
}

TEST_P(LaunchctlTest, ATriggersFolderMayComeAndGo) {
  if (done()) return;
  JobFile job("test.trigger.folder");
  const std::string folder = job.in("one/two");
  job.arguments({"/bin/sleep", "1000"}).trigger(folder + "/trigger");
  load(job);
  for (int round = 0; round < 2; ++round) {
    test::makeFolders(folder);
    test::writeFile(folder + "/trigger", "");
    ASSERT_GT(awaitRunning(job.label()), 0) << "round " << round;
    std::filesystem::rename(job.in("one"), job.in("moved" + std::to_string(round)));
    ASSERT_TRUE(awaitDown(job.label())) << "round " << round;
  }
}

TEST_P(LaunchctlTest, ATriggerMayBeAFolderAFifoOrALinkToNowhere) {
  if (done()) return;
  JobFile job("test.odd.trigger");
  const std::string trigger = job.in("trigger");
  job.arguments({"/bin/sleep", "1000"}).trigger(trigger);
  load(job);
  ASSERT_EQ(::mkdir(trigger.c_str(), 0700), 0);
  EXPECT_GT(awaitRunning(job.label()), 0) << "a folder";
  ASSERT_EQ(::rmdir(trigger.c_str()), 0);
  ASSERT_TRUE(awaitDown(job.label()));
  ASSERT_EQ(::mkfifo(trigger.c_str(), 0600), 0);
  EXPECT_GT(awaitRunning(job.label()), 0) << "a FIFO";
  ASSERT_EQ(::unlink(trigger.c_str()), 0);
  ASSERT_TRUE(awaitDown(job.label()));
  ASSERT_EQ(::symlink("/nowhere/at/all", trigger.c_str()), 0);
  EXPECT_GT(awaitRunning(job.label()), 0) << "a link to nowhere";
}

TEST_P(LaunchctlTest, ATriggerThatIsGoneForAMomentStillEndsTheJob) {
  if (done()) return;
  JobFile job("test.moment");
  test::writeFile(job.in("trigger"), "");
  job.arguments({"/bin/sleep", "1000"}).trigger(job.in("trigger")).throttle(30);
  load(job);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  std::filesystem::remove(job.in("trigger"));
  test::writeFile(job.in("trigger"), "");
  EXPECT_GT(awaitRunning(job.label(), pid), 0) << "a new process, and without the throttle interval of 30 s";
  EXPECT_FALSE(test::isAlive(pid));
}

TEST_P(LaunchctlTest, AJobThatIgnoresTheRequestIsKilledAfterItsTime) {
  if (done()) return;
  JobFile job("test.stubborn");
  test::writeFile(job.in("trigger"), "");
  job.script("trap '' TERM; echo > \"" + job.in("ready") + "\"; while :; do sleep 1000; done");
  job.trigger(job.in("trigger")).exitTimeOut(0.5);
  load(job);
  ASSERT_TRUE(await([&] { return test::exists(job.in("ready")); }));
  const pid_t pid = pidOf(job.label());
  const double start = now();
  std::filesystem::remove(job.in("trigger"));
  ASSERT_TRUE(await([&] { return !test::isAlive(pid); }));
  EXPECT_GE(now() - start, 0.45);
  EXPECT_LT(now() - start, 4);
}

TEST_P(LaunchctlTest, UnloadEndsAllProcessesOfTheJob) {
  if (done()) return;
  JobFile job("test.group");
  job.script("trap '' TERM; (trap '' TERM; exec sleep " + test::nap() + ") & (exec sleep " + test::nap() +
             ") & echo > \"" + job.in("ready") + "\"; while :; do sleep " + test::nap() + "; done");
  job.set("KeepAlive", "<true/>").exitTimeOut(0.5);
  load(job);
  ASSERT_TRUE(await([&] { return test::exists(job.in("ready")); }));
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
  EXPECT_TRUE(await([] { return test::processesWith(test::nap()).empty(); }, 2));
}

TEST_P(LaunchctlTest, WhatAJobLeavesBehindEndsBeforeItsNextStart) {
  if (done()) return;
  JobFile job("test.leftover");
  job.script("sleep " + test::nap() + " & echo $! >> \"" + job.in("children") + "\"")
      .set("KeepAlive", "<true/>")
      .exitTimeOut(1);
  load(job);
  ASSERT_TRUE(await([&] { return linesOf(job.in("children")).size() >= 3; }));
  const auto children = linesOf(job.in("children"));
  EXPECT_FALSE(test::isAlive(std::stoi(children[0])));
  EXPECT_FALSE(test::isAlive(std::stoi(children[1])));
}

TEST_P(LaunchctlTest, LoadingTwiceLeavesOneJob) {
  if (done()) return;
  JobFile job("test.twice");
  job.script("echo >> \"" + job.in("starts") + "\"; sleep 1000").set("RunAtLoad", "<true/>");
  load(job);
  const pid_t pid = awaitRunning(job.label());
  const auto again = launchctl({"load", job.path()});
  EXPECT_EQ(again.status, 0);
  EXPECT_THAT(again.err, HasSubstr("test.twice: already loaded"));
  EXPECT_EQ(pidOf(job.label()), pid);
  EXPECT_TRUE(await([&] { return linesOf(job.in("starts")).size() == 1; }));
}

TEST_P(LaunchctlTest, UnloadAndLoadAgainRunsOneProcess) {
  if (done()) return;
  JobFile job("test.reload");
  test::writeFile(job.in("trigger"), "");
  job.arguments({"/bin/sleep", test::nap()}).trigger(job.in("trigger"));
  for (int round = 0; round < 3; ++round) {
    load(job);
    ASSERT_GT(awaitRunning(job.label()), 0);
    // It is listed before its program runs.
    EXPECT_TRUE(await([] { return test::processesWith(test::nap()).size() == 1; }));
    ASSERT_EQ(launchctl({"unload", job.path()}).status, 0);
    EXPECT_TRUE(test::processesWith(test::nap()).empty());
  }
}

TEST_P(LaunchctlTest, StopEndsAKeptJobAndItComesBack) {
  if (done()) return;
  JobFile job("test.stop");
  job.arguments({"/bin/sleep", "1000"}).set("KeepAlive", "<true/>");
  load(job);
  const pid_t pid = awaitRunning(job.label());
  ASSERT_GT(pid, 0);
  EXPECT_EQ(launchctl({"stop", job.label()}).status, 0);
  EXPECT_FALSE(test::isAlive(pid));
  EXPECT_GT(awaitRunning(job.label(), pid), 0);
}

TEST_P(LaunchctlTest, SeveralFilesAndFoldersAreLoadedAndUnloaded) {
  if (done()) return;
  JobFile one("test.several.one");
  JobFile two("test.several.two");
  one.arguments({"/bin/sleep", "1000"});
  two.arguments({"/bin/sleep", "1000"});
  const std::string folder = test::scratchFolder("agents");
  ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
  std::filesystem::copy(one.write(), folder + "/one.plist");
  std::filesystem::copy(two.write(), folder + "/two.plist");
  test::writeFile(folder + "/not a description.txt", "x");
  test::writeFile(folder + "/.hidden.plist", "x");
  auto result = launchctl({"load", "-w", "-S", "Aqua", "-D", "user", folder});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(launchctl({"list"}).out, "PID\tStatus\tLabel\n-\t0\ttest.several.one\n-\t0\ttest.several.two\n");
  EXPECT_EQ(launchctl({"unload", "-w", one.path(), two.path()}).status, 0);
  EXPECT_EQ(launchctl({"list"}).out, "PID\tStatus\tLabel\n");
  EXPECT_EQ(launchctl({"load", one.path(), "/nowhere.plist", two.path()}).status, 1) << "one of them failed";
  EXPECT_EQ(launchctl({"list"}).out, "PID\tStatus\tLabel\n-\t0\ttest.several.one\n-\t0\ttest.several.two\n");
  EXPECT_EQ(launchctl({"unload", folder}).status, 0);
}

TEST_P(LaunchctlTest, AJobWhoseDescriptionIsGoneCanBeUnloaded) {
  if (done()) return;
  JobFile job("test.gone");
  job.arguments({"/bin/sleep", "1000"});
  load(job);
  std::filesystem::remove(job.path());
  const auto result = launchctl({"unload", job.path()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(statusOf(job.label()));
}

TEST_P(LaunchctlTest, AnUnknownJobIsAFailure) {
  if (done()) return;
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {"list", "nobody"}, {"list", "-x", "nobody"}, {"start", "nobody"}, {"stop", "nobody"}}) {
    const auto result = launchctl(arguments);
    EXPECT_EQ(result.status, 1) << arguments[0];
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("no job of the label \"nobody\" is loaded"));
  }
  JobFile job("test.never.loaded");
  job.arguments({"/bin/true"});
  const auto result = launchctl({"unload", job.write()});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("test.never.loaded: not loaded"));
}

TEST_P(LaunchctlTest, TheListingIsAPropertyList) {
  if (done()) return;
  JobFile job("test.listing");
  job.script("exit 3").set("RunAtLoad", "<true/>");
  load(job);
  ASSERT_TRUE(await([&] { return exitOf(job.label()) == 3 << 8; }));
  const auto result = launchctl({"list", "-x", job.label()});
  EXPECT_EQ(result.err, "");
  const auto list = ::launchctl::parseDictionary(result.out);
  EXPECT_EQ(::launchctl::stringOf(list.get(), "Label"), job.label());
  EXPECT_EQ(::launchctl::integerOf(list.get(), "PID"), std::nullopt);
  EXPECT_EQ(::launchctl::integerOf(list.get(), "LastExitStatus"), 3 << 8);
  EXPECT_EQ(::launchctl::stringsOf(list.get(), "ProgramArguments").size(), 4U);
  EXPECT_EQ(launchctl({"list"}).out, "PID\tStatus\tLabel\n-\t3\ttest.listing\n");
}

TEST_P(LaunchctlTest, WithoutAWishJobsGoWhereJobsAreOrToTheManager) {
  if (done()) return;
  ::unsetenv("TOVAN_LAUNCHD");
  JobFile job("test.choice");
  job.arguments({"/bin/sleep", "1000"});
  load(job);
  EXPECT_EQ(test::exists(hostFolder() + "/state.plist"), embedded());
  ASSERT_EQ(launchctl({"unload", job.path()}).status, 0);
  if (embedded()) return;
  ::setenv("TOVAN_LAUNCHD", "embedded", 1);
  ASSERT_EQ(launchctl({"load", job.path()}).status, 0);
  ::unsetenv("TOVAN_LAUNCHD");
  EXPECT_TRUE(statusOf(job.label())) << "jobs under launchd-host stay in sight when there is a manager too";
  EXPECT_EQ(launchctl({"unload", job.path()}).status, 0);
}

}  // namespace
