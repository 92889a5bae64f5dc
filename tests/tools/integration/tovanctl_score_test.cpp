// tovanctl score as a user meets it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using testing::ContainsRegex;
using testing::HasSubstr;

class TovanctlScoreTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::remove_all(test::scratchHome() + "/Library"); }

  void configure(const std::string& cpuTypes) const {
    const std::string folder = test::scratchHome() + "/Library/Application Support/Lumisphere";
    test::makeFolders(folder);
    test::writeFile(folder + "/LumisphereConfig.plist",
                    "<plist version=\"1.0\"><dict><key>hostperfscore</key><dict><key>CPUTypes</key><dict>" + cpuTypes +
                        "</dict></dict></dict></plist>");
  }
  CommandResult score(const std::vector<std::string>& options = {}) const {
    std::vector<std::string> arguments = {"score"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    CommandResult result = test::runCommand("tovanctl", arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    return result;
  }
  json document() const {
    const CommandResult result = score({"--json"});
    json parsed = json::parse(result.out, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << result.out;
    EXPECT_EQ(parsed.value("schema", 0), 1);
    EXPECT_DOUBLE_EQ(
        parsed["score"].get<double>(),
        parsed["clockSpeed"].get<double>() * parsed["processors"].get<double>() * parsed["weight"].get<double>());
    EXPECT_GE(parsed["processors"].get<int>(), 1);
    return parsed;
  }
};

TEST_F(TovanctlScoreTest, WithoutAConfigurationTheDetectedTypeWeighsOne) {
  const json shown = document();
  EXPECT_EQ(shown["typeFrom"], "host");
  EXPECT_NE(shown["type"], "");
  EXPECT_EQ(shown["weight"], 1.0);
  EXPECT_EQ(shown["weightFrom"], "none");
  EXPECT_THAT(score().err, HasSubstr("CCPUTypePerfScoreEntry::cpuTypeScore: unknown CPU type \"" +
                                     shown["type"].get<std::string>() + "\"."));
  EXPECT_FALSE(test::exists(test::scratchHome() + "/Library")) << "looking must create nothing";
}

TEST_F(TovanctlScoreTest, TheConfiguredTypeCountsWithItsWeight) {
  configure("<key>Current</key><string>Intel Core 2</string><key>Intel Core 2</key><real>1.5</real>");
  const json shown = document();
  EXPECT_EQ(shown["type"], "Intel Core 2");
  EXPECT_EQ(shown["typeFrom"], "configuration");
  EXPECT_EQ(shown["weight"], 1.5);
  EXPECT_EQ(shown["weightFrom"], "type");
}

TEST_F(TovanctlScoreTest, ATypeWithoutAWeightCountsWithTheDefault) {
  configure("<key>Current</key><string>Intel Core 2</string><key>Default</key><real>0.8</real>");
  const json shown = document();
  EXPECT_EQ(shown["weight"], 0.8);
  EXPECT_EQ(shown["weightFrom"], "default");
}

TEST_F(TovanctlScoreTest, TheTableHasALineForEachFactor) {
  configure("<key>Current</key><string>Odd</string><key>Odd</key><real>0.25</real>");
  const CommandResult result = score();
  EXPECT_THAT(result.out, ContainsRegex("(^|\n)FACTOR +VALUE +WHERE FROM\n"));
  EXPECT_THAT(result.out, ContainsRegex("\nclock +([0-9.]+ GHz  the fastest|-1 +this host does not tell)"));
  EXPECT_THAT(result.out, ContainsRegex("\nprocessors +[0-9]+ +on line\n"));
  EXPECT_THAT(result.out, ContainsRegex("\ntype +Odd +the configuration\n"));
  EXPECT_THAT(result.out, ContainsRegex("\nweight +0.25 +the configuration\n"));
  EXPECT_THAT(result.out, ContainsRegex("\nscore +-?[0-9.]+ +the product\n"));
}

TEST_F(TovanctlScoreTest, AConfigurationThatCannotBeReadIsAnError) {
  configure("<key>Current");
  const CommandResult result = test::runCommand("tovanctl", {"score"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("CFPropertyListCreateFromXMLData() failed"));
}

}  // namespace
