// The configuration file and the shipped defaults, as the daemon's start and tovanctl treat them.
#include <gmock/gmock.h>
#include <tovan/daemon_control.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/plist/plist_support.h"
#include "tests/support/private_bus.h"
#include "tests/tools/integration/own_installation.h"
#include "tests/tools/integration/running_program.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using test::OwnInstallation;
using test::runLoopUntil;
using test::RunningProgram;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Leaves = std::map<std::vector<std::string>, std::string>;

class ConfigUpgradeTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::remove_all(test::scratchHome() + "/Library"); }

  CommandResult tovanctl(const std::vector<std::string>& arguments) const { return own_.tovanctl(arguments); }
  CommandResult succeeding(const std::vector<std::string>& arguments) const {
    const CommandResult result = tovanctl(arguments);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    return result;
  }
  json document(const std::vector<std::string>& arguments) const {
    const std::string out = succeeding(arguments).out;
    const json parsed = json::parse(out, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << out;
    EXPECT_EQ(parsed.value("schema", 0), 1) << out;
    return parsed;
  }
  // Replaces texts of the shipped defaults, the first occurrence of each.
  void ship(const std::vector<std::pair<std::string, std::string>>& changes) const {
    std::string text = test::readFile(own_.masterFile());
    for (const auto& [from, to] : changes) {
      const std::size_t at = text.find(from);
      ASSERT_NE(at, std::string::npos) << from;
      text.replace(at, from.size(), to);
    }
    test::writeFile(own_.masterFile(), text);
  }
  // The daemon's whole life; what it said on standard error.
  std::string lifeOfDaemon() const {
    RunningProgram daemon(own_.daemon(), {});
    EXPECT_TRUE(runLoopUntil([&] { return isDaemonRunning() || daemon.hasEnded(); })) << daemon.output();
    EXPECT_EQ(daemon.end(), 0) << daemon.output();
    return daemon.output();
  }
  static std::string log() { return test::readFile(test::scratchHome() + "/Library/Logs/Lumisphere/mervaned.log"); }
  std::vector<std::string> keptCopies() const {
    std::vector<std::string> found;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
      const std::string name = file.path().filename().string();
      if (name.starts_with("LumisphereConfig.plist.") && !name.ends_with(".default")) found.push_back(file.path());
    }
    return found;
  }

  // Every value of a file that is no dictionary with something in it, by its keys.
  static Leaves leavesOf(const std::string& path) {
    Leaves leaves;
    std::vector<std::string> keys;
    collect(test::parsed(test::readFile(path)).get(), keys, leaves);
    return leaves;
  }

  const std::string folder = test::scratchHome() + "/Library/Application Support/Lumisphere";
  const std::string user = folder + "/LumisphereConfig.plist";
  const std::string previous = user + ".default";
  OwnInstallation own_;
  test::PrivateBus bus_;

 private:
  static void collect(CFTypeRef value, std::vector<std::string>& keys, Leaves& leaves) {
    const bool isDictionary = CFGetTypeID(value) == CFDictionaryGetTypeID();
    const auto dictionary = static_cast<CFDictionaryRef>(value);
    if (!isDictionary || CFDictionaryGetCount(dictionary) == 0) {
      leaves[keys] = test::describe(value);
      return;
    }
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> names(count), values(count);
    CFDictionaryGetKeysAndValues(dictionary, names.data(), values.data());
    for (std::size_t i = 0; i < count; ++i) {
      keys.push_back(test::utf8(static_cast<CFStringRef>(names[i])));
      collect(values[i], keys, leaves);
      keys.pop_back();
    }
  }
};

// ---- The daemon's start

TEST_F(ConfigUpgradeTest, TheFirstStartInAnEmptyHomeCreatesTheConfigurationFromTheShippedDefaults) {
  const std::string said = lifeOfDaemon();
  EXPECT_EQ(test::readFile(user), test::readFile(own_.masterFile()));
  EXPECT_EQ(test::readFile(previous), test::readFile(own_.masterFile()));
  const std::string line = " Mervane daemon needs to copy the lumisphere config file " + user;
  EXPECT_THAT(said, HasSubstr(line + "\n"));
  EXPECT_THAT(log(), testing::ContainsRegex(" pid=\"[0-9]+\" msg=\"[0-9/]* [0-9:.]*" + line + "\""));
}

