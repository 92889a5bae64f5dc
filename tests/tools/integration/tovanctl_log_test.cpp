// tovanctl log show, follow, level and path.
#include <CoreFoundation/CFNumber.h>
#include <tovan/constants.h>
#include <tovan/global_logger.h>
#include <tovan/logger.h>
#include <tovan/notification_names.h>
#include <tovan/service_cache_file.h>

#include "tests/support/notification_log.h"
#include "tests/tools/integration/tovanctl_host.h"

namespace {

using nlohmann::json;
using plinth::CSTR;
using test::CommandResult;
using test::runLoopUntil;
using test::RunningProgram;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tovan::CTovanLogger;
using tovan::CTovanLoggerRef;

const std::string kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
    "<logs tms=\"352821909.250\" tmt=\"03/07/2012 14:05:09.250\" pnm=\"transcoder\">\n"
    "<mrk tms=\"352821909.250\" tmt=\"03/07/2012 14:05:09.250\" pid=\"4711\" kind=\"begin\" what=\"log-session\"/>\n";

std::string line(const std::string& text, int level = 3, const std::string& second = "10") {
  return "<log tms=\"3528219" + second + ".000\" tmt=\"03/07/2012 14:05:" + second + ".000\" pid=\"4711\" " +
         (level == 3 ? "" : "lvl=\"" + std::to_string(level) + "\" ") + "msg=\"" + text + "\"/>\n";
}

void append(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::app) << text;
}

class TovanctlLogTest : public test::TovanctlHost {
 protected:
  void SetUp() override {
    TovanctlHost::SetUp();
    ::setenv("TZ", "UTC", 1);
    test::makeFolders(logs);
  }
  void TearDown() override {
    TovanctlHost::TearDown();
    ::unsetenv("TZ");
  }

  // A follow that is in place: it has said what it has to say about the file, or shown a text.
  class Follow : public RunningProgram {
   public:
    Follow(const Arguments& options, const std::string& sign)
        : RunningProgram(TOVAN_BUILD_DIR "/bin/tovanctl", whole(options)) {
      EXPECT_TRUE(prints(sign)) << output();
    }

   private:
    static Arguments whole(const Arguments& options) {
      Arguments arguments = {"log", "follow"};
      arguments.insert(arguments.end(), options.begin(), options.end());
      return arguments;
    }
  };

  CommandResult show(const std::string& content, Arguments options = {}) const {
    const std::string path = folder() + "/shown.log";
    test::writeFile(path, content);
    options.insert(options.begin(), {"log", "show", "--file", path});
    return tovanctl(options);
  }
  static std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
    return found;
  }

  const std::string logs = test::scratchHome() + "/Library/Logs/Lumisphere";
  const std::string agentLog = logs + "/" + agent + ".log";
};

TEST_F(TovanctlLogTest, ShowIsALineForEachRecord) {
  const CommandResult result = show(kHeader + line("it's text") + line("bad", 1));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "2012-03-07 14:05:09.250     4711   -  begin log-session\n"
            "2012-03-07 14:05:10.000     4711   3  it's text\n"
            "2012-03-07 14:05:10.000     4711   1  bad\n");
}

TEST_F(TovanctlLogTest, ShowReadsTheLogOfAServiceAndOfOneOfItsInstances) {
  installAgent(2);
  test::writeFile(agentLog, kHeader + line("of instance 0"));
  test::writeFile(logs + "/" + agent + "-1.log", kHeader + line("of instance 1"));
  test::writeFile(logs + "/mervaned.log", kHeader + line("of the daemon"));
  EXPECT_THAT(succeeding({"log", "show", agent}).out, HasSubstr("  of instance 0\n"));
  EXPECT_THAT(succeeding({"log", "show", agent, "--instance", "1"}).out, HasSubstr("  of instance 1\n"));
  EXPECT_THAT(succeeding({"log", "show", "mervaned"}).out, HasSubstr("  of the daemon\n"));
  succeeding({"service", "remove", agent});
  EXPECT_THAT(succeeding({"log", "show", agent}).out, HasSubstr("  of instance 0\n")) << "what is there can be read";
}

