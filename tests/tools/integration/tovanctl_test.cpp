// tovanctl as a user meets it: a real program, a scratch home, real bundles.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"
#include "tests/tools/integration/running_program.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kJobController = "jobcontroller:com.brant.lumisphere.cluster.admin";
const std::string kTranscoder = "servicecontroller:com.brant.klarn.transcoder.klarn";
// Those of the shipped defaults.
const std::string kRequiredJobController = "jobcontroller:com.brant.mervane.cluster.admin";
const std::string kRequiredTranscoder = "servicecontroller:com.brant.klarn.transcoderx";
const std::string kResources = TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Lumisphere.framework/Resources/";

CommandResult tovanctl(const std::vector<std::string>& arguments) { return test::runCommand("tovanctl", arguments); }

CommandResult succeeding(const std::vector<std::string>& arguments) {
  const CommandResult result = tovanctl(arguments);
  EXPECT_EQ(result.status, 0) << result.err;
  return result;
}

json document(const std::vector<std::string>& arguments) {
  const CommandResult result = succeeding(arguments);
  EXPECT_EQ(result.err, "");
  json parsed = json::parse(result.out, nullptr, false);
  EXPECT_FALSE(parsed.is_discarded()) << result.out;
  EXPECT_EQ(parsed.value("schema", 0), 1) << result.out;
  return parsed;
}

// In the order in which they are listed.
std::vector<std::string> namesOfServices() {
  std::vector<std::string> names;
  std::istringstream lines(succeeding({"service", "list", "--names"}).out);
  for (std::string name; std::getline(lines, name);) names.push_back(name);
  return names;
}

std::string configPath() {
  return test::scratchHome() + "/Library/Application Support/Lumisphere/LumisphereConfig.plist";
}
std::string jobPath(const std::string& label) {
  return test::scratchHome() + "/Library/LaunchAgents/" + label + ".plist";
}

// A bundle folder with the given information dictionary, and an executable called Service when asked for.
std::string makeBundle(const std::string& name, const std::string& information, bool withExecutable) {
  const std::string bundle = test::scratchFolder("bundles") + "/" + name;
  test::makeFolders(bundle + "/Contents/Linux");
  if (!information.empty()) {
    test::writeFile(bundle + "/Contents/Info.plist", "<plist version=\"1.0\"><dict>" + information + "</dict></plist>");
  }
  if (withExecutable) {
    test::writeFile(bundle + "/Contents/Linux/Service", "#!/bin/sh\n");
    EXPECT_EQ(::chmod((bundle + "/Contents/Linux/Service").c_str(), 0755), 0);
  }
  return bundle;
}

const std::string kKind = "<key>MervaneServiceKind</key><string>jobcontroller:com.example.Service</string>";
const std::string kExecutable = "<key>CFBundleExecutable</key><string>Service</string>";
const std::string kConfig = "<key>MervaneServiceConfig</key><dict><key>Version</key><integer>1</integer></dict>";

// Each test begins in an empty home.
class TovanctlTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::remove_all(test::scratchHome() + "/Library"); }
};
class FirstProgramTest : public TovanctlTest {};

TEST_F(TovanctlTest, InstallWithoutArgumentsInstallsLumispheresTwo) {
  const CommandResult result = succeeding({"service", "install"});
  EXPECT_THAT(result.out, HasSubstr(kJobController + ": installed\n"));
  EXPECT_THAT(result.out, HasSubstr(kTranscoder + ": installed\n"));
  EXPECT_TRUE(test::exists(configPath()));
  EXPECT_TRUE(test::exists(jobPath("com.brant.klarn.transcoder.klarn")));
  EXPECT_FALSE(test::exists(jobPath("com.brant.lumisphere.cluster.admin"))) << "the daemon starts the job controller";
}