TEST_F(ConfigUpgradeTest, AStartWithNewerDefaultsMergesThemAndOneWithTheSameDoesNothing) {
  lifeOfDaemon();
  succeeding({"config", "set", "SharingType", "4"});
  const std::string before = test::readFile(user);
  EXPECT_THAT(lifeOfDaemon(), Not(HasSubstr("Mervane daemon needs")));
  EXPECT_EQ(test::readFile(user), before);
  ship({{"<string>1.1<", "<string>1.10<"}, {"<real>0.6<", "<real>0.5<"}});
  EXPECT_THAT(lifeOfDaemon(), HasSubstr(" Mervane daemon needs to merge the lumisphere config file " + user + "\n"));
  const Leaves after = leavesOf(user);
  EXPECT_EQ(after.at({"hostperfscore", "CPUTypes", "Intel X86"}), "0.500000");
  EXPECT_EQ(after.at({"mervaneconfig", "SharingType"}), "4");
  EXPECT_EQ(after.at({"Version"}), "\"1.10\"");
  EXPECT_EQ(test::readFile(previous), test::readFile(own_.masterFile()));
}

TEST_F(ConfigUpgradeTest, AStartWithADamagedFileReplacesItAndKeepsACopy) {
  test::makeFolders(folder);
  test::writeFile(user, "<plist><dict><key>broken");
  const std::string said = lifeOfDaemon();
  EXPECT_EQ(test::readFile(user), test::readFile(own_.masterFile()));
  ASSERT_THAT(keptCopies(), SizeIs(1));
  EXPECT_EQ(test::readFile(keptCopies()[0]), "<plist><dict><key>broken");
  for (const std::string& text : {said, log()}) {
    EXPECT_THAT(text, HasSubstr("Exception caught while checking contents of the lumisphere config file : "));
    EXPECT_THAT(text, HasSubstr(user + " (invalid contents)"));
    EXPECT_THAT(text, HasSubstr("keeps the former lumisphere config file as " + keptCopies()[0]));
  }
}

TEST_F(ConfigUpgradeTest, ShippedDefaultsThatAreGarbageKeepNoDaemonFromStartingAndHarmNothing) {
  test::writeFile(own_.masterFile(), "garbage");
  EXPECT_THAT(lifeOfDaemon(), HasSubstr("Exception caught while copying/merging the lumisphere config file : "));
  EXPECT_THAT(log(), HasSubstr("lvl=\"1\""));
  EXPECT_FALSE(test::exists(user));
  test::writeFile(user, "<plist><dict><key>broken");
  EXPECT_THAT(lifeOfDaemon(), HasSubstr("cannot read the services: "));
  EXPECT_EQ(test::readFile(user), "<plist><dict><key>broken");
  EXPECT_THAT(keptCopies(), IsEmpty());
}

// ---- config upgrade