TEST_F(TovanctlLogTest, ALogThatIsNotThereIsAFailureAndAServiceThatIsNotThereAnUnknownName) {
  installAgent();
  const CommandResult missing = tovanctl({"log", "show", agent});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr(agentLog + " does not exist; a service makes it when it starts, if its Logging"));
  const CommandResult unknown = tovanctl({"log", "show", agent + "s"});
  EXPECT_EQ(unknown.status, 3);
  EXPECT_THAT(unknown.err, HasSubstr("did you mean \"" + agent));
  EXPECT_EQ(tovanctl({"log", "show", "../../secret"}).status, 3);
  EXPECT_EQ(tovanctl({"log", "show", "--file", "/nowhere/at.all"}).status, 1);
  EXPECT_THAT(tovanctl({"log", "show", "--file", "/tmp"}).err, HasSubstr("cannot read /tmp: it is a folder"));
}

TEST_F(TovanctlLogTest, APipeInTheLogsPlaceDoesNotMakeItWait) {
  installAgent();
  ASSERT_EQ(::mkfifo(agentLog.c_str(), 0600), 0);
  const CommandResult result = tovanctl({"log", "show", agent});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot read " + agentLog + ": it is no file"));
  EXPECT_EQ(tovanctl({"log", "follow", agent}).status, 1);
}

TEST_F(TovanctlLogTest, WhatCouldNotBeReadIsToldWithItsPlaceAtTheEnd) {
  const std::string before = kHeader + line("one");
  const std::string torn = line("torn").substr(0, 70);
  const CommandResult result = show(before + "garbage\n" + line("two") + torn);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(count(result.out, "\n"), 3U);
  EXPECT_EQ(result.err, "tovanctl: 2 records of " + folder() + "/shown.log could not be read:\n  line 5, byte " +
                            std::to_string(before.size()) + " (7 bytes): text outside of a record\n  line 7, byte " +
                            std::to_string((before + "garbage\n" + line("two")).size()) +
                            " (70 bytes): a record that is cut off\n");
  std::string many = kHeader;
  for (int i = 0; i < 25; ++i) many += "garbage\n";
  EXPECT_THAT(show(many).err, testing::EndsWith("\n  and 5 more\n"));
}

TEST_F(TovanctlLogTest, TheFiltersChooseTheRecords) {
  const std::string log =
      kHeader + line("one", 1, "10") + line("two", 2, "20") + line("three", 3, "30") + line("four", 4, "40");
  const auto shown = [&](const Arguments& options) {
    const CommandResult result = show(log, options);
    EXPECT_EQ(result.status, 0) << result.err;
    std::string words;
    for (const char* const word : {"session", "one", "two", "three", "four"}) {
      if (result.out.find(word) != std::string::npos) words += std::string(words.empty() ? "" : " ") + word;
    }
    return words;
  };
  EXPECT_EQ(shown({}), "session one two three four");
  EXPECT_EQ(shown({"--level", "2"}), "one two");
  EXPECT_EQ(shown({"--level", "0"}), "");
  EXPECT_EQ(shown({"--since", "2012-03-07 14:05:20"}), "two three four");
  EXPECT_EQ(shown({"--until", "2012-03-07 14:05:20"}), "session one two");
  EXPECT_EQ(shown({"--since", "2012-03-07T14:05", "--until", "2012-03-08", "--level", "3"}), "session one two three");
  EXPECT_EQ(shown({"--since", "-10m"}), "");
  EXPECT_EQ(shown({"--until=-1d", "--grep", "^t[wh]"}), "two three");
  EXPECT_EQ(shown({"--grep", "log-s"}), "session");
}

