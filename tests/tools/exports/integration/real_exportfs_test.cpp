// The host's own exportfs as the judge: what it reads back is what was meant.
#include <gtest/gtest.h>
#include <plinth/string.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

namespace {

const std::string kScript = TOVAN_SOURCE_DIR "/tests/tools/exports/integration/private_server.sh";
const std::string kProgram = TOVAN_BUILD_DIR "/bin/tovan-exports";

// Every ASCII character, and what has a meaning in one of the files on the way.
std::vector<std::string> hostileNames() {
  std::vector<std::string> names = {
      "plain", "a folder", " blanks ", "#hash",      "-dash",      "$(x)",
      "*(rw)", "a,b=c(d)", "@group:x", "\\",         "\\\\",       "\\8",
      "\"",    "\"\"",     "\"a b\"",  "a\n\n-ro b", "\x01\x7f\r", "\xc3\xbcml \xe2\x82\xac"};
  std::string accents;
  for (int count = 0; count < 120; ++count) accents += "\xc3\xbc";
  names.push_back(accents);
  for (char character = 1; character > 0 && character < 127; ++character) {
    if (character != '/') names.push_back(std::string("x") + character + "y");
  }
  return names;
}

class RealExportfsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0)
      GTEST_SKIP() << "only root can have folders of its own in the places of /etc and /var/lib/nfs";
    if (!test::exists("/usr/sbin/exportfs")) GTEST_SKIP() << "nfs-kernel-server is not installed";
    if (test::exists("/proc/fs/nfsd/exports"))
      GTEST_SKIP() << "this host's kernel serves: its table is not ours to change";
    if (test::runCommand("/usr/bin/unshare", {"--mount", "true"}).status != 0)
      GTEST_SKIP() << "no mount namespaces here";
    folder_ = test::scratchFolder("real");
  }

  test::CommandResult runThere(const std::vector<std::string>& command) const {
    std::vector<std::string> arguments = {kScript, folder_};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return test::runCommand("/bin/bash", arguments);
  }

  std::string folder_;
};

TEST_F(RealExportfsTest, EveryHostilePathIsServedToTheHostsThatWereMeantAndNoOther) {
  std::string lines;
  std::set<std::pair<std::string, std::string>> meant;
  for (const std::string& name : hostileNames()) {
    const std::string path = folder_ + "/shared/" + name;
    test::makeFolders(path);
    lines += plinth::CSTR(path)->shellEscapedFilename()->str() + "\n";
    for (const char* const host : {"10.1.0.0/16", "192.0.2.7", "fd00:1::/64", "*.example.org"})
      meant.emplace(path, host);
  }
  test::writeFile(folder_ + "/exports", lines);
  test::writeFile(folder_ + "/conf",
                  "host = 10.1.0.0/16 rw,all_squash,anonuid=7,sec=sys:krb5\nhost = 192.0.2.7\n"
                  "host = fd00:1::/64 rw,no_root_squash,insecure,fsid=path\nhost = *.example.org ro,crossmnt,async\n");
  const test::CommandResult result =
      runThere({kProgram, "--once", "--json", "--exports", folder_ + "/exports", "--configuration", folder_ + "/conf"});
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  const nlohmann::json report = nlohmann::json::parse(result.out);
  std::set<std::pair<std::string, std::string>> served;
  for (const auto& one : report["exports"]) {
    EXPECT_EQ(one["served"], true) << one;
    served.emplace(one["path"], one["host"]);
  }
  EXPECT_EQ(served, meant);
  // The server's own list has not one entry more.
  const std::string list = test::readFile(folder_ + "/nfs/etab");
  EXPECT_EQ(static_cast<std::size_t>(std::count(list.begin(), list.end(), '\n')), meant.size()) << list;
  for (const auto& note : report["notes"]) {
    EXPECT_EQ(note.get<std::string>().find("ended with status"), std::string::npos) << note;
  }
}

TEST_F(RealExportfsTest, AFolderThatIsNamedLikeAnEscapeDoesNotExportAnother) {
  test::makeFolders(folder_ + "/secret");
  test::makeFolders(folder_ + "/shared/\\056\\056/secret");
  const std::string path = folder_ + "/shared/\\056\\056/secret";
  test::writeFile(folder_ + "/exports", plinth::CSTR(path)->shellEscapedFilename()->str() + "\n");
  test::writeFile(folder_ + "/conf", "host = 192.0.2.7\n");
  const test::CommandResult result =
      runThere({kProgram, "--once", "--exports", folder_ + "/exports", "--configuration", folder_ + "/conf"});
  EXPECT_EQ(result.status, 4) << result.out << result.err;
  EXPECT_NE(result.out.find("/exports:1: skipped: a backslash before a digit"), std::string::npos) << result.out;
  EXPECT_EQ(test::readFile(folder_ + "/nfs/etab"), "");
}

TEST_F(RealExportfsTest, AHostThatCannotBeFoundIsReportedAndTheOthersAreServed) {
  test::makeFolders(folder_ + "/shared");
  test::writeFile(folder_ + "/exports", folder_ + "/shared\n");
  test::writeFile(folder_ + "/conf", "host = no-such-host.invalid rw\nhost = localhost rw\n");
  const test::CommandResult result =
      runThere({kProgram, "--once", "--exports", folder_ + "/exports", "--configuration", folder_ + "/conf"});
  EXPECT_EQ(result.status, 4) << result.err;
  EXPECT_NE(result.out.find("NOT SERVED  " + folder_ + "/shared  no-such-host.invalid(rw"), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("exported    " + folder_ + "/shared  localhost(rw"), std::string::npos) << result.out;
}

}  // namespace