TEST_F(ConfigUpgradeTest, ThePlanForetellsExactlyWhatTheUpgradeChanges) {
  succeeding({"config", "upgrade"});
  succeeding({"config", "set", "DaemonPort", "3000"});
  succeeding({"service", "set", "jobcontroller:com.brant.mervane.cluster.admin", "DisplayName", "Mine"});
  ship({{"<string>1.1<", "<string>1.2<"},
        {"<integer>2189<", "<integer>2200<"},
        {"<real>0.6<", "<real>0.5<"},
        {"Mervane Cluster Admin<", "Cluster Admin<"},
        {"Transcoder X<", "Transcoder Y<"},
        {"<key>hostperfscore</key>\n\t<dict>",
         "<key>hostperfscore</key>\n\t<dict><key>More</key><dict><key>a</key>"
         "<integer>1</integer><key>b</key><dict/></dict>"}});
  const Leaves before = leavesOf(user);
  const std::string bytesBefore = test::readFile(user);
  const json plan = document({"config", "upgrade", "--plan", "--json"});
  EXPECT_EQ(plan["step"], "merge");
  EXPECT_EQ(plan["done"], false);
  EXPECT_THAT(plan["report"], IsEmpty());
  EXPECT_EQ(test::readFile(user), bytesBefore) << "a plan changes nothing";

  const json done = document({"config", "upgrade", "--json"});
  EXPECT_EQ(done["settings"], plan["settings"]);
  EXPECT_EQ(done["done"], true);
  ASSERT_THAT(done["report"], SizeIs(1));
  EXPECT_THAT(done["report"][0].get<std::string>(), HasSubstr(" Mervane daemon needs to merge"));

  std::map<std::vector<std::string>, std::string> outcomes;
  for (const json& setting : plan["settings"]) outcomes[setting["path"]] = setting["outcome"];
  const Leaves after = leavesOf(user);
  for (const auto& [path, value] : after) {
    const auto former = before.find(path);
    const bool isChanged = former == before.end() || former->second != value;
    const auto planned = outcomes.find(path);
    const bool isPlanned = planned != outcomes.end() && planned->second != "same" && planned->second != "kept";
    EXPECT_EQ(isChanged, isPlanned) << testing::PrintToString(path);
  }
  for (const auto& [path, value] : before) EXPECT_TRUE(after.contains(path)) << testing::PrintToString(path);
  EXPECT_EQ(outcomes.at({"mervaneconfig", "DaemonPort"}), "kept");
  EXPECT_EQ(outcomes.at({"hostperfscore", "CPUTypes", "Intel X86"}), "updated");
  EXPECT_EQ(outcomes.at({"hostperfscore", "More", "a"}), "added");
  EXPECT_EQ(outcomes.at({"mervaneservices", "jobcontroller:com.brant.mervane.cluster.admin", "DisplayName"}), "kept");
  EXPECT_EQ(outcomes.at({"Version"}), "updated");
  EXPECT_EQ(after.at({"mervaneservices", "servicecontroller:com.brant.klarn.transcoderx", "DisplayName"}),
            "\"Transcoder Y\"");
  EXPECT_EQ(document({"config", "upgrade", "--json"})["step"], "nothing");
}

TEST_F(ConfigUpgradeTest, TheMergeIsShownKeyByKeyBeforeItIsDone) {
  succeeding({"config", "set", "DaemonPort", "3000"});
  ship({{"<string>1.1<", "<string>1.2<"}, {"<integer>2189<", "<integer>2200<"}, {"<real>0.6<", "<real>0.5<"}});
  const std::string shown = succeeding({"config", "upgrade", "--plan"}).out;
  EXPECT_THAT(shown, StartsWith("The shipped defaults, version 1.2, are merged into " + user + ", version 1.1\n"));
  EXPECT_THAT(shown, testing::ContainsRegex("SETTING +YOURS +EARLIER DEFAULT +NEW DEFAULT +WHAT HAPPENS\n"));
  EXPECT_THAT(shown, testing::ContainsRegex("\nmervaneconfig / DaemonPort +3000 +2189 +2200 +yours stays\n"));
  EXPECT_THAT(shown,
              testing::ContainsRegex("\nhostperfscore / CPUTypes / Intel X86 +0.6 +0.6 +0.5 +takes the new default\n"));
  EXPECT_THAT(shown, testing::ContainsRegex("\nSettings that have the new default already: [0-9]+\n"));
  const std::string done = succeeding({"config", "upgrade"}).out;
  EXPECT_THAT(done, StartsWith(shown)) << "what is done is shown first";
  EXPECT_THAT(done, HasSubstr(" Mervane daemon needs to merge the lumisphere config file " + user + "\nDone.\n"));
  EXPECT_EQ(succeeding({"config", "upgrade"}).out,
            user + " is up to date: its version is 1.2, that of the shipped defaults 1.2\n");
}