TEST_F(TovanctlTest, InstallingAgainKeepsTheEntryAndTheInstanceCount) {
  succeeding({"service", "install"});
  succeeding({"service", "set", kTranscoder, "Instances", "3"});
  std::filesystem::remove(jobPath("com.brant.klarn.transcoder.klarn-2"));
  const std::string before = test::readFile(configPath());
  const CommandResult result = succeeding({"service", "install"});
  EXPECT_THAT(result.out, HasSubstr(kTranscoder + ": was installed already, the entry stays as it is\n"));
  EXPECT_EQ(test::readFile(configPath()), before);
  for (const char* const suffix : {"", "-2", "-3"}) {
    EXPECT_TRUE(test::exists(jobPath("com.brant.klarn.transcoder.klarn" + std::string(suffix)))) << suffix;
  }
}

TEST_F(TovanctlTest, InstallTakesANameOfTheCallersChoosing) {
  const CommandResult result =
      succeeding({"service", "install", kResources + "LumisphereJobController.bundle", "--name", "mine:com.example"});
  EXPECT_THAT(result.out, StartsWith("mine:com.example: installed\n"));
  EXPECT_THAT(namesOfServices(), Contains("mine:com.example"));
}

TEST_F(TovanctlTest, ANameGoesWithOneBundleOnly) {
  EXPECT_EQ(tovanctl({"service", "install", "--name", "x"}).status, 2);
}

TEST_F(TovanctlTest, ABundleThatIsNoServiceIsRefusedWithItsReason) {
  const struct {
    std::string bundle;
    std::string reason;
  } cases[] = {
      {"/nowhere/at.all", "there is no bundle at"},
      {makeBundle("empty.bundle", "", true), "has no readable information dictionary"},
      {makeBundle("kindless.bundle", kExecutable + kConfig, true), "names no service kind"},
      {makeBundle("numbered.bundle", "<key>MervaneServiceKind</key><integer>1</integer>" + kExecutable + kConfig, true),
       "names no service kind"},
      {makeBundle("undescribed.bundle", kKind + kExecutable, true), "has no service description"},
      {makeBundle("described wrongly.bundle", kKind + kExecutable + "<key>MervaneServiceConfig</key><string>x</string>",
                  true),
       "has no service description"},
      {makeBundle("without program.bundle", kKind + kExecutable + kConfig, false), "has no executable"},
  };
  for (const auto& one : cases) {
    const CommandResult result = tovanctl({"service", "install", one.bundle});
    EXPECT_EQ(result.status, 4) << one.bundle;
    EXPECT_THAT(result.err, HasSubstr(one.reason));
    EXPECT_EQ(result.out, "");
  }
  EXPECT_FALSE(test::exists(configPath())) << "a refused bundle must change nothing";
}

TEST_F(TovanctlTest, ListShowsARowForEachService) {
  succeeding({"service", "install"});
  const CommandResult table = succeeding({"service", "list"});
  EXPECT_THAT(table.out, StartsWith("SERVICE"));
  EXPECT_THAT(table.out, HasSubstr(kJobController + " "));
  EXPECT_EQ(table.out.find('\x1b'), std::string::npos) << "colour on terminals only";
  EXPECT_THAT(namesOfServices(), ElementsAre(kJobController, kRequiredJobController, kTranscoder, kRequiredTranscoder));
  const json services = document({"service", "list", "--json"})["services"];
  ASSERT_EQ(services.size(), 4U);
  EXPECT_EQ(services[0]["startedBy"], "daemon");
  EXPECT_EQ(services[2]["startedBy"], "launchd");
  EXPECT_EQ(services[2]["enabled"], false);
  EXPECT_EQ(services[2]["running"], false);
  EXPECT_GE(services[2]["instances"].get<int>(), 1);
}

TEST_F(TovanctlTest, AnEmptyRegistryIsSaidOnStandardErrorOnly) {
  const CommandResult result = succeeding({"service", "list"});
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("no service is installed"));
  EXPECT_TRUE(document({"service", "list", "--json"})["services"].empty());
}

