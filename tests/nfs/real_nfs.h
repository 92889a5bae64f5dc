// real_nfs.h: a publisher and a subscriber of the library between real NFS servers and clients, with tovan-exports
// running on the server.
#pragma once

#include <gtest/gtest.h>
#include <tovan/nfs_shared_storage_publisher.h>
#include <tovan/nfs_shared_storage_subscriber.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>

#include "tests/nfs/hosts.h"
#include "tests/storage/storage_support.h"
#include "tests/tools/integration/running_program.h"

namespace nfs {

class Stopwatch {
 public:
  double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// The hosts share one tree of files; what is published lies below /srv, which only the server looks at.
class RealNfsTest : public testing::Test {
 protected:
  RealNfsTest() {
    publisher_->setExportsFilePath(plinth::CSTR(exportsFile_));
    allow(kClient + " rw");
    watcher_ = std::make_unique<test::RunningProgram>(
        "/usr/bin/nsenter",
        std::vector<std::string>{"--target", "1", "--mount", "--net", "--", TOVAN_BUILD_DIR "/bin/tovan-exports",
                                 "--foreground", "--exports", exportsFile_});
    EXPECT_TRUE(watcher_->prints("nothing is published")) << watcher_->output();
  }
  ~RealNfsTest() override {
    test::writeFile(exportsFile_, "");
    EXPECT_TRUE(test::runLoopUntil([] { return served().empty(); })) << watcher_->output();
    EXPECT_EQ(watcher_->end(), 0) << watcher_->output();
  }

  // Which hosts may do what; nobody when the text is empty.
  static void allow(const std::string& host) {
    test::writeFile("/etc/tovan/exports.conf", host.empty() ? "" : "host = " + host + "\n");
  }
  // A folder on the server, not yet made.
  std::string folder(const std::string& name) const { return home_ + "/" + name; }
  // Lists the folder, and waits until the server has it.
  void publish(const std::string& folder) {
    const std::size_t before = served().size();
    publisher_->publish(test::folderURL(folder), plinth::CSTR("publisher"), ::getpid());
    EXPECT_TRUE(test::runLoopUntil([&] { return served().size() > before; })) << watcher_->output();
  }
  void unpublish(const std::string& folder) {
    const std::size_t before = served().size();
    publisher_->unpublish(test::folderURL(folder), plinth::CSTR("publisher"), ::getpid());
    EXPECT_TRUE(test::runLoopUntil([&] { return served().size() < before; })) << watcher_->output();
  }
  // Makes, publishes and fills the folder with one file.
  std::string publishFile(const std::string& name, const std::string& content) {
    publish(folder(name));
    test::writeFile(folder(name) + "/file", content);
    return folder(name);
  }

  static plinth::CURLRef urlOf(const std::string& folder, const std::string& host = kServer) {
    return test::urlOf("nfs://" + host + "/")
        ->copyAndReplaceComponents(nullptr, nullptr, plinth::CSTR(folder), nullptr);
  }
  // Where the tests mount; not made yet.
  std::string mountPoint(const std::string& name = "mount") const { return mounts_ + "/" + name; }
  void subscribe(const plinth::CURLRef& url, const std::string& mountPoint, const char* client = "subscriber") {
    subscriber_->subscribe(url, plinth::CSTR(mountPoint), plinth::CSTR(client), ::getpid());
  }
  void unsubscribe(const plinth::CURLRef& url, const std::string& mountPoint, const char* client = "subscriber") {
    subscriber_->unsubscribe(url, plinth::CSTR(mountPoint), plinth::CSTR(client), ::getpid());
  }
  std::string subscribeFailure(const plinth::CURLRef& url, const std::string& mountPoint) {
    return test::thrown([&] { subscribe(url, mountPoint); });
  }
  std::string unsubscribeFailure(const plinth::CURLRef& url, const std::string& mountPoint) {
    return test::thrown([&] { unsubscribe(url, mountPoint); });
  }
  static std::string mountFailed(const std::string& folder, const std::string& status = "32") {
    return "1/12 CNFSSharedStorage::_subscribe: command [/sbin/mount " + kServer + ":" + folder +
           "] failed, error = " + status;
  }

  const std::string exportsFile_ = test::scratchFolder("library") + "/exports";
  const std::string home_ = "/srv/" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name());
  const std::string mounts_ = test::scratchFolder("mounts");
  const tovan::CNFSSharedStoragePublisherRef publisher_ = plinth::makeShared<tovan::CNFSSharedStoragePublisher>();
  const tovan::CNFSSharedStorageSubscriberRef subscriber_ = plinth::makeShared<tovan::CNFSSharedStorageSubscriber>();
  std::unique_ptr<test::RunningProgram> watcher_;
};

}  // namespace nfs
