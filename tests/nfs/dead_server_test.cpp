// What happens to mounts whose server dies. In the guest a request is given up after four seconds (guest_init.sh).
#include <tovan/shared_storage_utils.h>

#include <thread>

#include "tests/nfs/real_nfs.h"

namespace nfs {
namespace {

constexpr double kLongest = 55;  // what the library waits for a command

using tovan::CSharedStorageUtils;

class DeadServerTest : public RealNfsTest {
 protected:
  // Reads a file that the client has not seen yet, so that it must ask the server.
  std::unique_ptr<test::RunningProgram> startReader(const std::string& name) const {
    return std::make_unique<test::RunningProgram>("/bin/cat", std::vector<std::string>{mountPoint() + "/" + name});
  }
  void publishFiles() {
    published_ = publishFile("shared", "first");
    for (const char* const name : {"second", "third"}) test::writeFile(published_ + "/" + name, name);
    subscribe(urlOf(published_), mountPoint());
    ASSERT_EQ(test::readFile(mountPoint() + "/file"), "first");
  }
  // A reader is told of the failure, and does not hang.
  void expectReadFails(test::RunningProgram& reader) {
    const Stopwatch watch;
    EXPECT_EQ(reader.waitForEnd(kLongest), 1);
    note("the reader was told after %.1f s more", watch.seconds());
    EXPECT_NE(reader.output().find("Input/output error"), std::string::npos) << reader.output();
  }

  std::string published_;
};

TEST_F(DeadServerTest, QuestionsToTheMountTableAreAnsweredWhileAReaderHangs) {
  publishFiles();
  {
    const SilentServer silence;
    const auto reader = startReader("second");
    const auto asker =
        std::make_unique<test::RunningProgram>("/usr/bin/stat", std::vector<std::string>{"-f", mountPoint()});
    EXPECT_FALSE(test::runLoopUntil([&] { return reader->hasEnded() || asker->hasEnded(); }, 1));
    const Stopwatch watch;
    EXPECT_EQ(CSharedStorageUtils::getFilesystemType(plinth::CSTR(mountPoint()))->str(), "nfs");
    EXPECT_EQ(CSharedStorageUtils::getFilesystemType(plinth::CSTR(mountPoint() + "/second"))->str(), "nfs");
    EXPECT_FALSE(CSharedStorageUtils::pathIsOnReadOnlyVolume(plinth::CSTR(mountPoint() + "/second")));
    EXPECT_FALSE(CSharedStorageUtils::isExFATBasedPath(plinth::CSTR(mountPoint())));
    EXPECT_EQ(mountAt(mountPoint()).type, "nfs");
    note("the mount table answered in %.3f s while a reader hung", watch.seconds());
    EXPECT_LT(watch.seconds(), 1);
    EXPECT_FALSE(reader->hasEnded());
    EXPECT_FALSE(asker->hasEnded());
    expectReadFails(*reader);
    EXPECT_NE(asker->waitForEnd(kLongest), -1);
  }
  unsubscribe(urlOf(published_), mountPoint());
  EXPECT_EQ(mountAt(mountPoint()).type, "");
}

TEST_F(DeadServerTest, AServerThatComesBackIsReadThroughTheSameMount) {
  publishFiles();
  {
    const SilentServer silence;
    expectReadFails(*startReader("second"));
  }
  EXPECT_TRUE(test::runLoopUntil(
      [&] {
        return run({"/bin/cat", mountPoint() + "/second"}).out == "second";
      },
      kLongest));
  {
    const StoppedServer stopped;
    expectReadFails(*startReader("third"));
  }
  EXPECT_TRUE(test::runLoopUntil([&] { return run({"/bin/cat", mountPoint() + "/third"}).out == "third"; }, kLongest));
  unsubscribe(urlOf(published_), mountPoint());
}

TEST_F(DeadServerTest, AMountThatIsUsedIsDetachedByHandWhileItsServerIsSilent) {
  publishFiles();
  test::RunningProgram user("/bin/bash", {"-c", "cd '" + mountPoint() + "' && echo inside && exec sleep 100"});
  ASSERT_TRUE(user.prints("inside"));
  const SilentServer silence;
  EXPECT_EQ(mountAt(mountPoint()).type, "nfs");
  const Stopwatch watch;
  EXPECT_EQ(run({"/usr/bin/umount", "-l", mountPoint()}).status, 0);
  note("umount -l of a mount in use with a silent server took %.1f s", watch.seconds());
  EXPECT_LT(watch.seconds(), 20);
  EXPECT_EQ(mountAt(mountPoint()).type, "");
}

TEST_F(DeadServerTest, MountingFromASilentServerAndUnmountingEndInTime) {
  publishFiles();
  const SilentServer silence;
  std::thread mounting([&] {
    const auto another = plinth::makeShared<tovan::CNFSSharedStorageSubscriber>();
    const Stopwatch watch;
    EXPECT_EQ(test::thrown([&] {
                another->subscribe(urlOf(published_), plinth::CSTR(mountPoint("other")), plinth::CSTR("app"), 1);
              }),
              mountFailed(published_));
    note("mounting from a silent server failed after %.1f s", watch.seconds());
    EXPECT_LT(watch.seconds(), kLongest);
  });
  const Stopwatch watch;
  EXPECT_EQ(unsubscribeFailure(urlOf(published_), mountPoint()), "nothing");
  note("umount -f with a silent server took %.1f s", watch.seconds());
  EXPECT_LT(watch.seconds(), kLongest);
  EXPECT_EQ(mountAt(mountPoint()).type, "");
  mounting.join();
  EXPECT_EQ(mountAt(mountPoint("other")).type, "");
}

}  // namespace
}  // namespace nfs