TEST_F(TovanctlTest, ShowAndGetReadSettings) {
  succeeding({"service", "install"});
  const json shown = document({"service", "show", kTranscoder, "--json"});
  EXPECT_EQ(shown["settings"]["LaunchHint"], "launchd.LaunchAgent.User");
  EXPECT_EQ(shown["settings"]["PerUserService"], true);
  EXPECT_THAT(succeeding({"service", "show", kTranscoder}).out, HasSubstr("LaunchHint"));
  EXPECT_EQ(succeeding({"service", "get", kTranscoder, "Enabled"}).out, "no\n");
  EXPECT_EQ(document({"service", "get", kTranscoder, "Version", "--json"})["value"], 303);
}

TEST_F(TovanctlTest, EnableDisableAndResetSwitchTheFlag) {
  succeeding({"service", "install"});
  EXPECT_THAT(succeeding({"service", "enable", kTranscoder}).out, HasSubstr("enabled"));
  EXPECT_EQ(succeeding({"service", "get", kTranscoder, "Enabled"}).out, "yes\n");
  succeeding({"service", "disable", kTranscoder});
  EXPECT_EQ(succeeding({"service", "get", kTranscoder, "Enabled"}).out, "no\n");
  succeeding({"service", "enable", kTranscoder});
  succeeding({"service", "reset", kTranscoder});
  EXPECT_EQ(succeeding({"service", "get", kTranscoder, "Enabled"}).out, "no\n");
}

TEST_F(TovanctlTest, RemoveTakesTheEntryAndLeavesTheJobDescriptions) {
  succeeding({"service", "install"});
  succeeding({"service", "remove", kTranscoder});
  EXPECT_THAT(namesOfServices(), ElementsAre(kJobController, kRequiredJobController, kRequiredTranscoder));
  EXPECT_TRUE(test::exists(jobPath("com.brant.klarn.transcoder.klarn")));
}

TEST_F(TovanctlTest, TheServicesWithoutWhichAConfigurationIsNotValidCannotBeRemoved) {
  succeeding({"service", "install"});
  for (const std::string& name : {kRequiredJobController, kRequiredTranscoder}) {
    const CommandResult result = tovanctl({"service", "remove", name});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("\"" + name +
                                      "\" cannot be removed: the daemon takes a configuration without it "
                                      "for damaged; `tovanctl service disable` keeps it from running"));
    EXPECT_THAT(namesOfServices(), Contains(name));
  }
}

TEST_F(TovanctlTest, AnUnknownServiceGetsASuggestion) {
  succeeding({"service", "install"});
  for (const char* const verb : {"show", "enable", "disable", "reset", "remove"}) {
    const CommandResult result = tovanctl({"service", verb, "servicecontroler:com.brant.klarn.transcoder.klarn"});
    EXPECT_EQ(result.status, 3) << verb;
    EXPECT_THAT(result.err, HasSubstr("did you mean \"" + kTranscoder + "\"?"));
    EXPECT_EQ(result.out, "");
  }
  EXPECT_THAT(tovanctl({"service", "show", "transcoder.klarn"}).err,
              HasSubstr("did you mean \"" + kTranscoder + "\"?"));
  EXPECT_THAT(tovanctl({"service", "show", "zzz"}).err, HasSubstr("there are: " + kJobController));
}

TEST_F(TovanctlTest, ConfigShowsDefaultsWithoutAFile) {
  const json settings = document({"config", "show", "--json"})["settings"];
  EXPECT_EQ(settings["DaemonPort"], 2189);
  EXPECT_EQ(settings["DaemonEnabled"], true);
  EXPECT_EQ(settings["Advertising"], "RV");
  EXPECT_EQ(settings["StdoutPath"], nullptr);
  EXPECT_THAT(succeeding({"config", "show"}).out, HasSubstr("DaemonPort"));
  EXPECT_FALSE(test::exists(configPath())) << "reading must create nothing";
}