TEST_F(TovanctlLogTest, BadValuesOfOptionsNameTheOptionAndWhatItTakes) {
  const struct {
    Arguments options;
    std::string reason;
  } cases[] = {
      {{"--since", "yesterday"}, "--since: \"yesterday\" is no time; it takes \"2026-11-21\""},
      {{"--until", "25:00"}, "--until: \"25:00\" is no time; it takes"},
      {{"--since", "-1d", "--until", "-2d"}, "--until is before --since"},
      {{"--grep", "["}, "--grep: \"[\" is no regular expression"},
      {{"--level", "-1"}, "--level"},
      {{"--level", "high"}, "--level"},
      {{"--instance", "1"}, "--instance belongs to a service"},
      {{"mervaned"}, "name either a service or, with --file, a file"},
  };
  for (const auto& one : cases) {
    const CommandResult result = show("", one.options);
    EXPECT_EQ(result.status, 2) << one.reason;
    EXPECT_THAT(result.err, HasSubstr(one.reason));
  }
  EXPECT_EQ(tovanctl({"log", "show"}).status, 2);
  EXPECT_EQ(tovanctl({"log"}).status, 2);
  EXPECT_EQ(tovanctl({"log", "path"}).status, 2);
}

TEST_F(TovanctlLogTest, MarksMakeATreeWithDurations) {
  const auto mark = [](const std::string& second, const std::string& rest) {
    return "<mrk tms=\"3528219" + second + ".000\" tmt=\"x\" pid=\"4711\" " + rest + "/>\n";
  };
  const std::string log = kHeader + mark("10", R"(kind="begin" what="job" msg="film.mov")") + line("in the job") +
                          mark("12", R"(kind="end" what="job")") + line("after it", 3, "13") +
                          mark("20", R"(kind="end" what="log-session")") + kHeader;
  const CommandResult result = show(log, {"--marks"});
  EXPECT_EQ(result.out,
            "2012-03-07 14:05:09.250     4711   -  begin log-session\n"
            "2012-03-07 14:05:10.000     4711   -    begin job: film.mov\n"
            "2012-03-07 14:05:10.000     4711   3      in the job\n"
            "2012-03-07 14:05:12.000     4711   -    end job (2.000 s)\n"
            "2012-03-07 14:05:13.000     4711   3    after it\n"
            "2012-03-07 14:05:20.000     4711   -  end log-session (10.750 s)\n"
            "2012-03-07 14:05:09.250     4711   -  begin log-session\n"
            "process 4711 has no end of log-session (since 2012-03-07 14:05:09.250)\n");
  const json shown = document(show(log, {"--marks", "--json"}).out);
  EXPECT_EQ(shown["records"][2]["depth"], 2);
  EXPECT_EQ(shown["records"][3]["duration"], 2.0);
  EXPECT_EQ(shown["underWay"].dump(), R"([{"pid":4711,"since":"2012-03-07T14:05:09.250Z","what":"log-session"}])");
}

TEST_F(TovanctlLogTest, JsonIsOneDocument) {
  const json shown = document(show(kHeader + line("fish &amp; &lt;chips> %3C") + "garbage\n", {"--json"}).out);
  EXPECT_EQ(shown["path"], folder() + "/shown.log");
  ASSERT_EQ(shown["records"].size(), 2U);
  EXPECT_EQ(shown["records"][0]["mark"], "begin");
  EXPECT_EQ(shown["records"][1]["message"], "fish & <chips> %3C");
  EXPECT_EQ(shown["records"][1]["time"], "2012-03-07T14:05:10.000Z");
  EXPECT_EQ(shown["unreadable"]["count"], 1);
  EXPECT_EQ(shown["unreadable"]["places"][0]["line"], 5);
  EXPECT_TRUE(document(show("", {"--json"}).out)["records"].empty());
}

