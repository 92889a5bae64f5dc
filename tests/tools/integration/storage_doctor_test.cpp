// tovanctl storage doctor: what it finds, and that the commands it gives mend it. What the host itself brings differs
// from machine to machine.
#include "tests/tools/integration/storage_host.h"

namespace {

using nlohmann::json;
using test::CommandResult;
using test::RunningProgram;
using testing::HasSubstr;

class StorageDoctorTest : public test::StorageHost {
 protected:
  static std::vector<json> checks(const std::string& name) {
    std::vector<json> found;
    const json report = document(storage({"doctor", "--json"}).out);
    for (const json& check : report["checks"]) {
      if (check["check"] == name) found.push_back(check);
    }
    return found;
  }
  static json onlyCheck(const std::string& name) {
    const std::vector<json> found = checks(name);
    EXPECT_EQ(found.size(), 1U) << name;
    return found.empty() ? json() : found[0];
  }
  // The one finding of that name, whose command is then run as a user would.
  static void expectMended(const std::string& name, const std::string& detail) {
    const json problem = onlyCheck(name);
    ASSERT_FALSE(problem.is_null());
    EXPECT_EQ(problem["ok"], false);
    EXPECT_THAT(problem["detail"].get<std::string>(), HasSubstr(detail));
    const CommandResult mended = test::runCommand(
        "/bin/sh", {"-c", "PATH=" TOVAN_BUILD_DIR "/bin:$PATH; " + problem["mend"].get<std::string>()});
    EXPECT_EQ(mended.status, 0) << problem["mend"] << mended.err;
    for (const json& check : checks(name)) EXPECT_EQ(check["ok"], true) << check.dump();
  }
};

TEST_F(StorageDoctorTest, ItLooksAtTheDaemonAndAtWhatTheHostBrings) {
  startDaemon();
  for (const char* const name : {"daemon", "exports file", "holders", "mount program"}) {
    EXPECT_EQ(onlyCheck(name)["ok"], true) << name;
  }
  for (const char* const name :
       {"tovan-exports", "exports", "NFS server", "host's mount", "mount.nfs", "permission to mount"}) {
    EXPECT_FALSE(checks(name).empty()) << name;
  }
  EXPECT_THAT(onlyCheck("host's mount")["detail"].get<std::string>(), HasSubstr("host-tool"));
  EXPECT_EQ(onlyCheck("permission to mount")["ok"], ::geteuid() == 0);
}

TEST_F(StorageDoctorTest, ForPeopleItIsALineEachAndAProblemIsStatusOne) {
  const CommandResult result = storage({"doctor"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("problem daemon: the daemon does not run; `tovanctl up` starts it\n"
                                    "        mend it: tovanctl up\n"));
  EXPECT_THAT(result.err, HasSubstr("found"));
}

TEST_F(StorageDoctorTest, WhatIsLeftOverIsFoundAndItsCommandTakesItDown) {
  startDaemon();
  storageSucceeds({"publish", folder("left; over")});
  killDaemon();
  startDaemon();
  expectMended("left over", folder("left; over") + " is left over from an earlier run");
  EXPECT_EQ(published(), "");
}

TEST_F(StorageDoctorTest, AHolderThatIsGoneIsFoundAndItsCommandGivesTheReferenceBack) {
  startDaemon();
  RunningProgram holder("/bin/sleep", {"600"});
  storageSucceeds({"publish", folder("a"), "--client", "a client", "--pid", std::to_string(holder.pid())});
  EXPECT_EQ(onlyCheck("holders")["ok"], true);
  holder.end(SIGKILL);
  expectMended("holders", "process " + std::to_string(holder.pid()) + " is gone and holds a reference of " +
                              folder("a") + " for a client");
  EXPECT_EQ(published(), "");
}

TEST_F(StorageDoctorTest, AnExportWhoseLineIsMissingAndAFileThatOthersCanChangeAreFound) {
  startDaemon();
  storageSucceeds({"publish", folder("a")});
  test::writeFile(exportsFile(), "");
  EXPECT_THAT(onlyCheck("in place")["detail"].get<std::string>(), HasSubstr("its line is missing"));
  EXPECT_THAT(storageSucceeds({"list"}).out, HasSubstr("its line is missing"));
  ::chmod(exportsFile().c_str(), 0666);
  expectMended("exports file", "can be changed by others");
}

TEST_F(StorageDoctorTest, AMountThatIsHeldAndNotThereIsFound) {
  startDaemon();
  storageSucceeds({"mount", "host:/a", folder("a")});  // the stand-in mounts nothing
  const json problem = onlyCheck("in place");
  EXPECT_EQ(problem["ok"], false);
  EXPECT_THAT(problem["detail"].get<std::string>(), HasSubstr(folder("a") + " is held, but nothing is mounted there"));
}

}  // namespace
