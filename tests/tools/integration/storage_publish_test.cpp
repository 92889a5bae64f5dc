// Publishing through the daemon, as people do it with tovanctl: who holds what, and what outlives what.
#include <chrono>

#include "tests/tools/integration/storage_host.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using test::runLoopUntil;
using test::RunningProgram;
using testing::HasSubstr;

const std::string kTovanctl = TOVAN_BUILD_DIR "/bin/tovanctl";

class StoragePublishTest : public test::StorageHost {
 protected:
  static std::unique_ptr<RunningProgram> hold(const std::string& path, const std::string& client) {
    auto holder = std::make_unique<RunningProgram>(kTovanctl,
                                                   Arguments{"storage", "publish", path, "--hold", "--client", client});
    EXPECT_TRUE(holder->prints("published")) << holder->output();
    return holder;
  }
};

TEST_F(StoragePublishTest, TwoClientsHaveOneLineThatGoesWithTheLastOfThem) {
  startDaemon();
  const std::string path = folder("shared folder");
  EXPECT_EQ(storageSucceeds({"publish", path, "--client", "one"}).out, "published " + path + " for one\n");
  storageSucceeds({"publish", path, "--client", "two"});
  EXPECT_EQ(published(), work() + "/shared\\ folder\n");
  EXPECT_TRUE(test::exists(path + "/.mervane.plist"));
  const json entry = onlyExport();
  EXPECT_EQ(entry["references"], 2);
  EXPECT_EQ(entry["holders"], json::array({holder("one", nullptr, "none", 1), holder("two", nullptr, "none", 1)}));
  storageSucceeds({"unpublish", path, "--client", "one"});
  EXPECT_EQ(published(), work() + "/shared\\ folder\n");
  EXPECT_EQ(storageSucceeds({"unpublish", path, "--client", "two"}).out, "gave back " + path + " for two\n");
  EXPECT_EQ(published(), "");
  EXPECT_TRUE(list()["exports"].empty());
}

TEST_F(StoragePublishTest, AHolderThatIsKilledIsShownAsGoneUntilSomebodyGivesItsReferenceBack) {
  startDaemon();
  const std::string path = folder("held");
  const auto first = hold(path, "jobs");
  const auto second = hold(path, "jobs");
  EXPECT_EQ(onlyExport()["holders"],
            json::array({holder("jobs", first->pid(), "alive", 1), holder("jobs", second->pid(), "alive", 1)}));
  EXPECT_EQ(first->end(SIGKILL), 128 + SIGKILL);
  EXPECT_EQ(onlyExport()["holders"],
            json::array({holder("jobs", first->pid(), "gone", 1), holder("jobs", second->pid(), "alive", 1)}));
  EXPECT_THAT(storageSucceeds({"list"}).out, HasSubstr("gone"));
  EXPECT_TRUE(runLoopUntil([this] { return daemonProcess().output().find("is gone and holds") != std::string::npos; }))
      << daemonProcess().output();
  EXPECT_EQ(onlyExport()["references"], 2) << "the library keeps what clients hold";
  storageSucceeds({"unpublish", path, "--client", "jobs", "--pid", std::to_string(first->pid())});
  EXPECT_EQ(onlyExport()["holders"], json::array({holder("jobs", second->pid(), "alive", 1)}));
  EXPECT_EQ(second->end(), 0) << second->output();
  EXPECT_THAT(second->output(), HasSubstr("gave back " + path + " for jobs, process "));
  EXPECT_EQ(published(), "");
}

TEST_F(StoragePublishTest, AnExportThatAKilledDaemonLeavesIsShownAndTakenDownByOneUnpublish) {
  startDaemon();
  const std::string path = folder("left");
  for (const char* const client : {"one", "two"}) storageSucceeds({"publish", path, "--client", client});
  killDaemon();
  startDaemon();
  const json entry = onlyExport();
  EXPECT_EQ(entry["leftOver"], true);
  EXPECT_EQ(entry["inExportsFile"], true);
  EXPECT_EQ(entry["holders"], json::array());
  EXPECT_THAT(storageSucceeds({"list"}).out, HasSubstr("left over from an earlier run"));
  storageSucceeds({"unpublish", path});
  EXPECT_EQ(published(), "");
  EXPECT_TRUE(list()["exports"].empty());
}

