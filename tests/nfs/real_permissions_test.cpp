// Who gets what of an export, and who does not.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/nfs/real_nfs.h"

namespace nfs {
namespace {

const std::string kDenied = "access denied by server";

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string readThere(const std::string& folder) {
  return "mount '" + kServerForStranger + ":" + folder + "' && cat \"$FOLDER/file\"";
}

TEST_F(RealNfsTest, AHostThatIsNotNamedGetsNothing) {
  const std::string published = publishFile("shared", "secret");
  for (const char* const version : {"3", "4.2"}) {
    SCOPED_TRACE(version);
    const test::CommandResult result = onStranger(readThere(published), version);
    EXPECT_EQ(result.status, 32);
    EXPECT_TRUE(has(result.err, kDenied)) << result.err;
    note("version %s: %s", version, result.err.c_str());
    EXPECT_EQ(result.out, "");
    EXPECT_NE(onStranger("mount '" + kServerForStranger + ":/'", version).status, 0);
  }
  allow(kStranger + " ro");
  EXPECT_TRUE(test::runLoopUntil([&] { return onStranger(readThere(published)).out == "secret"; }))
      << onStranger(readThere(published)).err;
}

TEST_F(RealNfsTest, WithoutAHostInTheConfigurationNobodyGetsAnything) {
  allow("");
  publisher_->publish(test::folderURL(folder("shared")), plinth::CSTR("publisher"), ::getpid());
  EXPECT_TRUE(watcher_->prints("nothing is exported to any host"));
  EXPECT_EQ(subscribeFailure(urlOf(folder("shared")), mountPoint()), mountFailed(folder("shared")));
}

TEST_F(RealNfsTest, OutsideThePublishedFolderThereIsNothing) {
  const std::string published = publishFile("shared", "");
  test::makeFolders(folder("secret"));
  for (const std::string& other : {folder("secret"), home_, std::string("/"), published + "/../secret"}) {
    EXPECT_EQ(subscribeFailure(urlOf(other), mountPoint()), mountFailed(other)) << other;
    EXPECT_EQ(mountAt(mountPoint()).type, "");
  }
}

TEST_F(RealNfsTest, WhoMayOnlyReadCannotWrite) {
  allow(kClient + " ro");
  const std::string published = publishFile("shared", "read this");
  subscribe(urlOf(published), mountPoint());
  EXPECT_EQ(test::readFile(mountPoint() + "/file"), "read this");
  const test::CommandResult result = run({"/bin/bash", "-c", "echo x > '" + mountPoint() + "/new'"});
  EXPECT_TRUE(has(result.err, "Read-only file system")) << result.err;
  EXPECT_FALSE(test::exists(published + "/new"));
  unsubscribe(urlOf(published), mountPoint());
}

TEST_F(RealNfsTest, RootOfAnotherHostIsNobodyHere) {
  const std::string published = publishFile("shared", "");
  test::writeFile(published + "/private", "root's own");
  ASSERT_EQ(::chmod((published + "/private").c_str(), 0600), 0);
  subscribe(urlOf(published), mountPoint());
  const test::CommandResult result = run({"/bin/cat", mountPoint() + "/private"});
  EXPECT_TRUE(has(result.err, "Permission denied")) << result.err << result.out;
  test::writeFile(mountPoint() + "/new", "");
  struct stat facts {};
  ASSERT_EQ(::stat((published + "/new").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_uid, 65534U);
  unsubscribe(urlOf(published), mountPoint());
}

TEST_F(RealNfsTest, AnUnpublishedFolderIsGoneForWhoeverStillHasItMounted) {
  const std::string published = publishFile("shared", "for a while");
  test::writeFile(published + "/other", "never read before");
  publishFile("another", "");
  subscribe(urlOf(published), mountPoint());
  EXPECT_EQ(test::readFile(mountPoint() + "/file"), "for a while");
  unpublish(published);
  const auto read = [&] { return run({"/bin/cat", mountPoint() + "/other"}); };
  EXPECT_TRUE(test::runLoopUntil([&] { return has(read().err, "Stale file handle"); })) << read().err << read().out;
  unsubscribe(urlOf(published), mountPoint());
  EXPECT_EQ(mountAt(mountPoint()).type, "");
}

TEST_F(RealNfsTest, AFileSystemThatCannotBeServedIsReported) {
  const std::string published = "/srv/plain/shared";
  const std::string settings = test::readFile("/etc/nfs.conf");
  test::writeFile("/etc/nfs.conf", "");  // or exportfs names folders by their places on the disk
  publish(published);
  const bool isReported = watcher_->prints("/srv/plain/shared does not support NFS export");
  EXPECT_TRUE(isReported) << watcher_->output();
  note("%s", watcher_->output().c_str());
  EXPECT_TRUE(watcher_->prints("NOT SERVED  /srv/plain/shared  " + kClient + "(rw")) << watcher_->output();
  EXPECT_EQ(subscribeFailure(urlOf(published), mountPoint()), mountFailed(published));
  test::writeFile("/etc/nfs.conf", settings);
}

TEST_F(RealNfsTest, AnIdentifierMadeOfThePathIsTaken) {
  allow(kClient + " rw,fsid=path");
  const std::string published = "/srv/memory/shared";
  publish(published);
  test::writeFile(published + "/file", "in memory");
  subscribe(urlOf(published), mountPoint());
  EXPECT_EQ(test::readFile(mountPoint() + "/file"), "in memory");
  unsubscribe(urlOf(published), mountPoint());
}

}  // namespace
}  // namespace nfs
