#include <tovan/launch_ctl.h>

#include "platform/system/tool_lookup.h"
#include "tests/launch/task_support.h"
#include "tests/launch/thrown.h"

#include <plinth/exception.h>

#include <fcntl.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <thread>

namespace {

using plinth::CException;
using plinth::CNullPointerException;
using plinth::CParamException;
using plinth::CSTR;
using plinth::CStringRef;
using test::thrownBy;
using tovan::CLaunchCtl;
using tovan::CLaunchCtlRef;

// A folder of stubs in the place of the real tools, as long as the object lives.
class CLaunchCtlTest : public ::testing::Test {
 protected:
  CLaunchCtlTest() : folder_(test::scratchFolder("tools")) { platform::setToolFolderForTesting(folder_); }
  ~CLaunchCtlTest() override { platform::setToolFolderForTesting(""); }

  void makeTool(const std::string& body) const {
    test::writeFile(folder_ + "/launchctl", "#!/bin/sh\n" + body + "\n");
    ASSERT_EQ(::chmod((folder_ + "/launchctl").c_str(), 0755), 0);
  }
  // A tool that prints its arguments, one to a line.
  void makeArgumentPrinter() const { makeTool("printf '%s\\n' \"$@\""); }
  const std::string& folder() const { return folder_; }

 private:
  std::string folder_;
};

CLaunchCtlRef launchCtl(const char* path, unsigned long sessionType = 0, unsigned long domainType = 0) {
  return plinth::makeShared<CLaunchCtl>(CSTR(path), sessionType, domainType);
}

std::string outputOf(const CLaunchCtlRef& runner) {
  const CStringRef output = runner->getTaskOutput();
  return output.isNull() ? "an empty holder" : output->str();
}

std::string textOf(const CStringRef& text) { return text.isNull() ? "an empty holder" : text->str(); }

TEST_F(CLaunchCtlTest, WithoutTypesTheArgumentsAreVerbAndPath) {
  makeArgumentPrinter();
  const CLaunchCtlRef runner = launchCtl("/agents/a b.plist");
  EXPECT_EQ(outputOf(runner), "an empty holder");
  runner->load();
  EXPECT_EQ(outputOf(runner), "load\n/agents/a b.plist\n");
  runner->unload();
  EXPECT_EQ(outputOf(runner), "unload\n/agents/a b.plist\n");
}

TEST_F(CLaunchCtlTest, TypesStandBeforeThePath) {
  makeArgumentPrinter();
  const CLaunchCtlRef both = launchCtl("/agent.plist", 1, 4);
  both->load();
  EXPECT_EQ(outputOf(both), "load\n-S\nAqua\n-D\nuser\n/agent.plist\n");
  const CLaunchCtlRef session = launchCtl("/agent.plist", 3, 0);
  session->unload();
  EXPECT_EQ(outputOf(session), "unload\n-S\nBackground\n/agent.plist\n");
  const CLaunchCtlRef domain = launchCtl("/agent.plist", 0, 5);
  domain->load();
  EXPECT_EQ(outputOf(domain), "load\n-D\nall\n/agent.plist\n");
}

TEST_F(CLaunchCtlTest, APathIsOneArgumentWhateverItHolds) {
  makeArgumentPrinter();
  const char* const path = "-w $(touch x) 'q' \"d\" ; \\ *\u00e4";
  const CLaunchCtlRef runner = launchCtl(path);
  runner->load();
  EXPECT_EQ(outputOf(runner), std::string("load\n") + path + "\n");
}

TEST_F(CLaunchCtlTest, SessionTypesHaveTheirTexts) {
  const CLaunchCtlRef runner = launchCtl("/agent.plist");
  EXPECT_EQ(textOf(runner->getSessionTypeString(0)), "an empty holder");
  const char* const texts[] = {"Aqua", "LoginWindow", "Background", "StandardIO", "System"};
  for (unsigned long type = 1; type <= 5; ++type) {
    EXPECT_EQ(textOf(runner->getSessionTypeString(type)), texts[type - 1]);
  }
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->getSessionTypeString(6); }), "Invalid sessionType: 0x6");
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->getSessionTypeString(~0UL); }),
            "Invalid sessionType: 0xffffffffffffffff");
}