TEST_F(TovanctlTest, ConfigSetWritesWhatGetReads) {
  const struct {
    const char* key;
    const char* value;
    json read;
  } cases[] = {{"DaemonPort", "4711", 4711},    {"SharingEnabled", "yes", true},
               {"DaemonEnabled", "off", false}, {"ServerName", "Mönch \"West\"", "Mönch \"West\""},
               {"Advertising", "MC", "MC"},     {"PortRangeStart", "-1", -1}};
  for (const auto& one : cases) {
    const std::vector<std::string> set = {"config", "set", one.key, one.value};
    succeeding(set);
    EXPECT_EQ(document({"config", "get", one.key, "--json"})["value"], one.read) << one.key;
  }
  EXPECT_EQ(succeeding({"config", "get", "DaemonPort"}).out, "4711\n");
}

TEST_F(TovanctlTest, ConfigSetRefusesValuesOfTheWrongType) {
  const std::vector<std::vector<std::string>> cases = {
      {"DaemonPort", "many"},       {"DaemonPort", "2189.5"}, {"DaemonPort", ""},   {"DaemonPort", "99999999999"},
      {"DaemonEnabled", "perhaps"}, {"Advertising", "rv"},    {"Advertising", "3"},
  };
  for (const auto& one : cases) {
    const CommandResult result = tovanctl({"config", "set", one[0], one[1]});
    EXPECT_EQ(result.status, 2) << one[0] << " " << one[1];
    EXPECT_THAT(result.err, HasSubstr(one[0] + " takes "));
    EXPECT_THAT(result.err, HasSubstr("not \"" + one[1] + "\""));
  }
  EXPECT_FALSE(test::exists(configPath()));
}

TEST_F(TovanctlTest, AnUnknownSettingGetsASuggestion) {
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"config", "get", "DeamonPort"}, {"config", "set", "DeamonPort", "1"}}) {
    const CommandResult result = tovanctl(arguments);
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("did you mean \"DaemonPort\"?"));
  }
}

TEST_F(TovanctlTest, AServiceWithAnUnsupportedLaunchHintCanBeRemoved) {
  succeeding({"service", "install"});
  succeeding({"service", "set", kTranscoder, "LaunchHint", "launchd.LaunchDaemon"});
  const CommandResult removed = succeeding({"service", "remove", kTranscoder});
  EXPECT_EQ(removed.out, kTranscoder + ": removed\n");
  EXPECT_EQ(removed.err, "");
}

TEST_F(TovanctlTest, ProgramsThatSetAtOnceLoseNothing) {
  succeeding({"service", "install"});
  const std::vector<std::vector<std::string>> settings = {{"service", "set", kTranscoder, "NetworkName"},
                                                          {"service", "set", kJobController, "NetworkName"},
                                                          {"service", "set", kJobController, "DisplayName"},
                                                          {"config", "set", "DNSDomain"},
                                                          {"config", "set", "ServerName"}};
  for (int round = 0; round < 20; ++round) {
    const std::string value = "round " + std::to_string(round);
    std::vector<std::unique_ptr<test::RunningProgram>> programs;
    for (std::vector<std::string> arguments : settings) {
      arguments.push_back(value);
      programs.push_back(std::make_unique<test::RunningProgram>(TOVAN_BUILD_DIR "/bin/tovanctl", arguments));
    }
    for (const auto& program : programs) ASSERT_EQ(program->waitForEnd(), 0) << program->output();
    for (std::vector<std::string> arguments : settings) {
      arguments[1] = "get";
      ASSERT_EQ(succeeding(arguments).out, value + "\n") << arguments.back();
    }
  }
}

TEST_F(TovanctlTest, ServiceSetRefusesContainersAndWrongTypes) {
  succeeding({"service", "install"});
  EXPECT_EQ(tovanctl({"service", "set", kTranscoder, "UserPrefs", "x"}).status, 2);
  EXPECT_EQ(tovanctl({"service", "set", kTranscoder, "Instances", "x"}).status, 2);
  EXPECT_EQ(tovanctl({"service", "set", kTranscoder, "Instance", "2"}).status, 3);
}

