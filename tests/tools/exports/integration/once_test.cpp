// tovan-exports --once and --check, with a stand-in for exportfs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/tools/exports/integration/exports_bench.h"

namespace {

using test::CommandResult;
using test::ExportsBench;
using test::kExportsHead;
using test::kReadWrite;
using test::readFile;

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(ExportsOnceTest, APublishedFolderIsExportedToTheHostsOfTheConfiguration) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("shared");
  bench.publish(folder + "\n");
  bench.configure("host = 192.0.2.0/24 rw\n");
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(readFile(bench.output()), kExportsHead + folder + " 192.0.2.0/24" + kReadWrite + "\n");
  EXPECT_TRUE(has(result.out, "exported    " + folder + "  192.0.2.0/24" + kReadWrite + "\n")) << result.out;
  EXPECT_EQ(bench.runs(), 1U);
  struct stat facts {};
  ASSERT_EQ(::stat(bench.output().c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777U, 0644U);
}

TEST(ExportsOnceTest, WithoutAConfigurationThereIsNoHostAndItSaysSo) {
  const ExportsBench bench;
  bench.publish(bench.makeFolder("shared") + "\n");
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 4);
  EXPECT_TRUE(has(result.out, "nothing is exported to any host: " + bench.configuration() + " names none"))
      << result.out;
  EXPECT_EQ(readFile(bench.output()), kExportsHead);
}

TEST(ExportsOnceTest, ARefusedConfigurationLeavesTheServerAlone) {
  const ExportsBench bench;
  bench.publish(bench.makeFolder("shared") + "\n");
  for (const char* const text : {"host = * rw\n", "host = 0.0.0.0/0 ro\n", "host = node1 rw,bogus\n"}) {
    bench.configure(text);
    const CommandResult result = bench.run({"--once"});
    EXPECT_EQ(result.status, 3) << text;
    EXPECT_TRUE(has(result.err, bench.configuration() + ": line 1: host ")) << result.err;
    EXPECT_FALSE(test::exists(bench.output()));
  }
  EXPECT_EQ(bench.runs(), 0U);
}

TEST(ExportsOnceTest, ADamagedLineIsReportedAndTheOthersAreExported) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("shared");
  bench.publish("# foreign\n/srv/x *(rw)\n" + folder + "\n/etc");
  bench.configure("host = node1 rw\n");
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 4);
  EXPECT_TRUE(has(result.out, bench.library() + ":2: skipped: something follows the path")) << result.out;
  EXPECT_TRUE(has(result.out, bench.library() + ":4: skipped: the line has no end")) << result.out;
  EXPECT_EQ(readFile(bench.output()), kExportsHead + folder + " node1" + kReadWrite + "\n");
}

TEST(ExportsOnceTest, WhatTheServerDoesNotServeIsReported) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("shared");
  bench.publish(folder + "\n");
  bench.configure("host = 192.0.2.1 ro\n");
  bench.writeExportfs("echo 'exportfs: no such luck' >&2\nprintf '" + folder + "\\t192.0.2.1(rw,sync)\\n' > '" +
                      bench.served() + "'\nexit 1\n");
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 4);
  EXPECT_TRUE(has(result.out, "NOT SERVED  " + folder + "  192.0.2.1(ro,")) << result.out;
  EXPECT_TRUE(has(result.out, "-ra ended with status 1\n  exportfs: no such luck\n")) << result.out;
}

TEST(ExportsOnceTest, AFolderThatIsListedButCannotBeServedIsReported) {
  const ExportsBench bench;
  const std::string good = bench.makeFolder("good");
  const std::string plain = bench.makeFolder("not good");
  const std::string unnamed = bench.makeFolder("unnamed");
  bench.publish(good + "\n" + bench.folder + "/not\\ good\n" + unnamed + "\n");
  bench.configure("host = node1 rw\n");
  bench.writeExportfs("sed -n 's/^\\(\\/[^ ]*\\) \\([^ ]*\\)$/\\1\\t\\2/p' '" + bench.output() + "' > '" +
                      bench.served() + "'\necho 'exportfs: " + plain +
                      " does not support NFS export' >&2\necho 'exportfs: " + unnamed +
                      " requires fsid= for NFS export' >&2\nexit 1\n");
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 4);
  EXPECT_TRUE(has(result.out, "exported    " + good + "  node1(")) << result.out;
  EXPECT_TRUE(has(result.out, "NOT SERVED  " + bench.folder + "/not\\040good  node1(")) << result.out;
  EXPECT_TRUE(has(result.out, "NOT SERVED  " + unnamed + "  node1(")) << result.out;
  EXPECT_TRUE(has(result.out, "  exportfs: " + plain + " does not support NFS export\n")) << result.out;
}

