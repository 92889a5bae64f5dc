// tovanctl notify post and watch.
#include "tests/tools/integration/tovanctl_host.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using test::RunningProgram;
using testing::HasSubstr;
using testing::StartsWith;

class TovanctlNotifyTest : public test::TovanctlHost {
 protected:
  // A watch that is in place.
  class Watch : public RunningProgram {
   public:
    explicit Watch(const Arguments& options) : RunningProgram(TOVAN_BUILD_DIR "/bin/tovanctl", whole(options)) {
      EXPECT_TRUE(prints("; Ctrl-C ends\n")) << output();
    }
    // What it printed on standard output.
    std::string results() const {
      const std::string all = output();
      return all.substr(all.find('\n') + 1);
    }

   private:
    static Arguments whole(const Arguments& options) {
      Arguments arguments = {"notify", "watch"};
      arguments.insert(arguments.end(), options.begin(), options.end());
      return arguments;
    }
  };

  // What a watch with --json shows of one notification.
  static json afterPosting(const Arguments& options) {
    Watch watch({"--json", "--count", "1"});
    Arguments post = {"notify", "post"};
    post.insert(post.end(), options.begin(), options.end());
    EXPECT_EQ(succeeding(post).out, "");
    EXPECT_EQ(watch.waitForEnd(), 0);
    return document(watch.results());
  }
};

TEST_F(TovanctlNotifyTest, ANameAloneHasNoObjectAndNoUserInfo) {
  const json seen = afterPosting({"Plain"});
  EXPECT_EQ(seen["name"], "Plain");
  EXPECT_TRUE(seen["object"].is_null());
  EXPECT_TRUE(seen["userInfo"].is_null());
}

TEST_F(TovanctlNotifyTest, AnEmptyObjectIsAnObject) {
  EXPECT_EQ(afterPosting({"Plain", "--object", ""})["object"], "");
  EXPECT_EQ(afterPosting({"Plain", "--object", "com.example \xC3\xBC"})["object"], "com.example \xC3\xBC");
}

TEST_F(TovanctlNotifyTest, EveryKindOfValueComesBackAsItWasSent) {
  const std::string information =
      R"({"text":"\u00fc\n","yes":true,"no":false,"one":1,"real":1.0,"small":-2147483648,"large":9223372036854775807,)"
      R"("tiny":5e-324,"zero":-0.0,"nothing":{},"none":[],"nested":{"list":[1,1.5,["deep",{"k":true}]]},)"
      R"("bytes":{"data":"AAH/"},"noBytes":{"data":""},"when":{"date":"2026-11-20T18:00:00Z"},)"
      R"("then":{"date":"1999-12-31T23:59:59.250000Z"},"nan":{"real":"nan"},"up":{"real":"inf"},"down":{"real":"-inf"}})";
  const json seen = afterPosting({"Kinds", "--info", information})["userInfo"];
  const json sent = json::parse(information);
  for (const auto& [key, value] : sent.items()) {
    EXPECT_EQ(seen[key].dump(), value.dump()) << key;
    EXPECT_EQ(seen[key].is_number_float(), value.is_number_float()) << key;
    EXPECT_EQ(seen[key].is_boolean(), value.is_boolean()) << key;
  }
  EXPECT_EQ(seen.size(), sent.size());
}

TEST_F(TovanctlNotifyTest, TheUserInfoItselfIsAlwaysADictionary) {
  EXPECT_EQ(afterPosting({"Plain", "--info", R"({"data":"not base64!"})"})["userInfo"]["data"], "not base64!");
  EXPECT_EQ(afterPosting({"Plain", "--info", "{}"})["userInfo"], json::object());
}

TEST_F(TovanctlNotifyTest, WhatIsNoUserInfoIsAUsageError) {
  const struct {
    std::string given;
    std::string reason;
  } cases[] = {
      {"{", "--info is no JSON: parse error"},
      {"[1]", "a JSON object is wanted"},
      {"7", "a JSON object is wanted"},
      {R"({"a":null})", "null stands for nothing"},
      {R"({"a":18446744073709551615})", "18446744073709551615 is too large"},
      {R"({"a":1e999})", "--info is no JSON: "},
      {R"({"a":{"data":"A"}})", "\"A\" is no base64"},
      {R"({"a":{"data":"A*=="}})", "is no base64"},
      {R"({"a":{"date":"tomorrow"}})", "\"tomorrow\" is no date"},
      {R"({"a":{"date":"2026-02-30T00:00:00Z"}})", "is no date"},
      {R"({"a":{"real":"1"}})", "\"1\" is none of"},
      {"{\"a\":" + std::string(600, '[') + std::string(600, ']') + "}", "more than 512 levels"},
  };
  for (const auto& one : cases) {
    const CommandResult result = tovanctl({"notify", "post", "X", "--info", one.given});
    EXPECT_EQ(result.status, 2) << one.given;
    EXPECT_THAT(result.err, HasSubstr(one.reason));
  }
}

