// tovanctl digest as a user meets it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using testing::HasSubstr;
using testing::Not;

const std::string kMD5OfAbc = "900150983cd24fb0d6963f7d28e17f72";

class TovanctlDigestTest : public testing::Test {
 protected:
  CommandResult digest(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "digest");
    return test::runCommand("tovanctl", arguments);
  }
  std::string file(const std::string& name, const std::string& content) const {
    test::writeFile(folder_ + "/" + name, content);
    return folder_ + "/" + name;
  }
  // What a terminal is sent by the command line, both streams in one.
  static std::string onATerminal(const std::string& commandLine) {
    const std::string program = TOVAN_BUILD_DIR "/bin/tovanctl ";
    const CommandResult result = test::runCommand("/usr/bin/script", {"-qec", program + commandLine, "/dev/null"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    return result.out;
  }
  // The files that a command line opens.
  std::string openedBy(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = {
        "-f", "-o", folder_ + "/trace", "-e", "trace=open,openat", TOVAN_BUILD_DIR "/bin/tovanctl"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    test::runCommand("/usr/bin/strace", all);
    return test::readFile(folder_ + "/trace");
  }

  const std::string folder_ = test::scratchFolder("digest");
};

TEST_F(TovanctlDigestTest, PrintsALineForEachFile) {
  const std::string one = file("one", "abc");
  const std::string two = file("two", "");
  const CommandResult result = digest({"--algorithm", "md5", one, two});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, kMD5OfAbc + "  " + one + "\nd41d8cd98f00b204e9800998ecf8427e  " + two + "\n");
}

TEST_F(TovanctlDigestTest, TheAlgorithmIsSHA1UnlessItIsNamed) {
  const std::string one = file("one", "abc");
  EXPECT_EQ(digest({one}).out, "a9993e364706816aba3e25717850c26c9cd0d89d  " + one + "\n");
  EXPECT_EQ(digest({"-a", "RIPEMD160", one}).out, "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc  " + one + "\n");
  const CommandResult unknown = digest({"-a", "crc32", one});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_THAT(unknown.err, HasSubstr("ripemd160"));
  EXPECT_EQ(digest({}).status, 2);
}

TEST_F(TovanctlDigestTest, TheUsualCheckersTakeItsLinesWhateverTheNames) {
  std::string list;
  for (const char* const name : {"-n", "a b", "new\nline", "back\\slash", "re\rturn", "caf\u00e9", "\xff\xfe", "\\n"}) {
    const CommandResult result = digest({"-a", "md5", file(name, std::string("of ") + name)});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1) << result.out;
    list += result.out;
  }
  const CommandResult checked = test::runCommand("/usr/bin/md5sum", {"--check", "--strict", file("list", list)});
  EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
  EXPECT_EQ(checked.err, "");
}

TEST_F(TovanctlDigestTest, ARelativePathIsTakenFromTheCurrentFolder) {
  file("one", "abc");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_);
  const CommandResult result = digest({"-a", "md5", "one"});
  std::filesystem::current_path(before);
  EXPECT_EQ(result.out, kMD5OfAbc + "  one\n") << result.err;
}

TEST_F(TovanctlDigestTest, AFileThatCannotBeReadIsNamedAndTheOthersAreDone) {
  const std::string one = file("one", "abc");
  const std::string fifo = folder_ + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const CommandResult result = digest({"-a", "md5", "/nowhere", fifo, folder_, one});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, kMD5OfAbc + "  " + one + "\n");
  EXPECT_THAT(result.err, HasSubstr("(/nowhere): can't open file, error = No such file or directory\n"));
  EXPECT_THAT(result.err, HasSubstr("(" + fifo + "): can't open file, error = it is a FIFO\n"));
  EXPECT_THAT(result.err, HasSubstr("(" + folder_ + "): can't open file, error = Is a directory\n"));
  EXPECT_THAT(result.err, HasSubstr("tovanctl: 3 of 4 files could not be read\n"));
}

TEST_F(TovanctlDigestTest, ANameThatIsNoPathIsNamedAndTheOthersAreDone) {
  const std::string one = file("one", "abc");
  const CommandResult result = digest({"-a", "md5", "", one});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, kMD5OfAbc + "  " + one + "\n");
  EXPECT_EQ(result.err, "tovanctl: \"\" is no path\ntovanctl: 1 of 2 files could not be read\n");
  const CommandResult asDocument = digest({"--json", "-a", "md5", "", one});
  EXPECT_EQ(asDocument.status, 1);
  const json document = json::parse(asDocument.out, nullptr, false);
  ASSERT_FALSE(document.is_discarded()) << asDocument.out;
  EXPECT_EQ(document["files"], (json{{{"path", ""}, {"digest", nullptr}, {"error", "\"\" is no path"}},
                                     {{"path", one}, {"digest", kMD5OfAbc}}}));
}

TEST_F(TovanctlDigestTest, AnAlgorithmThatThisHostLacksIsSaidOnce) {
  const std::string one = file("one", "abc");
  const CommandResult result = digest({"-a", "sha0", one, one});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "tovanctl: the libcrypto of this host has no sha0: Error: md is null!\n");
}

