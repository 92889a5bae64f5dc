// Publishing, mounting, reading and writing between hosts.
#include <tovan/shared_storage_utils.h>

#include <CoreFoundation/CoreFoundation.h>

#include "tests/nfs/real_nfs.h"
#include "tests/tools/mount/mount_testing.h"

namespace nfs {
namespace {

using test::readFile;
using test::writeFile;

TEST_F(RealNfsTest, WhatOneHostPublishesAnotherMountsReadsWritesAndGivesBack) {
  const std::string published = publishFile("shared", "from the server");
  const plinth::CURLRef url = urlOf(published);
  subscribe(url, mountPoint());
  const Mount mount = mountAt(mountPoint());
  note("%s %s %s", mount.source.c_str(), mount.type.c_str(), mount.options.c_str());
  note("%s", test::readFile("/var/lib/nfs/etab").c_str());
  EXPECT_EQ(mount.type, "nfs");
  EXPECT_EQ(mount.source, kServer + ":" + published);
  EXPECT_NE(mount.options.find("vers=3,"), std::string::npos) << mount.options;
  EXPECT_NE(mount.options.find(",soft,"), std::string::npos) << mount.options;
  EXPECT_NE(mount.options.find("local_lock=all"), std::string::npos) << mount.options;
  EXPECT_EQ(tovan::CSharedStorageUtils::getFilesystemType(plinth::CSTR(mountPoint()))->str(), "nfs");

  EXPECT_EQ(readFile(mountPoint() + "/file"), "from the server");
  writeFile(mountPoint() + "/answer", "from the client");
  EXPECT_EQ(readFile(published + "/answer"), "from the client");

  subscribe(url, mountPoint(), "another subscriber");
  unsubscribe(url, mountPoint());
  EXPECT_EQ(readFile(mountPoint() + "/answer"), "from the client");
  unsubscribe(url, mountPoint(), "another subscriber");
  EXPECT_EQ(mountAt(mountPoint()).type, "");
  EXPECT_FALSE(test::exists(mountPoint() + "/file"));
  unpublish(published);
  EXPECT_EQ(subscribeFailure(url, mountPoint()), mountFailed(published));
  EXPECT_EQ(mountAt(mountPoint()).type, "");
  EXPECT_TRUE(subscriber_->getSubscribedMap().empty());
}

TEST_F(RealNfsTest, TheInformationFileIsSeenThroughTheMount) {
  const std::string published = publishFile("shared", "");
  subscribe(urlOf(published), mountPoint());
  const std::string text = readFile(mountPoint() + "/.mervane.plist");
  EXPECT_NE(text.find("<key>storage-uuid</key>\n\t<string>publisher</string>"), std::string::npos) << text;
  EXPECT_EQ(readFile(mountPoint() + "/.metadata_never_index"), "");
  unsubscribe(urlOf(published), mountPoint());
  EXPECT_FALSE(test::exists(mountPoint() + "/.mervane.plist"));
}

TEST_F(RealNfsTest, PathsOfEveryKindArriveWhole) {
  const std::vector<std::string> names = {" a folder ",  "#hash",
                                          "-dash",       "$(touch x)`y`;z",
                                          "*(rw)",       "a,b=c:d/e",
                                          "quote\"s'\\", "tab\there?port=1#f",
                                          "@group:x%41", "\xc3\xbcml \xe2\x82\xac"};
  for (const std::string& name : names) {
    publisher_->publish(test::folderURL(folder(name)), plinth::CSTR("publisher"), ::getpid());
    writeFile(folder(name) + "/file", name);
  }
  ASSERT_TRUE(test::runLoopUntil([&] { return served().size() == names.size(); })) << watcher_->output();
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    subscribe(urlOf(folder(name)), mountPoint());
    EXPECT_EQ(mountAt(mountPoint()).source, kServer + ":" + folder(name));
    EXPECT_EQ(readFile(mountPoint() + "/file"), name);
    unsubscribe(urlOf(folder(name)), mountPoint());
  }
  for (const std::string& name : names)
    publisher_->unpublish(test::folderURL(folder(name)), plinth::CSTR("publisher"), ::getpid());
  EXPECT_TRUE(test::runLoopUntil([] { return served().empty(); })) << watcher_->output();
}

TEST_F(RealNfsTest, APortInTheURLIsUsedWithVersionFour) {
  const test::ScopedVariable version("TOVAN_NFS_VERSION", "4.2");
  const std::string published = publishFile("shared", "by version four");
  const plinth::CURLRef url = urlOf(published);
  url->setParameterValue(plinth::CSTR("port"), plinth::CSTR("2049"));
  subscribe(url, mountPoint());
  EXPECT_EQ(mountAt(mountPoint()).type, "nfs4");
  EXPECT_EQ(readFile(mountPoint() + "/file"), "by version four");
  writeFile(mountPoint() + "/answer", "written");
  EXPECT_EQ(readFile(published + "/answer"), "written");
  unsubscribe(url, mountPoint());
  EXPECT_EQ(mountAt(mountPoint()).type, "");
}

// Linux's server of version 3 has its mount protocol at a port of its own, and the library names one port for both.
TEST_F(RealNfsTest, APortInTheURLFailsAtOnceWithVersionThree) {
  const std::string published = publishFile("shared", "");
  const plinth::CURLRef url = urlOf(published);
  url->setParameterValue(plinth::CSTR("port"), plinth::CSTR("2049"));
  const Stopwatch watch;
  EXPECT_EQ(subscribeFailure(url, mountPoint()), mountFailed(published));
  EXPECT_LT(watch.seconds(), 20);
  EXPECT_EQ(mountAt(mountPoint()).type, "");
}

TEST_F(RealNfsTest, AMountThatIsInUseStaysUntilNobodyUsesIt) {
  const std::string published = publishFile("shared", "still there");
  const plinth::CURLRef url = urlOf(published);
  subscribe(url, mountPoint());
  {
    test::RunningProgram user("/bin/bash", {"-c", "cd '" + mountPoint() + "' && echo inside && exec sleep 60"});
    ASSERT_TRUE(user.prints("inside"));
    EXPECT_EQ(unsubscribeFailure(url, mountPoint()),
              "1/12 CNFSSharedStorage::_unsubscribe: command [/sbin/umount " + mountPoint() + "] failed, error = 16");
    EXPECT_EQ(readFile(mountPoint() + "/file"), "still there");
  }
  unsubscribe(url, mountPoint());
  EXPECT_EQ(mountAt(mountPoint()).type, "");
}

}  // namespace
}  // namespace nfs
