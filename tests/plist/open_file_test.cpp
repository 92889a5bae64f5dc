// The open file, which is its lock, and the guard over it.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <future>
#include <thread>

#include "tests/plist/plist_support.h"

namespace {

using namespace test;
using plinth::CSharedObjectRef;
using plinth::makeShared;
using tovan::CPropertyListBasicFile;
using COpenFile = CPropertyListBasicFile::COpenFile;
using CFileLockMonitor = CPropertyListBasicFile::CFileLockMonitor;

class OpenFileTest : public ::testing::Test {
 protected:
  const std::string path = scratchFolder("open") + "/file.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);

  // Whether somebody else could take the lock at this moment.
  bool couldLock(int kind) const {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool could = descriptor >= 0 && ::flock(descriptor, kind | LOCK_NB) == 0;
    if (descriptor >= 0) ::close(descriptor);
    return could;
  }
};

TEST_F(OpenFileTest, ReadingTakesASharedLockOnTheFile) {
  writeFile(path, document(""));
  const auto file = makeShared<COpenFile>(cfPath.get(), 1);
  EXPECT_GE(file->descriptor(), 0);
  EXPECT_EQ(file->openMode(), 1);
  EXPECT_EQ(file->lastError(), 0);
  EXPECT_EQ(utf8(file->path()), path);
  EXPECT_TRUE(couldLock(LOCK_SH));
  EXPECT_FALSE(couldLock(LOCK_EX));
  EXPECT_FALSE(file->open()) << "it is open already";
  EXPECT_TRUE(file->close());
  EXPECT_EQ(file->descriptor(), -1);
  EXPECT_FALSE(file->close());
  EXPECT_TRUE(couldLock(LOCK_EX));
  EXPECT_TRUE(file->open()) << "a closed file can be opened again";
  EXPECT_FALSE(couldLock(LOCK_EX));
}

TEST_F(OpenFileTest, ReadingAMissingFileHoldsNothingAndRemembersWhy) {
  const auto file = makeShared<COpenFile>(cfPath.get(), 1);
  EXPECT_EQ(file->descriptor(), -1);
  EXPECT_EQ(file->lastError(), ENOENT);
  EXPECT_FALSE(file->open());
  EXPECT_FALSE(exists(path));
}

TEST_F(OpenFileTest, WritingTakesAnExclusiveLockAndCreatesTheFile) {
  const auto file = makeShared<COpenFile>(cfPath.get(), 2);
  EXPECT_GE(file->descriptor(), 0);
  EXPECT_FALSE(couldLock(LOCK_SH));
  struct stat status;
  ASSERT_EQ(::fstat(file->descriptor(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(OpenFileTest, DescriptorsAreClosedInChildren) {
  writeFile(path, document(""));
  for (const int mode : {1, 2}) {
    const auto file = makeShared<COpenFile>(cfPath.get(), mode);
    EXPECT_NE(::fcntl(file->descriptor(), F_GETFD) & FD_CLOEXEC, 0) << "mode " << mode;
  }
}

TEST_F(OpenFileTest, AnyOtherModeIsRefused) {
  for (const int mode : {0, 3, -1, 99}) {
    EXPECT_EQ(thrownBy([&] { COpenFile file(cfPath.get(), mode); }),
              "4: CPropertyListBasicFile::COpenFile::open[" + pid() + "](" + path +
                  "): wrong open mode = " + std::to_string(mode));
  }
}

TEST_F(OpenFileTest, AnOpenThatFailsNamesTheFileAndTheReason) {
  writeFile(path, document(""));
  const std::string below = path + "/file";
  EXPECT_EQ(thrownBy([&] { COpenFile file(str(below).get(), 1); }),
            "4: CPropertyListBasicFile::COpenFile::open[" + pid() + "](Read, " + below +
                "): can't get read file lock, error = Not a directory");
  EXPECT_EQ(thrownBy([&] { COpenFile file(str(below).get(), 2); }),
            "4: CPropertyListBasicFile::COpenFile::open[" + pid() + "](RW, " + below +
                "): can't get write file lock, error = Not a directory");
}

TEST_F(OpenFileTest, TheLastErrorIsThatOfTheLastOpen) {
  const std::string below = scratchFolder("below") + "/folder";
  makeFolders(below);
  for (const int mode : {1, 2}) {
    writeFile(below + "/file.plist", document(""));
    const auto file = makeShared<COpenFile>(str(below + "/file.plist").get(), mode);
    ASSERT_TRUE(file->close());
    std::filesystem::rename(below, below + ".away");
    writeFile(below, "");
    EXPECT_NE(thrownBy([&] { file->open(); }).find("Not a directory"), std::string::npos) << "mode " << mode;
    EXPECT_EQ(file->lastError(), ENOTDIR) << "mode " << mode;
    EXPECT_EQ(file->descriptor(), -1) << "mode " << mode;
    std::filesystem::remove(below);
    std::filesystem::rename(below + ".away", below);
    EXPECT_TRUE(file->open()) << "mode " << mode;
    EXPECT_EQ(file->lastError(), 0) << "mode " << mode;
  }
}

TEST_F(OpenFileTest, AnAdoptedDescriptorIsClosedWithTheFile) {
  writeFile(path, document(""));
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  {
    const auto file = makeShared<COpenFile>(descriptor);
    EXPECT_EQ(file->openMode(), 99);
    EXPECT_EQ(file->path(), nullptr);
    EXPECT_EQ(file->lastError(), 0);
    EXPECT_EQ(file->descriptor(), descriptor);
    EXPECT_FALSE(file->open());
  }
  EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST_F(OpenFileTest, AClosedAdoptedFileCannotBeOpenedAgain) {
  const auto file = makeShared<COpenFile>(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(file->close());
  EXPECT_EQ(thrownBy([&] { file->open(); }),
            "4: CPropertyListBasicFile::COpenFile::open[" + pid() + "](): wrong open mode = 99");
}

TEST_F(OpenFileTest, TheLockLastsAsLongAsItsLastReference) {
  CPropertyListBasicFile file(cfPath.get());
  ASSERT_TRUE(file.lockForRW());
  CSharedObjectRef<COpenFile> second = file.fileLock();
  EXPECT_TRUE(file.unlock());
  EXPECT_TRUE(file.fileLock().isNull());
  EXPECT_FALSE(couldLock(LOCK_SH)) << "a reference is still held";
  second = nullptr;
  EXPECT_TRUE(couldLock(LOCK_EX));
}

TEST_F(OpenFileTest, ReadersDoNotWaitForOneAnother) {
  writeFile(path, document("<key>a</key><true/>"));
  const CPropertyListBasicFile holder(cfPath.get(), 1);
  ASSERT_FALSE(holder.fileLock().isNull());
  ::alarm(20);  // a reader that waited would wait for ever
  EXPECT_EQ(describe(CPropertyListBasicFile(cfPath.get()).toPropertyList()), "{a: true}");
  EXPECT_FALSE(CPropertyListBasicFile(cfPath.get(), 1).fileLock().isNull());
  ::alarm(0);
}

TEST_F(OpenFileTest, AWaiterIsWokenByTheUnlock) {
  CPropertyListBasicFile holder(cfPath.get());
  ASSERT_TRUE(holder.lockForRW());
  std::promise<void> waiting;
  std::future<bool> waiter = std::async(std::launch::async, [&] {
    waiting.set_value();
    CPropertyListBasicFile other(cfPath.get(), 2);  // reads, and so waits
    return !other.fileLock().isNull();
  });
  waiting.get_future().wait();
  EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_TRUE(holder.unlock());
  EXPECT_TRUE(waiter.get());
}

TEST_F(OpenFileTest, AWaiterFollowsAFileThatWasReplacedWhileItWaited) {
  writeFile(path, document("<key>old</key><true/>"));
  auto holder = std::make_unique<CPropertyListBasicFile>(cfPath.get(), 2);
  std::future<std::string> waiter = std::async(std::launch::async, [&] {
    CPropertyListBasicFile other(cfPath.get());
    return describe(other.toPropertyList());
  });
  EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  writeFile(path + ".new", document("<key>new</key><true/>"));
  std::filesystem::rename(path + ".new", path);
  holder.reset();
  EXPECT_EQ(waiter.get(), "{new: true}");
}

TEST_F(OpenFileTest, AWriterThatWaitedOnARemovedFileCreatesItAnew) {
  writeFile(path, document("<key>old</key><true/>"));
  auto holder = std::make_unique<CPropertyListBasicFile>(cfPath.get(), 2);
  std::future<std::string> waiter = std::async(std::launch::async, [&] {
    CPropertyListBasicFile other(cfPath.get(), 2);
    other.flush();
    return describe(other.toPropertyList());
  });
  EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  std::filesystem::remove(path);
  holder.reset();
  EXPECT_EQ(waiter.get(), "{}");
  EXPECT_EQ(describeFile(path), "{}");
}

// ---- The lock of a file object -------------------------------------------------------------------------------------

TEST_F(OpenFileTest, LockingForReadingAMissingFileHoldsNothing) {
  CPropertyListBasicFile file(cfPath.get());
  EXPECT_FALSE(file.lockForRead());
  EXPECT_TRUE(file.fileLock().isNull());
  EXPECT_FALSE(file.unlock());
  EXPECT_FALSE(exists(path));
}

TEST_F(OpenFileTest, ASecondLockIsRefusedAndTheFirstIsKept) {
  writeFile(path, document(""));
  CPropertyListBasicFile file(cfPath.get());
  EXPECT_TRUE(file.lockForRead());
  EXPECT_FALSE(file.lockForRW()) << "there is no upgrade";
  EXPECT_FALSE(file.lockForRead());
  EXPECT_EQ(file.fileLock()->openMode(), 1);
  EXPECT_FALSE(couldLock(LOCK_EX));
  EXPECT_TRUE(file.unlock());
  EXPECT_TRUE(file.lockForRW());
  EXPECT_FALSE(file.lockForRead());
  EXPECT_EQ(file.fileLock()->openMode(), 2);
}

TEST_F(OpenFileTest, TheLockingConstructorKeepsItsLock) {
  EXPECT_TRUE(CPropertyListBasicFile(cfPath.get(), 1).fileLock().isNull()) << "the file is missing";
  EXPECT_FALSE(exists(path));
  {
    CPropertyListBasicFile writer(cfPath.get(), 2);
    EXPECT_EQ(writer.fileLock()->openMode(), 2);
    EXPECT_FALSE(couldLock(LOCK_SH));
  }
  EXPECT_TRUE(couldLock(LOCK_EX)) << "the destructor gives the lock back";
  EXPECT_EQ(CPropertyListBasicFile(cfPath.get(), 1).fileLock()->openMode(), 1);
  EXPECT_TRUE(CPropertyListBasicFile(cfPath.get(), 0).fileLock().isNull());
  EXPECT_TRUE(CPropertyListBasicFile(cfPath.get(), 7).fileLock().isNull());
}

TEST_F(OpenFileTest, ASharedLockCannotWrite) {
  writeFile(path, document("<key>a</key><true/>"));
  CPropertyListBasicFile file(cfPath.get(), 1);
  std::string thrown;
  const std::string console = consoleOf([&] { thrown = thrownBy([&] { file.flush(); }); });
  EXPECT_EQ(thrown, "4: CPropertyListBasicFile::writePropertyList[" + pid() + "](" + path +
                        "): can't write file, error = Bad file descriptor");
  EXPECT_NE(console.find(thrown.substr(3)), std::string::npos) << console;
  EXPECT_EQ(describeFile(path), "{a: true}");
  EXPECT_EQ(file.fileLock()->openMode(), 1) << "the lock is kept";
}

TEST_F(OpenFileTest, LockingIsPossibleOnAConstantFile) {
  const CPropertyListBasicFile file(cfPath.get());
  EXPECT_TRUE(file.lockForRW());
  EXPECT_TRUE(file.unlock());
  EXPECT_TRUE(file.lockForRead());
  EXPECT_TRUE(file.unlock());
}

TEST_F(OpenFileTest, TheMonitorGivesTheLockBackWhenItGoes) {
  CPropertyListBasicFile file(cfPath.get());
  ASSERT_TRUE(file.lockForRW());
  {
    const auto monitor = makeShared<CFileLockMonitor>(&file);
    EXPECT_FALSE(file.fileLock().isNull());
  }
  EXPECT_TRUE(file.fileLock().isNull());
  EXPECT_TRUE(couldLock(LOCK_EX));
}

TEST_F(OpenFileTest, AMonitorOverNoLockDoesNothing) {
  CPropertyListBasicFile file(cfPath.get());
  { const auto monitor = makeShared<CFileLockMonitor>(&file); }
  ASSERT_TRUE(file.lockForRW());
  {
    const auto monitor = makeShared<CFileLockMonitor>(&file);
    EXPECT_TRUE(file.unlock());
  }
  EXPECT_TRUE(file.fileLock().isNull());
}

TEST_F(OpenFileTest, TheMonitorsDestructorLetsNoExceptionOut) {
  EXPECT_TRUE(std::is_nothrow_destructible_v<CFileLockMonitor>);
}

}  // namespace