TEST_F(StoragePublishTest, ARestartKeepsWhatIsPublishedAndAHolderTakesItsReferenceAgain) {
  startDaemon();
  const std::string path = folder("kept");
  const auto holder = hold(path, "jobs");
  storageSucceeds({"publish", folder("left")});
  const std::string before = published();
  restartDaemon(false);
  EXPECT_TRUE(holder->prints("taking the reference again")) << holder->output();
  EXPECT_TRUE(runLoopUntil([&] { return list()["exports"][0]["holders"].size() == 1; }));
  const json exports = list()["exports"];
  ASSERT_EQ(exports.size(), 2U);
  EXPECT_EQ(exports[0]["path"], path);
  EXPECT_EQ(exports[0]["holders"], json::array({this->holder("jobs", holder->pid(), "alive", 1)}));
  EXPECT_EQ(exports[1]["leftOver"], true);
  EXPECT_EQ(published(), before);
  EXPECT_EQ(holder->end(), 0) << holder->output();
}

TEST_F(StoragePublishTest, TheOrderlyEndTakesEveryExportOutThoseOfEarlierRunsToo) {
  startDaemon();
  storageSucceeds({"publish", folder("earlier")});
  killDaemon();
  startDaemon();
  storageSucceeds({"publish", folder("now")});
  storageSucceeds({"publish", folder("now"), "--client", "another"});
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
  EXPECT_EQ(published(), "");
}

TEST_F(StoragePublishTest, AHolderEndsWhenItsDaemonDoes) {
  startDaemon();
  const auto holder = hold(folder("held"), "jobs");
  killDaemon();
  EXPECT_EQ(holder->waitForEnd(), 6) << holder->output();
  EXPECT_THAT(holder->output(), HasSubstr("the daemon ended, and the reference with it"));
}

TEST_F(StoragePublishTest, HostilePathsGiveOneLineThatComesBackOrAClearRefusal) {
  startDaemon();
  for (const std::string name :
       {"a blank", "\"quote\"", "it's", "back\\slash", "back\\040slash", "#hash", "-dash", "$(touch /tmp/x)", "`x`",
        "a;b&c|d", "tab\there", "\x01\x7f", "*?[]", "~", "ü\u202e", "host(rw)", "%41%s"}) {
    const std::string path = folder(name);
    ASSERT_EQ(storage({"publish", path}).status, 0) << name;
    const json entry = onlyExport();
    EXPECT_EQ(entry["path"], path);
    EXPECT_EQ(entry["inExportsFile"], true) << published();
    const std::string lines = published();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1) << lines;
    ASSERT_EQ(storage({"unpublish", path}).status, 0) << name;
    EXPECT_EQ(published(), "") << name;
  }
  for (const auto& [path, text] : std::vector<std::pair<std::string, std::string>>{
           {folder("two\nlines"), "line feed"}, {folder("\xff\xfe"), "UTF-8"}, {"", "empty"}}) {
    const CommandResult result = storage({"publish", path});
    EXPECT_EQ(result.status, 2) << path;
    EXPECT_THAT(result.err, HasSubstr(text));
  }
  EXPECT_EQ(published(), "");
}

