// nfs-ganesha serves what tovan-exports wrote for it, and follows its changes.
#include <gtest/gtest.h>
#include <plinth/string.h>
#include <unistd.h>

#include <string>

#include "tests/tools/exports/integration/exports_bench.h"
#include "tests/tools/integration/running_program.h"

namespace {

const std::string kScript = TOVAN_SOURCE_DIR "/tests/tools/exports/integration/private_server.sh";
const std::string kServer = "/usr/bin/ganesha.nfsd";
const std::string kReader = "/usr/bin/nfs-cat";

class GaneshaTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can run the server in folders of its own";
    for (const std::string& program : {kServer, kReader}) {
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
  test::CommandResult read(const std::string& path) const {
    return test::runCommand("/usr/bin/timeout",
                            {"10", kReader, "nfs://127.0.0.1" + path + "?version=4&nfsport=" + port_});
  }

  const test::ExportsBench bench_;
  const std::string port_ = std::to_string(20000 + ::getpid() % 12000);
};

TEST_F(GaneshaTest, APublishedFolderIsServedToItsHostsUntilItIsUnpublished) {
  const std::string folder = bench_.makeFolder("a folder's #1;{$HOME}");
  const std::string other = bench_.makeFolder("other");
  test::writeFile(folder + "/file", "content");
  test::writeFile(other + "/file", "other content");
  const auto line = [](const std::string& path) { return plinth::CSTR(path)->shellEscapedFilename()->str() + "\n"; };
  bench_.publish(line(folder));
  configureHost("127.0.0.1");
  ASSERT_EQ(bench_.run({"--once"}).status, 0);

  test::makeFolders(bench_.folder + "/nfs/ganesha");
  test::RunningProgram server("/bin/bash", {kScript, bench_.folder, kServer, "-F", "-f", bench_.output(), "-L",
                                            bench_.folder + "/log", "-p", pidFile()});
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

}  // namespace
