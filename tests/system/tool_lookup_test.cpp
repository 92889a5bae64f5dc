#include "platform/system/tool_lookup.h"

#include "tests/support/scratch_home.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

const std::string kAdapters = TOVAN_BUILD_DIR "/lib/tovan/bin";

TEST(ToolLookupTest, APathThatExistsIsItself) {
  EXPECT_EQ(platform::toolPath("/bin/sh"), "/bin/sh");
  EXPECT_TRUE(platform::toolEnvironment("/bin/sh", "/bin/sh").empty());
}

TEST(ToolLookupTest, AToolThatIsNowhereIsNamedByItsPath) {
  EXPECT_EQ(platform::toolPath("/missing/no-such-tool"), "/missing/no-such-tool");
}

TEST(ToolLookupTest, AnAdapterBesideTheLibraryStandsIn) {
  const std::string name = "tool-lookup-test-" + std::to_string(std::hash<std::string>()(test::scratchHome()));
  const std::string adapter = (std::filesystem::canonical(TOVAN_BUILD_DIR) / "lib/tovan/bin" / name).string();
  test::makeFolders(kAdapters);
  test::writeFile(adapter, "");
  EXPECT_EQ(platform::toolPath("/missing/" + name), adapter);
  std::filesystem::remove(adapter);
  EXPECT_EQ(platform::toolPath("/missing/" + name), "/missing/" + name);
}

TEST(ToolLookupTest, AnAdapterGetsTheSession) {
  ::setenv("XDG_RUNTIME_DIR", "/run/there", 1);
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/bus", 1);
  ::setenv("PATH", "/usr/bin", 1);
  EXPECT_EQ(platform::toolEnvironment("/bin/tool", "/adapters/tool"),
            (std::vector<std::string>{"HOME=" + test::scratchHome(), "TMPDIR=" + test::scratchHome() + "/tmp",
                                      "PATH=/usr/bin", "XDG_RUNTIME_DIR=/run/there",
                                      "DBUS_SESSION_BUS_ADDRESS=unix:path=/bus"}));
  ::unsetenv("XDG_RUNTIME_DIR");
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  EXPECT_EQ(platform::toolEnvironment("/bin/tool", "/adapters/tool").size(), 3U);
}

TEST(ToolLookupTest, AFolderForTestsGoesFirst) {
  platform::setToolFolderForTesting("/stubs");
  EXPECT_EQ(platform::toolPath("/bin/sh"), "/stubs/sh");
  EXPECT_FALSE(platform::toolEnvironment("/bin/sh", "/stubs/sh").empty());
  platform::setToolFolderForTesting("");
  EXPECT_EQ(platform::toolPath("/bin/sh"), "/bin/sh");
}

}  // namespace