TEST_F(StoragePublishTest, APathIsTakenFromTheCurrentFolderAndItsDashesAreNoOptions) {
  startDaemon();
  const CommandResult result =
      test::runCommand("/bin/sh", {"-c", "cd '" + work() + "' && '" + kTovanctl + "' storage publish -- ./-x/../-y//"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(onlyExport()["path"], folder("-y"));
}

TEST_F(StoragePublishTest, WhatTheDaemonRefusesIsToldWithItsReason) {
  startDaemon();
  set("file");
  const CommandResult file = storage({"publish", folder("file")});
  EXPECT_EQ(file.status, 1);
  EXPECT_THAT(file.err, HasSubstr("Path [" + folder("file") + "] not a directory"));
  const CommandResult unknown = storage({"unpublish", folder("unknown")});
  EXPECT_EQ(unknown.status, 3);
  EXPECT_THAT(unknown.err, HasSubstr("entry [" + folder("unknown") + "] not present in publishedMap"));
}

TEST_F(StoragePublishTest, WrongCommandLinesAreStatusTwo) {
  for (const Arguments& arguments : std::vector<Arguments>{{},
                                                           {"publish"},
                                                           {"publish", "/a", "--pid", "0"},
                                                           {"publish", "/a", "--pid", "-1"},
                                                           {"publish", "/a", "--pid", "1", "--hold"},
                                                           {"publish", "/a", "--client", ""},
                                                           {"publish", "/a", "--client", "_totalRefCount"},
                                                           {"unpublish", "/a", "--hold"},
                                                           {"mount", "/a"},
                                                           {"mount", "nothing", "/a"},
                                                           {"unmount"},
                                                           {"list", "/a"}}) {
    EXPECT_EQ(storage(arguments).status, 2) << testing::PrintToString(arguments);
  }
  EXPECT_THAT(storage({"mount", "nothing", "/a"}).err, HasSubstr("neither HOST:/PATH nor a URL: nothing"));
  EXPECT_THAT(storage({"mount", ":/a", "/a"}).err, HasSubstr("neither HOST:/PATH nor a URL: :/a"));
}

TEST_F(StoragePublishTest, WithoutADaemonEveryVerbSaysSoAtOnce) {
  const auto began = std::chrono::steady_clock::now();
  for (const Arguments& arguments : std::vector<Arguments>{{"publish", folder("a")},
                                                           {"unpublish", folder("a")},
                                                           {"mount", "host:/a", folder("a")},
                                                           {"unmount", folder("a")},
                                                           {"list"}}) {
    const CommandResult result = storage(arguments);
    EXPECT_EQ(result.status, 6) << result.err;
    EXPECT_THAT(result.err, HasSubstr("the daemon does not run; `tovanctl up` starts it"));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30)) << "five times sixty would be 300";
}

TEST_F(StoragePublishTest, AnExportsFileThatCannotBeUsedIsToldAndKeepsNothingElseFromWorking) {
  test::makeFolders(exportsFile());
  startDaemon();
  EXPECT_THAT(daemonProcess().output(), HasSubstr("nothing can be published: "));
  const json listing = list();
  EXPECT_EQ(listing["exportsFile"]["path"], exportsFile());
  EXPECT_THAT(listing["exportsFile"]["problem"].get<std::string>(), HasSubstr(exportsFile()));
  EXPECT_EQ(storage({"publish", folder("a")}).status, 1);
  storageSucceeds({"mount", "host:/a", folder("b")});
  EXPECT_EQ(daemonProcess().end(), 0) << daemonProcess().output();
}

TEST_F(StoragePublishTest, TheExportsFileIsThisUsersAloneToWriteWhateverTheMask) {
  const mode_t mask = ::umask(0);
  startDaemon();
  ::umask(mask);
  storageSucceeds({"publish", folder("a")});
  struct stat facts {};
  ASSERT_EQ(::stat(exportsFile().c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777U, 0644U);
}

TEST_F(StoragePublishTest, TheListingHasItsSchema) {
  startDaemon();
  storageSucceeds({"publish", folder("a"), "--client", "one", "--pid", std::to_string(::getpid())});
  storageSucceeds({"mount", "nfs://host/a?port=2050", folder("b")});
  const json listing = list();
  EXPECT_EQ(listing["daemon"]["pid"], daemonProcess().pid());
  EXPECT_EQ(listing["exportsFile"], (json{{"path", exportsFile()}, {"problem", nullptr}}));
  EXPECT_EQ(listing["exports"], json::array({{{"path", folder("a")},
                                              {"references", 1},
                                              {"total", 1},
                                              {"returned", 0},
                                              {"inExportsFile", true},
                                              {"leftOver", false},
                                              {"holders", {holder("one", ::getpid(), "alive", 1)}}}}));
  EXPECT_EQ(listing["mounts"], json::array({{{"path", folder("b")},
                                             {"url", "nfs://host/a?port=2050"},
                                             {"references", 1},
                                             {"total", 1},
                                             {"returned", 0},
                                             {"mounted", false},
                                             {"leftOver", false},
                                             {"holders", {holder("tovanctl", nullptr, "none", 1)}}}}));
  EXPECT_EQ(
      document(storageSucceeds({"publish", folder("a"), "--json"}).out),
      (json{{"schema", 1}, {"operation", "publish"}, {"path", folder("a")}, {"client", "tovanctl"}, {"pid", nullptr}}));
}

}  // namespace