TEST_F(ConfigUpgradeTest, InAnEmptyHomeThePlanSaysWhatWillBeThere) {
  const json plan = document({"config", "upgrade", "--plan", "--json"});
  EXPECT_EQ(plan["step"], "create");
  EXPECT_EQ(plan["yourVersion"], nullptr);
  EXPECT_EQ(plan["newVersion"], "1.1");
  EXPECT_FALSE(test::exists(user));
  EXPECT_THAT(succeeding({"config", "upgrade", "--plan"}).out,
              StartsWith("There is no " + user + ": it is created from the shipped defaults, version 1.1\n"));
  succeeding({"config", "upgrade"});
  EXPECT_EQ(leavesOf(user).size(), plan["settings"].size());
  for (const json& setting : plan["settings"]) {
    EXPECT_EQ(setting["outcome"], "added");
    EXPECT_TRUE(leavesOf(user).contains(setting["path"])) << setting;
  }
}

TEST_F(ConfigUpgradeTest, AFileThatIsReplacedIsShownWithTheReason) {
  test::makeFolders(folder);
  test::writeFile(user, test::document("<key>own</key><integer>1</integer>"));
  const json plan = document({"config", "upgrade", "--plan", "--json"});
  EXPECT_EQ(plan["step"], "replace");
  EXPECT_EQ(plan["problem"], "fewer than two services are installed");
  const auto own = std::find_if(plan["settings"].begin(), plan["settings"].end(),
                                [](const json& one) { return one["path"] == json({"own"}); });
  ASSERT_NE(own, plan["settings"].end());
  EXPECT_EQ((*own)["outcome"], "removed");
  const std::string done = succeeding({"config", "upgrade"}).out;
  EXPECT_THAT(done, HasSubstr("a copy of it kept beside it, since fewer than two services"));
  ASSERT_THAT(keptCopies(), SizeIs(1));
  EXPECT_THAT(done, HasSubstr(keptCopies()[0]));
  test::writeFile(user, "garbage");
  EXPECT_THAT(document({"config", "upgrade", "--plan", "--json"})["problem"].get<std::string>(),
              HasSubstr("CFPropertyListCreateFromXMLData() failed"));
}