TEST_F(CLaunchCtlTest, DomainTypesHaveTheirTexts) {
  const CLaunchCtlRef runner = launchCtl("/agent.plist");
  EXPECT_EQ(textOf(runner->getDomainTypeString(0)), "an empty holder");
  const char* const texts[] = {"system", "local", "network", "user", "all"};
  for (unsigned long type = 1; type <= 5; ++type) {
    EXPECT_EQ(textOf(runner->getDomainTypeString(type)), texts[type - 1]);
  }
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->getDomainTypeString(17); }), "Invalid domainType: 0x11");
}

TEST_F(CLaunchCtlTest, AnInvalidTypeIsRefusedBeforeTheToolRuns) {
  makeTool("echo ran > " + folder() + "/ran; echo listed");
  EXPECT_EQ(thrownBy<CParamException>([] { launchCtl("/agent.plist", 6, 0)->load(); }), "Invalid sessionType: 0x6");
  EXPECT_EQ(thrownBy<CParamException>([] { launchCtl("/agent.plist", 0, 6)->unload(); }), "Invalid domainType: 0x6");
  EXPECT_FALSE(test::exists(folder() + "/ran"));
  const CLaunchCtlRef runner = launchCtl("/agent.plist", 6, 6);
  runner->isLoaded(CSTR("label"));
  EXPECT_EQ(outputOf(runner), "listed\n");
  test::writeFile(folder() + "/ran", "");
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->load(); }), "Invalid sessionType: 0x6");
  EXPECT_EQ(outputOf(runner), "an empty holder") << "the listing's output is not the load's";
  EXPECT_EQ(test::readFile(folder() + "/ran"), "");
}

TEST_F(CLaunchCtlTest, WithoutAPathThereIsNothingToLoad) {
  makeArgumentPrinter();
  EXPECT_EQ(thrownBy<CNullPointerException>([] { launchCtl(nullptr)->load(); }), "Error: _plistPath is null!");
  EXPECT_EQ(thrownBy<CNullPointerException>([] { launchCtl(nullptr)->unload(); }), "Error: _plistPath is null!");
  EXPECT_EQ(thrownBy<CNullPointerException>([] { launchCtl("")->load(); }), "Error: _plistPath is null!");
  // The path comes before the types, and what was printed before stays.
  const CLaunchCtlRef runner = launchCtl("", 6, 6);
  runner->isLoaded(CSTR("label"));
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { runner->unload(); }), "Error: _plistPath is null!");
  EXPECT_EQ(outputOf(runner), "list\n-x\nlabel\n");
}

TEST_F(CLaunchCtlTest, AFailingToolsComplaintIsKept) {
  makeTool("echo 'nothing found to load' >&2; exit 1");
  const CLaunchCtlRef runner = launchCtl("/agent.plist");
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->load(); }), "CLaunchCtlTask exited with error = 1");
  EXPECT_EQ(outputOf(runner), "nothing found to load\n");
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->unload(); }), "CLaunchCtlTask exited with error = 1");
  EXPECT_EQ(outputOf(runner), "nothing found to load\n");
}

TEST_F(CLaunchCtlTest, AnOperationDropsTheOutputOfTheOneBefore) {
  makeArgumentPrinter();
  const CLaunchCtlRef runner = launchCtl("/agent.plist", 0, 0);
  runner->load();
  makeTool("exit 4");
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->load(); }), "CLaunchCtlTask exited with error = 4");
  EXPECT_EQ(outputOf(runner), "");
}

TEST_F(CLaunchCtlTest, AMissingToolEndsWithItsErrno) {
  const CLaunchCtlRef runner = launchCtl("/agent.plist");
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->load(); }), "CLaunchCtlTask exited with error = 2");
  EXPECT_EQ(outputOf(runner), "");
  EXPECT_FALSE(runner->isLoaded(CSTR("label")));
  EXPECT_EQ(outputOf(runner), "");
}

TEST_F(CLaunchCtlTest, AMegabyteOfOutputIsKeptWhole) {
  makeTool("i=0; while [ $i -lt 1024 ]; do printf '%01023d\\n' $i; i=$((i+1)); done; exit 1");
  const CLaunchCtlRef runner = launchCtl("/agent.plist");
  EXPECT_EQ(thrownBy<CParamException>([&] { runner->load(); }), "CLaunchCtlTask exited with error = 1");
  EXPECT_EQ(outputOf(runner).size(), 1024U * 1024U);
}

