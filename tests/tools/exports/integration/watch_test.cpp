// tovan-exports --foreground follows the library's file and the configuration.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>

#include "tests/tools/exports/integration/exports_bench.h"
#include "tests/tools/integration/running_program.h"

namespace {

using test::ExportsBench;
using test::kExportsHead;
using test::kReadWrite;
using test::RunningProgram;

const std::string kProgram = TOVAN_BUILD_DIR "/bin/tovan-exports";

bool becomes(const std::string& path, const std::string& content) {
  return test::runLoopUntil([&] { return test::exists(path) && test::readFile(path) == content; });
}

std::string lineFor(const std::string& folder) { return folder + " node1" + kReadWrite + "\n"; }

TEST(ExportsWatchTest, PublishingAndUnpublishingReachTheServerByThemselves) {
  const ExportsBench bench;
  const std::string one = bench.makeFolder("one");
  const std::string two = bench.makeFolder("two");
  bench.configure("host = node1 rw\n");
  RunningProgram program(kProgram, bench.arguments({"--foreground"}));
  ASSERT_TRUE(becomes(bench.output(), kExportsHead)) << program.output();  // neither file nor folder is there yet
  bench.publish(one + "\n");
  EXPECT_TRUE(becomes(bench.output(), kExportsHead + lineFor(one))) << program.output();
  bench.publish(one + "\n" + two + "\n");
  EXPECT_TRUE(becomes(bench.output(), kExportsHead + lineFor(one) + lineFor(two))) << program.output();
  test::writeFile(bench.folder + "/beside", two + "\n");
  ASSERT_EQ(::rename((bench.folder + "/beside").c_str(), bench.library().c_str()), 0);
  EXPECT_TRUE(becomes(bench.output(), kExportsHead + lineFor(two))) << program.output();
  ASSERT_EQ(::unlink(bench.library().c_str()), 0);
  EXPECT_TRUE(becomes(bench.output(), kExportsHead)) << program.output();
  EXPECT_EQ(program.end(), 0);
}

TEST(ExportsWatchTest, AChangedConfigurationCountsAndARefusedOneDoesNot) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("one");
  bench.publish(folder + "\n");
  RunningProgram program(kProgram, bench.arguments({"--foreground"}));
  ASSERT_TRUE(program.prints("nothing is exported to any host")) << program.output();
  bench.configure("host = node1 rw\n");
  ASSERT_TRUE(becomes(bench.output(), kExportsHead + lineFor(folder))) << program.output();
  bench.configure("host = * rw\n");
  ASSERT_TRUE(program.prints("that is the whole world")) << program.output();
  EXPECT_EQ(test::readFile(bench.output()), kExportsHead + lineFor(folder));
  bench.configure("host = node2 rw\n");
  EXPECT_TRUE(becomes(bench.output(), kExportsHead + folder + " node2" + kReadWrite + "\n")) << program.output();
  EXPECT_EQ(program.end(SIGINT), 0);
}

TEST(ExportsWatchTest, AConfigurationThatIsRefusedFromTheFirstEndsIt) {
  const ExportsBench bench;
  bench.configure("host = *\n");
  RunningProgram program(kProgram, bench.arguments({"--foreground"}));
  EXPECT_EQ(program.waitForEnd(), 3) << program.output();
}

TEST(ExportsWatchTest, HangupLooksAgain) {
  const ExportsBench bench;
  bench.publish(bench.folder + "/late\n");
  bench.configure("host = node1 rw\n");
  RunningProgram program(kProgram, bench.arguments({"--foreground"}));
  ASSERT_TRUE(program.prints("the folder cannot be looked at")) << program.output();
  const std::string folder = bench.makeFolder("late");
  program.signal(SIGHUP);
  EXPECT_TRUE(becomes(bench.output(), kExportsHead + lineFor(folder))) << program.output();
  EXPECT_EQ(program.end(), 0);
}

TEST(ExportsWatchTest, ALinkPutInThePlaceOfTheFileIsNotFollowed) {
  const ExportsBench bench;
  const std::string folder = bench.makeFolder("one");
  const std::string other = bench.makeFolder("other");
  bench.publish(folder + "\n");
  bench.configure("host = node1 rw\n");
  RunningProgram program(kProgram, bench.arguments({"--foreground"}));
  ASSERT_TRUE(becomes(bench.output(), kExportsHead + lineFor(folder))) << program.output();
  test::writeFile(bench.folder + "/elsewhere", other + "\n");
  ASSERT_EQ(::symlink((bench.folder + "/elsewhere").c_str(), (bench.folder + "/link").c_str()), 0);
  ASSERT_EQ(::rename((bench.folder + "/link").c_str(), bench.library().c_str()), 0);
  ASSERT_TRUE(program.prints("refused: it is a symbolic link")) << program.output();
  EXPECT_EQ(test::readFile(bench.output()), kExportsHead + lineFor(folder));
  EXPECT_EQ(program.end(), 0);
}

}  // namespace
