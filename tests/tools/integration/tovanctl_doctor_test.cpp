// tovanctl doctor: what it finds, and that the commands it gives mend it.
#include <set>

#include "tests/tools/integration/tovanctl_host.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using test::RunningProgram;
using testing::HasSubstr;
using testing::StartsWith;

class TovanctlDoctorTest : public test::TovanctlHost {
 protected:
  std::string library() const { return test::scratchHome() + "/Library"; }
  std::string configFolder() const { return library() + "/Application Support/Lumisphere"; }

  static json examine(int status) {
    const CommandResult result = tovanctl({"doctor", "--json"});
    EXPECT_EQ(result.status, status) << result.out << result.err;
    return document(result.out);
  }
  // The one problem that is found.
  static json onlyProblem() {
    json problem;
    const json found = examine(1);
    EXPECT_EQ(found["problems"], 1) << found.dump(2);
    for (const json& check : found["checks"]) {
      if (!check["ok"]) problem = check;
    }
    return problem;
  }
  // Runs the command of the one problem that is found, as a user would, and looks again.
  void expectMended(const std::string& check, const std::string& detail) {
    const json problem = onlyProblem();
    EXPECT_EQ(problem["check"], check);
    EXPECT_THAT(problem["detail"].get<std::string>(), HasSubstr(detail));
    ASSERT_TRUE(problem["mend"].is_string()) << problem.dump();
    const std::string command = "PATH=" TOVAN_BUILD_DIR "/bin:$PATH; " + problem["mend"].get<std::string>();
    const CommandResult mended = test::runCommand("/bin/sh", {"-c", command});
    EXPECT_LE(mended.status, 1) << command << "\n" << mended.err;
    EXPECT_EQ(examine(0)["problems"], 0);
  }
};

TEST_F(TovanctlDoctorTest, AHostThatIsWell) {
  installAgent();
  succeeding({"service", "start", agent});
  const json found = examine(0);
  EXPECT_EQ(found["problems"], 0);
  std::set<std::string> names;
  for (const json& check : found["checks"]) {
    EXPECT_EQ(check["ok"], true) << check.dump();
    EXPECT_TRUE(check["mend"].is_null()) << check.dump();
    names.insert(check["check"]);
  }
  for (const char* const name : {"cluster framework", "daemon program", "launchctl", "lingering", "bus", "services",
                                 "configuration folder", "launch agents folder", "daemon", "registrations"}) {
    EXPECT_EQ(names.count(name), 1U) << name;
  }
}

TEST_F(TovanctlDoctorTest, ForPeopleItIsALineEach) {
  const CommandResult result = tovanctl({"doctor"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, StartsWith("ok      cluster framework: "));
  EXPECT_THAT(result.out,
              HasSubstr("problem services: no service is installed\n        mend it: tovanctl service install\n"));
  EXPECT_THAT(result.err, HasSubstr("1 problem found"));
}

TEST_F(TovanctlDoctorTest, NoServiceIsAProblemThatItsCommandMends) {
  expectMended("services", "no service is installed");
}

TEST_F(TovanctlDoctorTest, AFolderThatOthersCanChange) {
  installAgent();
  ASSERT_EQ(::chmod(configFolder().c_str(), 0777), 0);
  expectMended("configuration folder", "can be changed by others");
  ASSERT_EQ(::chmod((library() + "/LaunchAgents").c_str(), 0775), 0);
  expectMended("launch agents folder", "can be changed by others");
}

TEST_F(TovanctlDoctorTest, AFileThatOthersCanChange) {
  installAgent();
  ASSERT_EQ(::chmod((configFolder() + "/LumisphereConfig.plist").c_str(), 0666), 0);
  expectMended("configuration file", "can be changed by others");
  ASSERT_EQ(::chmod((library() + "/LaunchAgents/" + identifier + ".agent.plist").c_str(), 0666), 0);
  expectMended("job description", identifier + ".agent.plist");
}

TEST_F(TovanctlDoctorTest, AFileOfSomebodyElse) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  installAgent();
  ASSERT_EQ(::chown((library() + "/LaunchAgents/" + identifier + ".agent.plist").c_str(), 12345, 0), 0);
  const json problem = onlyProblem();
  EXPECT_THAT(problem["detail"].get<std::string>(), HasSubstr("belongs to user 12345"));
  EXPECT_THAT(problem["mend"].get<std::string>(), StartsWith("sudo chown 0 "));
}