TEST_F(ConfigUpgradeTest, WithoutUsableShippedDefaultsAnUpgradeFails) {
  test::writeFile(own_.masterFile(), "garbage");
  EXPECT_EQ(tovanctl({"config", "upgrade"}).status, 1);
  std::filesystem::remove(own_.masterFile());
  const CommandResult result = tovanctl({"config", "upgrade", "--plan"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err,
              HasSubstr("there are no shipped defaults: the file \"" + own_.masterFile() + "\" is missing"));
  EXPECT_EQ(tovanctl({"config", "diff"}).status, 1);
  EXPECT_FALSE(test::exists(user));
  const CommandResult set = succeeding({"config", "set", "SharingType", "4"});
  EXPECT_THAT(set.err, HasSubstr("the configuration begins without the shipped defaults: "));
}

TEST_F(ConfigUpgradeTest, AnUpgradeThatCannotBeDoneFailsAndSaysWhy) {
  succeeding({"config", "upgrade"});
  ship({{"<string>1.1<", "<string>1.2<"}});
  std::filesystem::remove(previous);
  test::makeFolders(previous);
  const CommandResult result = tovanctl({"config", "upgrade"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr(previous));
}

TEST_F(ConfigUpgradeTest, AnUpgradeThatFailsSaysAllThatWasReported) {
  test::makeFolders(previous);
  test::writeFile(user, test::document(""));
  const CommandResult result = tovanctl({"config", "upgrade"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr(user + " (invalid contents)\n"));
  EXPECT_THAT(result.err, HasSubstr("copyFile: open() on file " + previous + " failed"));
  EXPECT_EQ(test::readFile(user), test::document(""));
  EXPECT_THAT(keptCopies(), SizeIs(0));
}

TEST_F(ConfigUpgradeTest, ThePlanSaysWhenNoCopyIsKept) {
  test::makeFolders(folder);
  const auto planned = [&] { return succeeding({"config", "upgrade", "--plan"}).out; };
  test::writeFile(user, "");
  EXPECT_THAT(planned(), StartsWith(user + " is replaced by the shipped defaults, version 1.1, since fewer than two "
                                           "services are installed; no copy is kept, since it is empty\n"));
  test::writeFile(own_.masterFile(), test::document("<key>Version</key><string>1.1</string>"));
  test::writeFile(user, test::readFile(own_.masterFile()));
  EXPECT_THAT(planned(), HasSubstr("; no copy is kept, since it equals them\n"));
  succeeding({"config", "upgrade"});
  EXPECT_THAT(keptCopies(), IsEmpty());
}

// ---- What begins a configuration

TEST_F(ConfigUpgradeTest, TheFirstSettingAndTheFirstServiceComeOnTopOfTheShippedDefaults) {
  succeeding({"config", "set", "DaemonPort", "3000"});
  EXPECT_EQ(test::readFile(previous), test::readFile(own_.masterFile()));
  succeeding({"service", "install"});
  const std::string before = test::readFile(user);
  EXPECT_THAT(lifeOfDaemon(), Not(HasSubstr("Mervane daemon needs")));
  EXPECT_EQ(test::readFile(user), before) << "what was set and installed stays";
  std::filesystem::remove_all(folder);
  succeeding({"service", "install"});
  EXPECT_EQ(test::readFile(previous), test::readFile(own_.masterFile()));
}

// ---- config why, config diff

TEST_F(ConfigUpgradeTest, WhySaysWhereAValueComesFrom) {
  succeeding({"config", "upgrade"});
  json shipped = document({"config", "why", "DaemonPort", "--json"});
  EXPECT_EQ(shipped["value"], 2189);
  EXPECT_EQ(shipped["source"], "shipped");
  EXPECT_EQ(shipped["shippedDefault"], 2189);
  EXPECT_EQ(shipped["builtInDefault"], 2189);
  succeeding({"config", "set", "DaemonPort", "3000"});
  json mine = document({"config", "why", "DaemonPort", "--json"});
  EXPECT_EQ(mine["value"], 3000);
  EXPECT_EQ(mine["source"], "user");
  EXPECT_EQ(mine["shippedDefault"], 2189);
  // The settings at the library's own default were left out by that.
  json own = document({"config", "why", "NetworkConnection", "--json"});
  EXPECT_EQ(own["value"], "allinterfaces");
  EXPECT_EQ(own["source"], "default");
  EXPECT_EQ(own["stored"], nullptr);
  EXPECT_EQ(own["shippedDefault"], "allinterfaces");
  EXPECT_EQ(document({"config", "why", "ServerName", "--json"})["source"], "default");
  EXPECT_EQ(document({"config", "why", "StdoutPath", "--json"})["value"], nullptr);
  const std::string text = succeeding({"config", "why", "DaemonPort"}).out;
  EXPECT_EQ(text,
            "mervaneconfig / DaemonPort: 3000\n  comes from: you: it differs from the defaults\n"
            "  shipped default: 2189\n  the library's own default: 2189\n");
}

TEST_F(ConfigUpgradeTest, WhyKnowsTheEarlierDefaultsAndTheWholeFile) {
  succeeding({"config", "upgrade"});
  ship({{"<string>1.1<", "<string>1.2<"}, {"<integer>2189<", "<integer>2200<"}});
  const json earlier = document({"config", "why", "DaemonPort", "--json"});
  EXPECT_EQ(earlier["source"], "shipped");
  EXPECT_EQ(earlier["earlierDefault"], 2189);
  EXPECT_EQ(earlier["shippedDefault"], 2200);
  EXPECT_THAT(succeeding({"config", "why", "DaemonPort"}).out,
              HasSubstr("comes from: the earlier shipped defaults; `tovanctl config upgrade` brings the new ones\n"));
  const std::string weight = "hostperfscore / CPUTypes/Intel X86";
  EXPECT_EQ(document({"config", "why", weight, "--json"})["value"], 0.6);
  EXPECT_EQ(document({"config", "why", weight, "--json"})["path"], json({"hostperfscore", "CPUTypes", "Intel X86"}));
  const std::string entry = "mervaneservices/servicecontroller:com.brant.klarn.transcoderx/";
  const json instances = document({"config", "why", entry + "Instances", "--json"});
  EXPECT_EQ(instances["stored"], -1);
  EXPECT_GE(instances["value"].get<int>(), 1) << "one for each processor";
  EXPECT_EQ(instances["source"], "shipped");
  EXPECT_EQ(document({"config", "why", entry + "LogLevel", "--json"})["source"], "default");
  EXPECT_EQ(document({"config", "why", entry + "LogLevel", "--json"})["value"], 3);
}

TEST_F(ConfigUpgradeTest, AValueThatIsNotReadIsNoValueOfTheUsers) {
  succeeding({"config", "upgrade"});
  std::string text = test::readFile(user);
  text.replace(text.find("<integer>2189</integer>"), 23, "<string>many</string>");
  test::writeFile(user, text);
  const json port = document({"config", "why", "DaemonPort", "--json"});
  EXPECT_EQ(port["value"], 2189);
  EXPECT_EQ(port["stored"], "many");
  EXPECT_EQ(port["source"], "default");
  EXPECT_THAT(succeeding({"config", "why", "DaemonPort"}).out, HasSubstr("the configuration file says: many\n"));
}

TEST_F(ConfigUpgradeTest, AnUnknownKeyIsRefused) {
  EXPECT_EQ(tovanctl({"config", "why", "DaemonPrt"}).status, 3);
  EXPECT_THAT(tovanctl({"config", "why", "DaemonPrt"}).err, HasSubstr("did you mean \"DaemonPort\"?"));
  const CommandResult result = tovanctl({"config", "why", "no/where"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("have a value at \"no / where\""));
  EXPECT_EQ(document({"config", "why", "DaemonPort", "--json"})["value"], 2189) << "without a file";
  EXPECT_FALSE(test::exists(user));
}

TEST_F(ConfigUpgradeTest, DiffShowsWhatDiffersFromTheShippedDefaults) {
  EXPECT_THAT(succeeding({"config", "diff"}).err, HasSubstr("there is no configuration yet"));
  EXPECT_THAT(document({"config", "diff", "--json"})["differences"], IsEmpty());
  succeeding({"config", "upgrade"});
  EXPECT_THAT(succeeding({"config", "diff"}).err, HasSubstr("nothing differs from the shipped defaults"));
  succeeding({"config", "set", "DaemonPort", "3000"});
  succeeding({"config", "set", "StdoutPath", "/tmp/out"});
  std::string text = test::readFile(user);
  const std::string weight = "<key>Intel Core</key>\n\t\t\t<real>0.8</real>";
  ASSERT_NE(text.find(weight), std::string::npos) << text;
  text.erase(text.find(weight), weight.size());
  test::writeFile(user, text);
  const json found = document({"config", "diff", "--json"})["differences"];
  EXPECT_EQ(found, json::parse(R"([
    {"path": ["hostperfscore", "CPUTypes", "Intel Core"], "yours": null, "shipped": 0.8, "what": "missing"},
    {"path": ["mervaneconfig", "DaemonPort"], "yours": 3000, "shipped": 2189, "what": "changed"},
    {"path": ["mervaneconfig", "StdoutPath"], "yours": "/tmp/out", "shipped": null, "what": "added"}])"));
  const std::string table = succeeding({"config", "diff"}).out;
  EXPECT_THAT(table, testing::ContainsRegex("SETTING +YOURS +SHIPPED DEFAULT\n"));
  EXPECT_THAT(table, testing::ContainsRegex("\nmervaneconfig / DaemonPort +3000 +2189\n"));
}

}  // namespace