TEST_F(TovanctlNotifyTest, ALineStaysALineWhateverTheTextsAre) {
  Watch watch({"--count", "1"});
  succeeding({"notify", "post", "a\nb\x1b[31m", "--object", "c\rd\x7f"});
  EXPECT_EQ(watch.waitForEnd(), 0);
  EXPECT_THAT(watch.results(), testing::EndsWith("  a b [31m  c d \n"));
}

TEST_F(TovanctlNotifyTest, WatchShowsOnlyTheNameThatIsAskedFor) {
  Watch watch({"Wanted", "--json", "--count", "1"});
  succeeding({"notify", "post", "Unwanted"});
  succeeding({"notify", "post", "Wanted"});
  EXPECT_EQ(watch.waitForEnd(), 0);
  EXPECT_EQ(document(watch.results())["name"], "Wanted");
}

TEST_F(TovanctlNotifyTest, WatchShowsOnlyTheObjectThatIsAskedFor) {
  Watch watch({"--object", "me", "--json", "--count", "1"});
  succeeding({"notify", "post", "First"});
  succeeding({"notify", "post", "Second", "--object", "you"});
  succeeding({"notify", "post", "Third", "--object", "me"});
  EXPECT_EQ(watch.waitForEnd(), 0);
  EXPECT_EQ(document(watch.results())["name"], "Third");
}

TEST_F(TovanctlNotifyTest, WatchForPeopleIsALineEach) {
  Watch watch({"--count", "2"});
  succeeding({"notify", "post", "First"});
  succeeding({"notify", "post", "Second", "--object", "me", "--info", R"({"a":1})"});
  EXPECT_EQ(watch.waitForEnd(), 0);
  EXPECT_THAT(watch.results(), testing::ContainsRegex("^[0-9:.]+  First  -\n[0-9:.]+  Second  me  \\{\"a\":1\\}\n$"));
}

TEST_F(TovanctlNotifyTest, WatchEndsAfterItsTime) {
  const CommandResult inTime = tovanctl({"notify", "watch", "Nothing", "--timeout", "0.2"});
  EXPECT_EQ(inTime.status, 0) << inTime.err;
  EXPECT_EQ(inTime.out, "");
  const CommandResult tooFew = tovanctl({"notify", "watch", "Nothing", "--timeout", "0.2", "--count", "2"});
  EXPECT_EQ(tooFew.status, 5);
  EXPECT_THAT(tooFew.err, HasSubstr("0 of 2 notifications arrived"));
}

TEST_F(TovanctlNotifyTest, WatchEndsWithCtrlC) {
  Watch watch({"--json"});
  EXPECT_EQ(watch.end(SIGINT), 0);
  Watch other({"--json", "--count", "3"});
  EXPECT_EQ(other.end(SIGTERM), 0);
}

TEST_F(TovanctlNotifyTest, ABusThatIsNotThereIsAFailure) {
  const std::string noFolder = folder() + "/file";
  test::writeFile(noFolder, "");
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere/at/all", 1);
  ::setenv("TOVAN_BUS_FOLDER", noFolder.c_str(), 1);
  const CommandResult post = tovanctl({"notify", "post", "Lost"});
  useOwnBus();
  EXPECT_EQ(post.status, 1);
  EXPECT_THAT(post.err, HasSubstr("the bus did not take the notification"));
}

TEST_F(TovanctlNotifyTest, WrongCommandLinesAreUsageErrors) {
  for (const Arguments& arguments : std::vector<Arguments>{{"notify"},
                                                           {"notify", "post"},
                                                           {"notify", "watch", "--count", "0"},
                                                           {"notify", "watch", "--timeout", "soon"},
                                                           {"notify", "post", "\xFF"}}) {
    EXPECT_EQ(tovanctl(arguments).status, 2) << arguments.back();
  }
}

}  // namespace