TEST_F(TovanctlDoctorTest, ADamagedJobDescription) {
  installAgent();
  test::writeFile(library() + "/LaunchAgents/" + identifier + ".agent.plist", "<plist><dict><key>");
  expectMended("job description", identifier + ".agent.plist");
}

TEST_F(TovanctlDoctorTest, ADamagedConfigurationFileIsMovedOutOfTheWay) {
  installAgent();
  test::writeFile(configFolder() + "/LumisphereConfig.plist", "damaged");
  const json found = examine(1);
  for (const json& check : found["checks"]) {
    if (check["check"] != "configuration file" || check["ok"]) continue;
    const CommandResult moved = test::runCommand("/bin/sh", {"-c", check["mend"].get<std::string>()});
    EXPECT_EQ(moved.status, 0) << moved.err;
  }
  EXPECT_EQ(test::readFile(configFolder() + "/LumisphereConfig.plist.damaged"), "damaged");
  EXPECT_FALSE(test::exists(configFolder() + "/LumisphereConfig.plist"));
}

TEST_F(TovanctlDoctorTest, AConfigurationThatTheDaemonWouldReplace) {
  test::makeFolders(configFolder());
  installAgent();
  const std::string path = configFolder() + "/LumisphereConfig.plist";
  test::writeFile(path, "<plist version=\"1.0\"><dict><key>mervaneservices</key><dict/></dict></plist>");
  const json found = examine(1);
  const auto check = std::find_if(found["checks"].begin(), found["checks"].end(),
                                  [](const json& one) { return one["check"] == "configuration contents"; });
  ASSERT_NE(check, found["checks"].end()) << found;
  EXPECT_THAT((*check)["detail"].get<std::string>(), HasSubstr("fewer than two services are installed; "));
  EXPECT_EQ(test::runCommand("/bin/sh", {"-c", TOVAN_BUILD_DIR "/bin/" + (*check)["mend"].get<std::string>()}).status,
            0);
  EXPECT_EQ(examine(0)["problems"], 0);
}

TEST_F(TovanctlDoctorTest, RegistrationsOfProcessesThatAreGoneArePruned) {
  installAgent();
  RunningProgram alive("/bin/sleep", {"100"});
  tovan::CServicePIDFile clients(CFSTR("mervaneclients"));
  ASSERT_TRUE(clients.put({test::deadPid(), alive.pid(), -1}));
  tovan::CServicePIDFile daemon(CFSTR("mervaned"));
  ASSERT_TRUE(daemon.put({alive.pid()}));
  const json problem = onlyProblem();
  EXPECT_THAT(problem["detail"].get<std::string>(), HasSubstr("mervaneclients -1"));
  EXPECT_THAT(problem["detail"].get<std::string>(), HasSubstr("mervaned " + std::to_string(alive.pid())))
      << "a sleep is no daemon";
  expectMended("registrations", "mervaneclients");
  EXPECT_EQ(test::registeredPids(CFSTR("mervaneclients")), std::vector<std::int32_t>{alive.pid()});
  EXPECT_TRUE(test::registeredPids(CFSTR("mervaned")).empty());
}

TEST_F(TovanctlDoctorTest, AServiceWhoseProgramIsGone) {
  installAgent();
  installOwn();
  succeeding({"service", "set", own, "Path", "/nowhere/at/all"});
  expectMended("services", own + ": its program /nowhere/at/all: No such file or directory");
}

TEST_F(TovanctlDoctorTest, ABusThatCannotBeStarted) {
  installAgent();
  const std::string noFolder = folder() + "/file";
  test::writeFile(noFolder, "");
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere/at/all", 1);
  ::setenv("TOVAN_BUS_FOLDER", noFolder.c_str(), 1);
  const json problem = onlyProblem();
  useOwnBus();
  EXPECT_EQ(problem["check"], "bus");
  EXPECT_THAT(problem["detail"].get<std::string>(), HasSubstr("unix:path=/nowhere/at/all: No such file or directory"));
}

TEST_F(TovanctlDoctorTest, LingeringMattersUnderSystemd) {
  installAgent();
  ::setenv("TOVAN_LAUNCHD", "systemd", 1);
  json lingering;
  const json found = document(tovanctl({"doctor", "--json"}).out);
  for (const json& check : found["checks"]) {
    if (check["check"] == "lingering") lingering = check;
  }
  ::setenv("TOVAN_LAUNCHD", "embedded", 1);
  if (lingering["ok"]) GTEST_SKIP() << "this user lingers on this host";
  EXPECT_THAT(lingering["mend"].get<std::string>(), StartsWith("loginctl enable-linger "));
}

}  // namespace