TEST_F(TovanctlDigestTest, AHostWithoutALibcryptoThatCanBeLoadedLacksThemAll) {
  const std::string one = file("one", "abc");
  file("libcrypto.so.3", "no library");
  ::setenv("LD_LIBRARY_PATH", folder_.c_str(), 1);
  for (const char* const algorithm : {"md5", "sha1", "ripemd160"}) {
    const CommandResult result = digest({"-a", algorithm, one});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              std::string("tovanctl: the libcrypto of this host has no ") + algorithm + ": Error: md is null!\n");
  }
  ::unsetenv("LD_LIBRARY_PATH");
}

TEST_F(TovanctlDigestTest, PrintsOneDocumentWhenAsked) {
  const std::string one = file("one", "abc");
  const CommandResult result = digest({"--json", "-a", "md5", one, "/nowhere"});
  EXPECT_EQ(result.status, 1);
  const json document = json::parse(result.out, nullptr, false);
  ASSERT_FALSE(document.is_discarded()) << result.out;
  EXPECT_EQ(document["schema"], 1);
  EXPECT_EQ(document["algorithm"], "md5");
  ASSERT_EQ(document["files"].size(), 2U);
  EXPECT_EQ(document["files"][0], (json{{"path", one}, {"digest", kMD5OfAbc}}));
  EXPECT_EQ(document["files"][1]["digest"], nullptr);
  EXPECT_THAT(document["files"][1]["error"].get<std::string>(), HasSubstr("(/nowhere)"));
}

TEST_F(TovanctlDigestTest, ALongFileHasABarOnATerminalOnlyAndItGoesAgain) {
  ::setenv("TERM", "xterm", 1);
  const std::string path = file("long", "");
  std::filesystem::resize_file(path, std::uintmax_t{80} << 20U);  // sparse
  const std::string shown = onATerminal("digest " + path);
  EXPECT_THAT(shown, testing::ContainsRegex("\\[#* *\\] +[0-9]+ %"));
  EXPECT_THAT(shown, HasSubstr(" 0 %"));
  const std::size_t gone = shown.rfind("\r\x1b[K");
  ASSERT_NE(gone, std::string::npos) << shown;
  EXPECT_EQ(shown.find("#", gone), std::string::npos) << shown;
  EXPECT_THAT(shown.substr(gone), HasSubstr("  " + path + "\r\n"));
  const CommandResult piped = digest({path});
  EXPECT_EQ(piped.err, "");
  EXPECT_THAT(piped.out, Not(HasSubstr("%")));
}

TEST_F(TovanctlDigestTest, AShortFileHasNoBarAndNeitherHasATerminalThatCannotMoveItsCursor) {
  ::setenv("TERM", "xterm", 1);
  EXPECT_THAT(onATerminal("digest " + file("short", "abc")), Not(HasSubstr("%")));
  ::setenv("TERM", "dumb", 1);
  const std::string path = file("long", "");
  std::filesystem::resize_file(path, std::uintmax_t{80} << 20U);
  EXPECT_THAT(onATerminal("digest " + path), Not(HasSubstr("%")));
}

TEST_F(TovanctlDigestTest, TheProvidersThatOpenSSLIsConfiguredForHaveNoPart) {
  const std::string restricted = file("restricted.cnf",
                                      "openssl_conf = init\n[init]\nalg_section = algorithms\n"
                                      "[algorithms]\ndefault_properties = fips=yes\n");
  ::setenv("OPENSSL_CONF", restricted.c_str(), 1);
  EXPECT_NE(test::runCommand("/usr/bin/openssl", {"dgst", "-md5", "/dev/null"}).status, 0) << "the file counts";
  for (const std::string& path :
       {restricted, file("garbage.cnf", "[\nopenssl_conf = \x01"), folder_ + "/missing.cnf"}) {
    ::setenv("OPENSSL_CONF", path.c_str(), 1);
    const CommandResult ours = digest({"-a", "md5", "/dev/null"});
    EXPECT_EQ(ours.status, 0) << path << ": " << ours.err;
    EXPECT_EQ(ours.out, "d41d8cd98f00b204e9800998ecf8427e  /dev/null\n") << path;
  }
  ::unsetenv("OPENSSL_CONF");
}

TEST_F(TovanctlDigestTest, LibcryptoAndItsProvidersAreLoadedWhenTheyAreNeeded) {
  const std::string path = openedBy({"config", "path"});
  EXPECT_THAT(path, HasSubstr("libTovanPlatform.so"));
  EXPECT_THAT(path, Not(HasSubstr("libcrypto.so")));
  const std::string md5 = openedBy({"digest", "-a", "md5", "/dev/null"});
  EXPECT_THAT(md5, HasSubstr("libcrypto.so.3"));
  EXPECT_THAT(md5, Not(HasSubstr("legacy.so")));
  EXPECT_THAT(openedBy({"digest", "-a", "md2", "/dev/null"}), HasSubstr("legacy.so"));
}

}  // namespace