TEST_F(TovanctlLogTest, PercentEscapesStayUnlessDecoded) {
  EXPECT_THAT(show(line("14 %3C 20")).out, HasSubstr("  14 %3C 20\n"));
  EXPECT_THAT(show(line("14 %3C 20"), {"--decode"}).out, HasSubstr("  14 < 20\n"));
  EXPECT_THAT(show(line("%1B[2J"), {"--decode"}).out, HasSubstr("  ?[2J\n")) << "nothing reaches the terminal";
  EXPECT_THAT(show(line("14 %3C 20"), {"--decode", "--grep", "<"}).out, HasSubstr("14 < 20"));
}

TEST_F(TovanctlLogTest, ALogComesFromAPipeAsWell) {
  test::writeFile(folder() + "/piped.log", kHeader + line("through a pipe"));
  const auto piped = [this](const std::string& to) {
    return test::runCommand(
        "/bin/sh", {"-c", "cat '" + folder() + "/piped.log' | " TOVAN_BUILD_DIR "/bin/tovanctl log show --file " + to});
  };
  EXPECT_THAT(piped("-").out, HasSubstr("  through a pipe\n"));
  EXPECT_THAT(piped("/dev/stdin").out, HasSubstr("  through a pipe\n"));
  EXPECT_EQ(tovanctl({"log", "follow", "--file", "-"}).status, 2);
}

TEST_F(TovanctlLogTest, AFileThatIsLargerThanTheMemoryIsRead) {
#ifdef TOVAN_ADDRESS_SANITIZED
  GTEST_SKIP() << "AddressSanitizer reserves more address space than the limit of this test allows";
#endif
  const std::string path = folder() + "/large.log";
  test::writeFile(path, kHeader + line("before"));
  std::filesystem::resize_file(path, std::uintmax_t{600} << 20U);  // zeros, which take no place on the disk
  append(path, "\n" + line("after"));
  const CommandResult result = test::runCommand(
      "/bin/sh", {"-c", "ulimit -v 300000; exec " TOVAN_BUILD_DIR "/bin/tovanctl log show --file " + path});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, testing::EndsWith("  after\n"));
  EXPECT_THAT(result.err, HasSubstr("longer than 16 MiB"));
}

// ---- Following

TEST_F(TovanctlLogTest, FollowShowsTheLastRecordsAndThenTheNewOnes) {
  installAgent();
  std::string old = kHeader;
  for (int i = 0; i < 30; ++i) old += line("old " + std::to_string(i) + ".");
  test::writeFile(agentLog, old);
  Follow follow({agent}, "is followed; Ctrl-C ends\n");
  EXPECT_EQ(count(follow.output(), "old "), 10U);
  append(agentLog, line("new").substr(0, 40));
  append(agentLog, line("new").substr(40));
  EXPECT_TRUE(follow.prints("  new\n"));
  EXPECT_EQ(follow.end(SIGINT), 0);
  EXPECT_EQ(count(follow.output(), "\n"), 12U) << follow.output();
  Follow none({agent, "--last", "0", "--level", "2"}, "is followed");
  append(agentLog, line("unwanted") + line("wanted", 2));
  EXPECT_TRUE(none.prints("  wanted\n"));
  EXPECT_THAT(none.output(), Not(HasSubstr("unwanted")));
  EXPECT_EQ(none.end(SIGTERM), 0);
}

TEST_F(TovanctlLogTest, FollowWaitsForAFileThatDoesNotExistYetAndSaysSo) {
  installAgent();
  std::filesystem::remove_all(logs);
  Follow follow({agent}, agentLog + " is not there: waiting for it");
  test::makeFolders(logs);
  test::writeFile(agentLog, kHeader + line("the first"));
  EXPECT_TRUE(follow.prints("  the first\n"));
  EXPECT_THAT(follow.output(), HasSubstr("is there now\n"));
  EXPECT_EQ(follow.end(SIGINT), 0);
}