TEST_F(CLaunchCtlTest, AToolThatHangsIsWaitedForUntilItEnds) {
  makeTool("echo $$ > " + folder() + "/pid.new; mv " + folder() + "/pid.new " + folder() + "/pid; exec sleep 60");
  const CLaunchCtlRef runner = launchCtl("/agent.plist");
  std::string thrown;
  std::thread caller([&] { thrown = thrownBy<CParamException>([&] { runner->load(); }); });
  const bool started = test::comesTrue([&] { return test::exists(folder() + "/pid"); });
  EXPECT_TRUE(started);
  if (started) ::kill(std::stoi(test::readFile(folder() + "/pid")), SIGKILL);
  caller.join();
  EXPECT_EQ(thrown, "CLaunchCtlTask exited with error = 9");
}

TEST_F(CLaunchCtlTest, AToolThatCannotBeLaunchedIsReportedWithTheReason) {
  makeArgumentPrinter();
  const std::string said = test::inAnotherProcess([]() -> std::string {
    const CLaunchCtlRef runner = launchCtl("/agent.plist");
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 3;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "no limit";
    std::string result;
    try {
      runner->load();
    } catch (const CException& exception) {
      result = std::to_string(exception.getType()) + " " + std::to_string(exception.getCode()) + " " + exception.what();
    }
    return result + "|" + thrownBy<CException>([&] { runner->isLoaded(CSTR("label")); }) + "|" + outputOf(runner);
  });
  EXPECT_EQ(said,
            "255 24 CLaunchCtlTask failed to launch, error = Too many open files|"
            "CLaunchCtlTask failed to launch, error = Too many open files|an empty holder");
}

TEST_F(CLaunchCtlTest, TheListingIsTheOutputAndNeverTheResult) {
  makeArgumentPrinter();
  const CLaunchCtlRef runner = launchCtl(nullptr);
  EXPECT_FALSE(runner->isLoaded(CSTR("com.example.agent")));
  EXPECT_EQ(outputOf(runner), "list\n-x\ncom.example.agent\n");
  makeTool("echo 'launchctl list returned unknown response'; exit 1");
  EXPECT_FALSE(runner->isLoaded(CSTR("com.example.agent")));
  EXPECT_EQ(outputOf(runner), "launchctl list returned unknown response\n");
}

TEST_F(CLaunchCtlTest, TheLabelIsReadFromTheDescription) {
  makeArgumentPrinter();
  const std::string path = folder() + "/agent.plist";
  test::writeFile(path,
                  "<plist version=\"1.0\"><dict><key>Label</key><string>com.example.read</string></dict></plist>");
  const CLaunchCtlRef runner = launchCtl(path.c_str());
  EXPECT_FALSE(runner->isLoaded(nullptr));
  EXPECT_EQ(outputOf(runner), "list\n-x\ncom.example.read\n");
  EXPECT_FALSE(runner->isLoaded(CSTR("com.example.given")));
  EXPECT_EQ(outputOf(runner), "list\n-x\ncom.example.given\n");
}

TEST_F(CLaunchCtlTest, WithoutALabelThereIsNothingToList) {
  makeArgumentPrinter();
  EXPECT_EQ(thrownBy<CNullPointerException>([] { launchCtl(nullptr)->isLoaded(nullptr); }), "Error: label is null!");
  EXPECT_EQ(thrownBy<CNullPointerException>([] { launchCtl(nullptr)->isLoaded(CSTR("")); }), "Error: label is null!");
  const std::string path = folder() + "/agent.plist";
  test::writeFile(path, "<plist version=\"1.0\"><dict></dict></plist>");
  EXPECT_EQ(thrownBy<CNullPointerException>([&] { launchCtl(path.c_str())->isLoaded(nullptr); }),
            "Error: label is null!");
}

TEST_F(CLaunchCtlTest, TheToolHasATerminalAndTheUsersSession) {
  ::setenv("XDG_RUNTIME_DIR", "/run/there", 1);
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/bus", 1);
  ::setenv("NOT_ITS_BUSINESS", "x", 1);
  makeTool(
      "test -t 0 && echo terminal; echo $HOME $TMPDIR $XDG_RUNTIME_DIR $DBUS_SESSION_BUS_ADDRESS $USER; "
      "echo ${NOT_ITS_BUSINESS-unset}");
  const CLaunchCtlRef runner = launchCtl("/agent.plist");
  runner->load();
  EXPECT_EQ(outputOf(runner), "terminal\n" + test::scratchHome() + " " + test::scratchHome() +
                                  "/tmp /run/there unix:path=/bus " + ::getpwuid(::geteuid())->pw_name + "\nunset\n");
  for (const char* const name : {"XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS", "NOT_ITS_BUSINESS"}) ::unsetenv(name);
}

}  // namespace