TEST(ExportsOnceTest, WithoutExportfsItFailsAndNamesIt) {
  const ExportsBench bench;
  bench.publish("");
  bench.configure("host = node1\n");
  ::unlink(bench.exportfs().c_str());
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(has(result.err, "cannot start " + bench.exportfs() + ": No such file or directory")) << result.err;
}

TEST(ExportsOnceTest, ALibraryFileThatIsNotThereTakesAllExportsDown) {
  const ExportsBench bench;
  bench.publish(bench.makeFolder("shared") + "\n");
  bench.configure("host = node1\n");
  ASSERT_EQ(bench.run({"--once"}).status, 0);
  ::unlink(bench.library().c_str());
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(has(result.out, "nothing is published")) << result.out;
  EXPECT_EQ(readFile(bench.output()), kExportsHead);
}

TEST(ExportsOnceTest, AFileThatCannotBeTrustedChangesNothing) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("shared");
  bench.publish(folder + "\n");
  bench.configure("host = node1\n");
  ASSERT_EQ(bench.run({"--once"}).status, 0);
  const std::string before = readFile(bench.output());

  ASSERT_EQ(::chmod(bench.library().c_str(), 0666), 0);
  CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(has(result.err, bench.library() + ": refused: others can write it")) << result.err;

  ASSERT_EQ(::rename(bench.library().c_str(), (bench.folder + "/elsewhere").c_str()), 0);
  ASSERT_EQ(::chmod((bench.folder + "/elsewhere").c_str(), 0644), 0);
  ASSERT_EQ(::symlink((bench.folder + "/elsewhere").c_str(), bench.library().c_str()), 0);
  result = bench.run({"--once"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(has(result.err, bench.library() + ": refused: it is a symbolic link")) << result.err;

  ::unlink(bench.library().c_str());
  ASSERT_EQ(::mkfifo(bench.library().c_str(), 0644), 0);
  result = bench.run({"--once"});
  EXPECT_TRUE(has(result.err, bench.library() + ": refused: it is not a regular file")) << result.err;

  ::unlink(bench.library().c_str());
  bench.publish(std::string(std::size_t{9} << 20U, 'x'));
  result = bench.run({"--once"});
  EXPECT_TRUE(has(result.err, bench.library() + ": refused: it is larger than 8 MiB")) << result.err;

  EXPECT_EQ(readFile(bench.output()), before);
  EXPECT_EQ(bench.runs(), 1U);
}

TEST(ExportsOnceTest, ALinkInTheOutputsPlaceIsReplacedNotFollowed) {
  const ExportsBench bench;
  bench.publish("");
  bench.configure("host = node1\n");
  bench.makeFolder("exports.d");
  test::writeFile(bench.folder + "/victim", "untouched");
  ASSERT_EQ(::symlink((bench.folder + "/victim").c_str(), bench.output().c_str()), 0);
  ASSERT_EQ(bench.run({"--once"}).status, 0);
  EXPECT_EQ(readFile(bench.folder + "/victim"), "untouched");
  EXPECT_EQ(readFile(bench.output()), kExportsHead);
  std::size_t entries = 0;
  for (const auto& entry : std::filesystem::directory_iterator(bench.folder + "/exports.d")) {
    EXPECT_EQ(entry.path(), bench.output());
    ++entries;
  }
  EXPECT_EQ(entries, 1U);
}

TEST(ExportsOnceTest, OnlyFoldersInsideTheConfiguredOnesAreExported) {
  const ExportsBench bench;
  const std::string inside = bench.makeFolder("allowed/one");
  const std::string outside = bench.makeFolder("allowed-not");
  const std::string link = bench.folder + "/allowed/link";
  ASSERT_EQ(::symlink(outside.c_str(), link.c_str()), 0);
  test::writeFile(bench.folder + "/allowed/file", "");
  bench.publish(inside + "\n" + outside + "\n" + link + "\n" + bench.folder + "/allowed/file\n" + bench.folder +
                "/allowed/missing\n");
  bench.configure("host = node1 rw\nfolder = " + bench.folder + "/allowed\n");
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(readFile(bench.output()), kExportsHead + inside + " node1" + kReadWrite + "\n");
  EXPECT_TRUE(has(result.out, ":2: skipped: the folder lies in none")) << result.out;
  EXPECT_TRUE(has(result.out, ":3: skipped: the folder lies in none")) << result.out;
  EXPECT_TRUE(has(result.out, ":4: skipped: it is not a folder")) << result.out;
  EXPECT_TRUE(has(result.out, ":5: skipped: the folder cannot be looked at: No such file")) << result.out;
}

TEST(ExportsOnceTest, AUserExportsHisOwnFoldersOnly) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  const ExportsBench bench;
  const std::string own = bench.makeFolder("own");
  bench.publish(own + "\n/etc\n");
  ASSERT_EQ(::chown(own.c_str(), 1234, 1234), 0);
  ASSERT_EQ(::chown(bench.library().c_str(), 1234, 1234), 0);
  bench.configure("host = node1 rw\n");
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(readFile(bench.output()), kExportsHead + own + " node1" + kReadWrite + "\n");
  EXPECT_TRUE(has(result.out, ":2: skipped: the folder belongs to user 0, not to the owner of this file (1234)"))
      << result.out;
  ASSERT_EQ(::chown(bench.configuration().c_str(), 1234, 1234), 0);
  EXPECT_TRUE(has(bench.run({"--once"}).err, bench.configuration() + ": refused: it belongs to user 1234"));
}