TEST_F(TovanctlLogTest, FollowSurvivesTruncationEvenWhenTheFileHasGrownAgain) {
  installAgent();
  test::writeFile(agentLog, kHeader + line("before"));
  Follow follow({agent}, "is followed; Ctrl-C ends\n");
  std::filesystem::resize_file(agentLog, 0);
  append(agentLog, kHeader + line("after"));
  EXPECT_TRUE(follow.prints("  after\n"));
  std::string other = kHeader + line("grown again") + line("and longer than before");
  other.replace(other.find("352821909"), 9, "352821999");
  test::writeFile(agentLog, other);
  EXPECT_TRUE(follow.prints("  grown again\n"));
  EXPECT_TRUE(follow.prints("  and longer than before\n"));
  EXPECT_EQ(count(follow.output(), "was emptied: reading it from its beginning\n"), 2U) << follow.output();
  EXPECT_EQ(follow.end(SIGINT), 0);
}

TEST_F(TovanctlLogTest, FollowSurvivesReplacementAndRemoval) {
  installAgent();
  test::writeFile(agentLog, kHeader + line("of the first file"));
  Follow follow({agent}, "is followed; Ctrl-C ends\n");
  test::writeFile(agentLog + ".new", kHeader + line("of the second file"));
  std::filesystem::rename(agentLog, agentLog + ".1");
  EXPECT_TRUE(follow.prints(" is not there: waiting for it"));
  append(agentLog + ".1", line("a last word"));  // from a writer that has it open
  EXPECT_TRUE(follow.prints("  a last word\n"));
  append(agentLog + ".1", line("and another"));
  std::filesystem::rename(agentLog + ".new", agentLog);
  EXPECT_TRUE(follow.prints("  of the second file\n"));
  EXPECT_THAT(follow.output(), HasSubstr("  and another\n"));
  std::filesystem::remove(agentLog);
  EXPECT_TRUE(test::runLoopUntil([&] { return count(follow.output(), " is not there: waiting for it") == 2; }));
  test::writeFile(agentLog, kHeader + line("of the third file"));
  EXPECT_TRUE(follow.prints("  of the third file\n"));
  EXPECT_EQ(follow.end(SIGINT), 0);
}

TEST_F(TovanctlLogTest, FollowTellsWhatItCannotReadAtOnceAndAtTheEnd) {
  installAgent();
  test::writeFile(agentLog, kHeader + line("before"));
  Follow follow({agent}, "is followed; Ctrl-C ends\n");
  append(agentLog, "garbage\n" + line("after"));
  EXPECT_TRUE(follow.prints("  after\n"));
  EXPECT_TRUE(follow.prints(" cannot be read: line 5, byte "));
  EXPECT_EQ(follow.end(SIGINT), 0);
  EXPECT_THAT(follow.output(), HasSubstr("1 record of " + agentLog + " could not be read:\n"));
}

TEST_F(TovanctlLogTest, FollowInJsonIsADocumentALine) {
  test::writeFile(agentLog, kHeader);
  Follow follow({"--file", agentLog, "--json", "--last", "0"}, "is followed; Ctrl-C ends\n");
  append(agentLog, line("one"));
  ASSERT_TRUE(follow.prints("}\n"));
  const std::string output = follow.output();
  const json shown = document(output.substr(output.find('\n') + 1));
  EXPECT_EQ(shown["kind"], "message");
  EXPECT_EQ(shown["message"], "one");
  EXPECT_EQ(follow.end(SIGINT), 0);
}

// ---- Levels

class TovanctlLogLevelTest : public TovanctlLogTest {
 protected:
  void SetUp() override {
    TovanctlLogTest::SetUp();
    installAgent();
  }
  json level() const { return document(succeeding({"log", "level", agent, "--json"}).out); }
};

