// Questions about the volume that a path lies on.
#include <tovan/shared_storage_utils.h>

#include "platform/system/file_system.h"
#include "tests/storage/mount_table_support.h"
#include "tests/storage/storage_support.h"

namespace {

using namespace test;
using Utils = tovan::CSharedStorageUtils;

std::string yesOrNo(bool answer) { return answer ? "yes" : "no"; }

// The answer in a process whose volumes are all of this type.
std::string onType(const std::string& type, const std::function<std::string()>& question) {
  return answerWithMounts(everyType(type), question);
}

#define SKIP_UNLESS_PERMITTED(answer) \
  if ((answer) == "not permitted") GTEST_SKIP() << "no mount namespace of one's own here"

TEST(StorageVolumesTest, TheTypeIsThatOfTheMountTable) {
  EXPECT_EQ(Utils::getFilesystemType(CSTR("/proc"))->str(), "proc");
  EXPECT_EQ(Utils::getFilesystemType(CSTR("/proc/self/status"))->str(), "proc");
  EXPECT_FALSE(Utils::isExFATBasedPath(CSTR("/proc")));
  EXPECT_FALSE(Utils::isKelpBasedPath(CSTR("/proc")));
}

TEST(StorageVolumesTest, LinksAreFollowed) {
  const std::string folder = scratchFolder("links");
  ASSERT_EQ(::symlink("/proc", (folder + "/absolute").c_str()), 0);
  ASSERT_EQ(::symlink("absolute/self", (folder + "/relative").c_str()), 0);
  EXPECT_EQ(Utils::getFilesystemType(CSTR(folder + "/relative/status"))->str(), "proc");
  EXPECT_NE(Utils::getFilesystemType(CSTR(folder + "/./.." + folder.substr(folder.rfind('/'))))->str(), "proc");
}

TEST(StorageVolumesTest, AMissingPathNamesTheFunctionAndTheReason) {
  const std::string head = "5/12 [" + std::to_string(::getpid()) + "] CSharedStorageUtils::";
  const auto missing = CSTR("/missing 100% path");
  const std::string tail = "(): statfs(/missing 100% path) failed: No such file or directory";
  EXPECT_EQ(thrown([&] { Utils::getFilesystemType(missing); }), head + "getFilesystemType" + tail);
  EXPECT_EQ(thrown([&] { Utils::isExFATBasedPath(missing); }), head + "getFilesystemType" + tail);
  EXPECT_EQ(thrown([&] { Utils::isKelpBasedPath(missing); }), head + "getFilesystemType" + tail);
  EXPECT_EQ(thrown([&] { Utils::pathIsOnReadOnlyVolume(missing); }), head + "pathIsOnReadOnlyVolume" + tail);
  EXPECT_EQ(thrown([&] { Utils::getFilesystemType(nullptr); }),
            head + "getFilesystemType(): statfs() failed: No such file or directory");
}

TEST(StorageVolumesTest, AFileOnTheWayAndACircleOfLinksAreNamed) {
  const std::string folder = scratchFolder("reasons");
  writeFile(folder + "/file", "");
  ASSERT_EQ(::symlink("circle", (folder + "/circle").c_str()), 0);
  EXPECT_NE(thrown([&] { Utils::getFilesystemType(CSTR(folder + "/file/below")); }).find("failed: Not a directory"),
            std::string::npos);
  EXPECT_NE(thrown([&] { Utils::getFilesystemType(CSTR(folder + "/circle")); }).find("failed: Too many levels"),
            std::string::npos);
}

TEST(StorageVolumesTest, ExFATIsKnownThroughEveryDriver) {
  const std::string folder = scratchFolder("exfat");
  for (const char* const type : {"exfat", "fuse.exfat", "fuseblk.exfat"}) {
    const std::string answer = onType(type, [&] { return yesOrNo(Utils::isExFATBasedPath(CSTR(folder))); });
    SKIP_UNLESS_PERMITTED(answer);
    EXPECT_EQ(answer, "yes") << type;
  }
  EXPECT_EQ(onType("vfat", [&] { return yesOrNo(Utils::isExFATBasedPath(CSTR(folder))); }), "no");
}

TEST(StorageVolumesTest, KelpVolumesAreKnownByTheirType) {
  const std::string answer = onType("kcfs", [] { return yesOrNo(Utils::isKelpBasedPath(CSTR(scratchHome()))); });
  SKIP_UNLESS_PERMITTED(answer);
  EXPECT_EQ(answer, "yes");
}

TEST(StorageVolumesTest, AReadOnlyVolumeIsKnown) {
  const auto question = [] { return yesOrNo(Utils::pathIsOnReadOnlyVolume(CSTR(scratchHome()))); };
  EXPECT_EQ(question(), "no");
  const auto readOnly = [](const std::string& table) { return std::regex_replace(table, std::regex(" rw"), " ro"); };
  const std::string answer = answerWithMounts(readOnly, question);
  SKIP_UNLESS_PERMITTED(answer);
  EXPECT_EQ(answer, "yes");
}

TEST(StorageVolumesTest, APathOnAFileServerIsNotLookedAt) {
  const std::string server = Utils::normalizedPath(CSTR(scratchFolder("server")))->str();
  const std::string line = "9999 1 0:999 / " + server + " rw,relatime - nfs4 host:/export ro,hard";
  const std::string answer = answerWithMounts(oneMore(line), [&] {
    const CStringRef path = CSTR(server + "/not/there");
    return Utils::getFilesystemType(path)->str() + " " + yesOrNo(Utils::pathIsOnReadOnlyVolume(path));
  });
  SKIP_UNLESS_PERMITTED(answer);
  EXPECT_EQ(answer, "nfs4 yes");
}

TEST(StorageVolumesTest, FileServersAreNotLocal) {
  const std::string folder = Utils::normalizedPath(CSTR(scratchFolder("local")))->str();
  for (const char* const type : {"nfs", "nfs4", "cifs", "fuse.sshfs"}) {
    const std::string line = "9997 1 0:997 / " + folder + " rw - " + type + " host:/export rw";
    const std::string answer =
        answerWithMounts(oneMore(line), [&] { return yesOrNo(platform::fileSystemFacts(folder + "/any")->isLocal); });
    SKIP_UNLESS_PERMITTED(answer);
    EXPECT_EQ(answer, "no") << type;
  }
  EXPECT_TRUE(platform::fileSystemFacts(folder)->isLocal);
}

TEST(StorageVolumesTest, VolumesLieBelowVolumes) {
  EXPECT_EQ(Utils::getKelpVolumeName(CSTR("/Volumes/My Disk/folder/file"))->str(), "My Disk");
  EXPECT_EQ(Utils::getKelpVolumeName(CSTR("/Volumes/Disk"))->str(), "Disk");
  EXPECT_EQ(Utils::getKelpVolumePath(CSTR("/Volumes/100%@/folder"))->str(), "/Volumes/100%@");
  EXPECT_FALSE(Utils::isVolumeMounted(CSTR("/Volumes/No such disk/folder")));
}

TEST(StorageVolumesTest, OtherPathsAreNotVolumeBased) {
  for (const char* const path : {"/tmp/x", "/Volumes", "/Volumes/", "/Volumes//x", "/Volumes/../x", "/Volumes/.", ""}) {
    const std::string expected = std::string("3/2 Path [") + path + "] is not volume-based";
    const CStringRef text = plinth::CString::nullToEmptyString(CSTR(path));
    EXPECT_EQ(thrown([&] { Utils::getKelpVolumeName(text); }), expected);
    EXPECT_EQ(thrown([&] { Utils::getKelpVolumePath(text); }), expected);
    EXPECT_EQ(thrown([&] { Utils::isVolumeMounted(text); }), expected);
  }
  EXPECT_EQ(thrown([] { Utils::getKelpVolumeName(nullptr); }), "3/2 Path [] is not volume-based");
}

TEST(StorageVolumesTest, AMountedVolumeIsFound) {
  const auto mounted = oneMore("9998 1 0:998 / /Volumes/My\\040Disk rw - kcfs none rw");
  const std::string answer =
      answerWithMounts(mounted, [] { return yesOrNo(Utils::isVolumeMounted(CSTR("/Volumes/My Disk/any/where"))); });
  SKIP_UNLESS_PERMITTED(answer);
  EXPECT_EQ(answer, "yes");
}

}  // namespace