TEST(ExportsCheckTest, ItWritesAndRunsNothing) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("shared");
  bench.publish(folder + "\n");
  bench.configure("host = 192.0.2.1\n");
  const CommandResult result = bench.run({"--check"});
  EXPECT_EQ(result.status, 4);
  EXPECT_TRUE(has(result.out, "NOT SERVED  " + folder + "  192.0.2.1(ro,")) << result.out;
  EXPECT_TRUE(has(result.out, bench.output() + " is not what it would be")) << result.out;
  EXPECT_FALSE(test::exists(bench.output()));
  EXPECT_EQ(bench.runs(), 0U);
  ASSERT_EQ(bench.run({"--once"}).status, 0);
  EXPECT_EQ(bench.run({"--check"}).status, 0);
}

TEST(ExportsOnceTest, JsonTellsEveryExportAndEveryProblem) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("a \"b\"\n#");
  bench.publish(bench.folder + "/a\\ \\\"b\\\"'\n'\\#\nbad\n");
  bench.configure("host = 192.0.2.1\n");
  const CommandResult result = bench.run({"--once", "--json"});
  EXPECT_EQ(result.status, 4);
  const nlohmann::json report = nlohmann::json::parse(result.out);
  ASSERT_EQ(report["exports"].size(), 1U) << result.out;
  EXPECT_EQ(report["exports"][0]["path"], folder);
  EXPECT_EQ(report["exports"][0]["host"], "192.0.2.1");
  EXPECT_EQ(report["exports"][0]["served"], true);
  ASSERT_EQ(report["problems"].size(), 1U);
  EXPECT_EQ(report["problems"][0]["file"], bench.library());
  EXPECT_EQ(report["problems"][0]["line"], 3);
  EXPECT_EQ(report["exitCode"], 4);
}

TEST(ExportsOnceTest, ForGaneshaItWritesAConfigurationAndSaysHowToStartIt) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("a b");
  bench.publish(bench.folder + "/a\\ b\n");
  bench.configure("host = 127.0.0.1 rw\nserver = ganesha\nganesha-pid-file = " + bench.folder + "/g.pid\n");
  const CommandResult result = bench.run({"--once"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(has(readFile(bench.output()), "  Path = \"" + folder + "\";\n")) << readFile(bench.output());
  EXPECT_TRUE(has(result.out, "ganesha.nfsd -f " + bench.output() + " -p " + bench.folder + "/g.pid")) << result.out;
  EXPECT_TRUE(has(result.out, "meant       " + folder.substr(0, folder.size() - 3) + "a\\040b  127.0.0.1(rw,"))
      << result.out;
  EXPECT_EQ(bench.runs(), 0U);
}

TEST(ExportsCommandLineTest, ExactlyOneModeIsAskedFor) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {"--once", "--check"},
                                                    {"--once", "--foreground"},
                                                    {"--once", "extra"},
                                                    {"--bogus"}}) {
    EXPECT_EQ(test::runCommand("tovan-exports", arguments).status, 2);
  }
  EXPECT_EQ(test::runCommand("tovan-exports", {"--help"}).status, 0);
}

}  // namespace