TEST_F(TovanctlLogLevelTest, TheUsersLevelGoesBeforeTheServicesOwn) {
  EXPECT_EQ(succeeding({"log", "level", agent}).out, agent + ": 3\n");
  succeeding({"service", "set", agent, "LogLevel", "4"});
  EXPECT_EQ(level()["level"], 4);
  EXPECT_EQ(succeeding({"log", "level", agent, "6"}).out,
            agent + ": the log level is now 6 (the user's; the service's own is 4)\n");
  EXPECT_EQ(level()["own"], 4);
  EXPECT_EQ(level()["override"], 6);
  EXPECT_EQ(level()["level"], 6);
  succeeding({"log", "level", agent, "3"});
  EXPECT_EQ(level()["level"], 3) << "the usual level is a level of the user's as well";
  EXPECT_EQ(succeeding({"log", "level", agent, "--reset"}).out, agent + ": the log level is now 4\n");
  EXPECT_TRUE(level()["override"].is_null());
}

TEST_F(TovanctlLogLevelTest, OtherPreferencesOfTheUserStay) {
  succeeding({"service", "set", agent, "StdoutPath", "/tmp/out"});
  succeeding({"log", "level", agent, "5"});
  succeeding({"log", "level", agent, "--reset"});
  EXPECT_EQ(succeeding({"service", "get", agent, "StdoutPath"}).out, "/tmp/out\n");
}

TEST_F(TovanctlLogLevelTest, LoggersAreToldSoThatTheyListen) {
  using namespace tovan::TovanNotification;
  test::NotificationLog log;
  log.observe(kTovanPrefsChangedNotification, nullptr);
  succeeding({"log", "level", agent, "5"});
  ASSERT_TRUE(log.await(1));
  EXPECT_EQ(log.all[0].objectText(), "com.brant.mervane.prefexternal");
  const CFDictionaryRef userInfo = log.all[0].userInfo.get();
  ASSERT_NE(userInfo, nullptr);
  EXPECT_EQ(CFDictionaryGetValue(userInfo, tovan::TovanCorePrivate::kDictKeyHeadless), kCFBooleanTrue);
  EXPECT_TRUE(CFDictionaryContainsKey(userInfo, tovan::TovanCorePrivate::kDictKeyLogging));
}

TEST_F(TovanctlLogLevelTest, WithoutABusTheLevelIsStoredAndTheCommandSaysWhoWasNotTold) {
  const std::string noFolder = folder() + "/file";
  test::writeFile(noFolder, "");
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere/at/all", 1);
  ::setenv("TOVAN_BUS_FOLDER", noFolder.c_str(), 1);
  const CommandResult result = tovanctl({"log", "level", agent, "5"});
  useOwnBus();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("running processes were not told: the bus did not take the notification"));
  EXPECT_EQ(level()["level"], 5);
}

