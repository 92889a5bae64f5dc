// nfs-ganesha serves what tovan-exports wrote for it, to the hosts that are named, and follows its changes.
#include <gtest/gtest.h>
#include <plinth/string.h>
#include <plinth/url.h>
#include <tovan/nfs_shared_storage_publisher.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/tools/exports/integration/exports_bench.h"
#include "tests/tools/exports/integration/wired_hosts.h"
#include "tests/tools/integration/running_program.h"

namespace {

const std::string kScript = TOVAN_SOURCE_DIR "/tests/tools/exports/integration/private_server.sh";
const std::string kServer = "/usr/bin/ganesha.nfsd";
const std::string kReader = "/usr/bin/nfs-cat";
const std::string kLister = "/usr/bin/nfs-ls";

std::string line(const std::string& path) { return plinth::CSTR(path)->shellEscapedFilename()->str() + "\n"; }

class GaneshaTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can run the server in folders of its own";
    for (const std::string& program : {kServer, kReader, kLister}) {
      if (!test::exists(program)) GTEST_SKIP() << program << " is not installed";
    }
    if (test::runCommand("/usr/bin/unshare", {"--mount", "true"}).status != 0)
      GTEST_SKIP() << "no mount namespaces here";
  }

  void configureHost(const std::string& host) const {
    bench_.configure("host = " + host + " ro,insecure\nserver = ganesha\nganesha-port = " + port_ +
                     "\nganesha-pid-file = " + pidFile() + "\n");
  }
  std::string pidFile() const { return bench_.folder + "/ganesha.pid"; }
  std::vector<std::string> ask(const std::string& program, const std::string& host, const std::string& path) const {
    return {"/usr/bin/timeout", "10", program, "nfs://" + host + path + "?version=4&nfsport=" + port_};
  }
  test::CommandResult read(const std::string& path) const {
    const std::vector<std::string> command = ask(kReader, "127.0.0.1", path);
    return test::runCommand(command[0], {command.begin() + 1, command.end()});
  }
  std::vector<std::string> serverCommand() const {
    test::makeFolders(bench_.folder + "/nfs/ganesha");
    return {"/bin/bash",     kScript, bench_.folder,          kServer, "-F",     "-f",
            bench_.output(), "-L",    bench_.folder + "/log", "-p",    pidFile()};
  }

  const test::ExportsBench bench_;
  const std::string port_ = std::to_string(20000 + ::getpid() % 12000);
};

TEST_F(GaneshaTest, APublishedFolderIsServedToItsHostsUntilItIsUnpublished) {
  const std::string folder = bench_.makeFolder("a folder's #1;{$HOME}");
  const std::string other = bench_.makeFolder("other");
  test::writeFile(folder + "/file", "content");
  test::writeFile(other + "/file", "other content");
  bench_.publish(line(folder));
  configureHost("127.0.0.1");
  ASSERT_EQ(bench_.run({"--once"}).status, 0);

  const std::vector<std::string> command = serverCommand();
  test::RunningProgram server(command[0], {command.begin() + 1, command.end()});
  ASSERT_TRUE(test::runLoopUntil([&] { return read(folder + "/file").out == "content"; }))
      << read(folder + "/file").err << server.output();
  EXPECT_NE(read(other + "/file").status, 0);

  bench_.publish(line(other));
  const test::CommandResult result = bench_.run({"--once"});
  EXPECT_EQ(result.out.find("does not run"), std::string::npos) << result.out;
  EXPECT_TRUE(test::runLoopUntil([&] { return read(other + "/file").out == "other content"; }));
  EXPECT_TRUE(test::runLoopUntil([&] { return read(folder + "/file").status != 0; }));

  configureHost("192.0.2.7");
  ASSERT_EQ(bench_.run({"--once"}).status, 0);
  EXPECT_TRUE(test::runLoopUntil([&] { return read(other + "/file").status != 0; })) << "another host is served";
}

TEST_F(GaneshaTest, OneHostReadsAndListsWhatAnotherPublishesAndAThirdGetsNothing) {
  if (test::runCommand("/usr/bin/unshare", {"--net", "/usr/bin/ip", "link", "add", "one", "type", "veth"}).status != 0)
    GTEST_SKIP() << "no wires between network namespaces here";
  const test::WiredHost publisher;
  const test::WiredHost reader;
  const test::WiredHost stranger;
  ASSERT_NO_FATAL_FAILURE(test::WiredHost::connect(publisher, reader, "10.77.1"));
  ASSERT_NO_FATAL_FAILURE(test::WiredHost::connect(publisher, stranger, "10.77.2"));
  const std::string folder = bench_.makeFolder("shared");
  test::writeFile(folder + "/file", "content");
  test::makeFolders(bench_.folder + "/library");
  const auto library = plinth::makeShared<tovan::CNFSSharedStoragePublisher>();
  library->setExportsFilePath(plinth::CSTR(bench_.library()));
  const auto url = plinth::makeShared<plinth::CURL>(plinth::CSTR(folder), kCFURLPOSIXPathStyle, true);
  library->publish(url, plinth::CSTR("publisher"), ::getpid());
  configureHost("10.77.1.2");
  ASSERT_EQ(bench_.run({"--once"}).status, 0);
  test::RunningProgram server("/usr/bin/nsenter", publisher.command(serverCommand()));

  const auto readBy = [&](const test::WiredHost& host, const std::string& address) {
    return host.run(ask(kReader, address, folder + "/file"));
  };
  EXPECT_TRUE(test::runLoopUntil([&] { return readBy(reader, "10.77.1.1").out == "content"; }))
      << readBy(reader, "10.77.1.1").err << server.output();
  const test::CommandResult listing = reader.run(ask(kLister, "10.77.1.1", folder));
  EXPECT_EQ(listing.status, 0) << listing.err;
  EXPECT_NE(listing.out.find(" file\n"), std::string::npos) << listing.out;
  const std::string information = reader.run(ask(kReader, "10.77.1.1", folder + "/.mervane.plist")).out;
  EXPECT_NE(information.find("<string>publisher</string>"), std::string::npos) << information;

  EXPECT_EQ(readBy(stranger, "10.77.2.1").out, "");
  EXPECT_NE(readBy(stranger, "10.77.2.1").status, 0);
  EXPECT_EQ(stranger.run(ask(kLister, "10.77.2.1", folder)).out, "");
  configureHost("10.77.2.2");
  ASSERT_EQ(bench_.run({"--once"}).status, 0);
  EXPECT_TRUE(test::runLoopUntil([&] { return readBy(stranger, "10.77.2.1").out == "content"; }))
      << readBy(stranger, "10.77.2.1").err;
  EXPECT_TRUE(test::runLoopUntil([&] { return readBy(reader, "10.77.1.1").status != 0; }));
  library->unpublish(url, plinth::CSTR("publisher"), ::getpid());
  ASSERT_EQ(bench_.run({"--once"}).status, 0);
  EXPECT_TRUE(test::runLoopUntil([&] { return readBy(stranger, "10.77.2.1").status != 0; }));
}

}  // namespace