TEST_F(TovanctlTest, ConfigPathNamesTheFileInTheHome) {
  EXPECT_EQ(succeeding({"config", "path"}).out, configPath() + "\n");
  EXPECT_EQ(document({"config", "path", "--json"})["path"], configPath());
}

TEST_F(TovanctlTest, JobShowGivesTheDescriptionThatInstallingWrites) {
  succeeding({"service", "install"});
  // The same bytes but for the identifier, which is a fresh one each time.
  const std::regex identifier("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
  const std::string written = test::readFile(jobPath("com.brant.klarn.transcoder.klarn"));
  EXPECT_TRUE(std::regex_search(written, identifier)) << written;
  EXPECT_EQ(std::regex_replace(succeeding({"job", "show", kTranscoder}).out, identifier, "ID"),
            std::regex_replace(written, identifier, "ID"));
  const json shown = document({"job", "show", kTranscoder, "--json"});
  EXPECT_EQ(shown["path"], jobPath("com.brant.klarn.transcoder.klarn"));
  EXPECT_EQ(shown["job"]["Label"], "com.brant.klarn.transcoder.klarn");
  EXPECT_EQ(shown["job"]["ProgramArguments"][0],
            kResources + "LumisphereTranscoder.bundle/Contents/Linux/LumisphereTranscoder");
}

TEST_F(TovanctlTest, JobShowOfAnInstanceThatIsNotThereSaysSo) {
  succeeding({"service", "install"});
  const CommandResult result = tovanctl({"job", "show", kTranscoder, "999"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("there is no instance 999"));
}

TEST_F(TovanctlTest, JobShowOfADaemonServiceSaysWhyThereIsNone) {
  succeeding({"service", "install"});
  const CommandResult result = tovanctl({"job", "show", kJobController});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("Unsupported service launch hint: "));
}

TEST_F(TovanctlTest, AnUnreadableFileIsNamedAndLeftAlone) {
  test::makeFolders(std::filesystem::path(configPath()).parent_path());
  test::writeFile(configPath(), "<plist><dict><key>broken");
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {"service", "list"}, {"config", "show"}, {"config", "set", "DaemonPort", "1"}, {"service", "install"}}) {
    const CommandResult result = tovanctl(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("(" + configPath() + "): CFPropertyListCreateFromXMLData() failed, error = "));
  }
  EXPECT_EQ(test::readFile(configPath()), "<plist><dict><key>broken");
}

TEST_F(TovanctlTest, TheCommandLineIsChecked) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{{},
                                                                     {"service"},
                                                                     {"service", "frobnicate"},
                                                                     {"config", "set", "DaemonPort"},
                                                                     {"job", "show", "x", "minus one"},
                                                                     {"config", "path", "--yaml"}}) {
    const CommandResult result = tovanctl(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
  }
}

TEST_F(TovanctlTest, HelpAndVersionAreResults) {
  EXPECT_THAT(succeeding({"--version"}).out, HasSubstr("TovanCore-303"));
  EXPECT_THAT(succeeding({"--help"}).out, HasSubstr("Exit codes:"));
  EXPECT_THAT(succeeding({"service", "--help"}).out, HasSubstr("install"));
}

TEST_F(FirstProgramTest, ListsServicesAndSwitchesOneOff) {
  const std::string program = TOVAN_BUILD_DIR "/examples/first_program";
  EXPECT_EQ(test::runCommand(program, {}).out, "0 services are installed\n");
  succeeding({"service", "install"});
  succeeding({"service", "enable", kTranscoder});
  EXPECT_THAT(test::runCommand(program, {}).out, HasSubstr(kTranscoder + ", enabled\n"));
  const CommandResult off = test::runCommand(program, {kTranscoder});
  EXPECT_EQ(off.status, 0) << off.err;
  EXPECT_THAT(off.out, HasSubstr(kTranscoder + ", disabled\n"));
  EXPECT_THAT(off.out, HasSubstr(" -idx 0 "));
  const CommandResult unknown = test::runCommand(program, {"nothing"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.err, HasSubstr("no service is called nothing"));
}

}  // namespace