TEST_F(TovanctlLogLevelTest, WrongCommandLinesChangeNothing) {
  for (const Arguments& arguments : std::vector<Arguments>{{"-1"}, {"high"}, {"2147483648"}, {"5", "--reset"}}) {
    Arguments all = {"log", "level", agent};
    all.insert(all.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(tovanctl(all).status, 2) << arguments.front();
  }
  EXPECT_EQ(tovanctl({"log", "level", "nobody", "5"}).status, 3);
  EXPECT_TRUE(level()["override"].is_null());
}

TEST_F(TovanctlLogLevelTest, TheDaemonHasNoLevelOfItsOwn) {
  const std::string first = "jobcontroller:com.brant.mervane.cluster.admin";  // of the shipped defaults
  succeeding({"log", "level", first, "5"});
  EXPECT_EQ(succeeding({"log", "level", "mervaned"}).out,
            "mervaned: 5 from its next start on (that of the first service, " + first +
                ", since the daemon has no entry of its own)\n");
  const CommandResult result = tovanctl({"log", "level", "mervaned", "5"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("the daemon has no entry that could hold a level"));
}

TEST_F(TovanctlLogLevelTest, PathIsWhereTheLoggerWrites) {
  EXPECT_EQ(succeeding({"log", "path", agent}).out, agentLog + "\n");
  const json second = document(succeeding({"log", "path", agent, "--instance", "2", "--json"}).out);
  EXPECT_EQ(second["path"], logs + "/" + agent + "-2.log");
  EXPECT_EQ(second["exists"], false);
  EXPECT_EQ(succeeding({"log", "path", "mervaned"}).out, logs + "/mervaned.log\n");
  EXPECT_EQ(tovanctl({"log", "path", "nobody"}).status, 3);
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(true, CSTR(agent), 2);
  EXPECT_TRUE(std::filesystem::equivalent(logger->logPath()->str(), second["path"].get<std::string>()));
}

// ---- With the logger itself, in this process

TEST_F(TovanctlLogLevelTest, ALoggerTakesItsNewLevelAtOnce) {
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(true, CSTR(agent), 0);
  EXPECT_EQ(logger->logLevel(), 3U);
  succeeding({"log", "level", agent, "7"});
  EXPECT_TRUE(runLoopUntil([&] { return logger->logLevel() == 7; }));
  succeeding({"log", "level", agent, "--reset"});
  EXPECT_TRUE(runLoopUntil([&] { return logger->logLevel() == 3; }));
  const std::string shown = succeeding({"log", "show", agent}).out;
  EXPECT_THAT(shown, HasSubstr("   7  Setting log level = 7\n"));
  EXPECT_THAT(shown, HasSubstr("   3  Setting log level = 3\n"));
}

TEST_F(TovanctlLogLevelTest, WhatALoggerWritesIsShown) {
  const std::string texts[] = {"plain",
                               "it's <14> & \"20\"",
                               "two\n\tlines",
                               "gr\xC3\xB6\xC3\x9F"
                               "er",
                               "\x01\xFF<",
                               "fish &amp; chips",
                               "a\" b=\"c",
                               "  blanks  "};
  {
    const CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(true, CSTR(agent), 0);
    const CTovanLogger::CScopeMarker scope(CSTR("all <of> them"), logger->log(3), CSTR("\"eight\""));
    for (const std::string& text : texts) logger->log(2) << text << tovan::endl;
  }
  const CommandResult result = tovanctl({"log", "show", agent, "--json", "--marks"});
  EXPECT_EQ(result.err, "");
  const json records = document(result.out)["records"];
  ASSERT_EQ(records.size(), 12U) << result.out;
  EXPECT_EQ(records[1]["what"], "all <of> them");
  EXPECT_EQ(records[1]["message"], "\"eight\"");
  const char* const expected[] = {"plain",
                                  "it's %3C14%3E %26 %2220%22",
                                  "two\n\tlines",
                                  "gr\xC3\xB6\xC3\x9F"
                                  "er",
                                  "\xEF\xBF\xBD\xEF\xBF\xBD<",
                                  "fish & chips",
                                  "a",
                                  "  blanks  "};
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(records[i + 2]["message"], expected[i]);
    EXPECT_EQ(records[i + 2]["level"], 2);
    EXPECT_EQ(records[i + 2]["depth"], 2);
  }
  EXPECT_EQ(records[11]["what"], "log-session");
  EXPECT_TRUE(records[11]["duration"].is_number());
}

TEST_F(TovanctlLogLevelTest, ALoggerThatWritesIsFollowed) {
  Follow follow({agent}, "waiting for it");
  const CTovanLoggerRef logger(new CTovanLogger());
  logger->startupLogging(true, CSTR(agent), 0);
  for (int i = 0; i < 1000; ++i) logger->log(3) << "record " << i << "." << tovan::endl;
  EXPECT_TRUE(follow.prints("record 999.\n"));
  EXPECT_EQ(follow.end(SIGINT), 0);
  EXPECT_EQ(count(follow.output(), "  record "), 1000U);
}

}  // namespace
