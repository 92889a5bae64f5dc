// What the daemons of a user have mounted, and the kernel's list that it is compared with.
#include "tools/mervaned/mount_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/scratch_home.h"

namespace {

namespace fs = std::filesystem;

using mervaned::isThere;
using mervaned::KernelMount;
using mervaned::listedPath;
using mervaned::MountRecord;
using mervaned::MountTable;
using mervaned::mountTable;
using mervaned::printable;
using mervaned::RecordedMount;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;

// ---- The kernel's list

TEST(MountTableTest, ListsWhatIsMounted) {
  const MountTable table = mountTable();
  ASSERT_THAT(table, Contains(Key("/proc")));
  EXPECT_EQ(table.at("/proc").type, "proc");
  EXPECT_GT(table.at("/proc").id, 0);
  EXPECT_THAT(table, Contains(Key("/")));
}

TEST(MountTableTest, ControlCharactersBecomeOctalDigits) {
  EXPECT_EQ(printable("host:/a b"), "host:/a b");
  EXPECT_EQ(printable("a\nb\tc\x7F\x01"), "a\\012b\\011c\\177\\001");
  EXPECT_EQ(printable(""), "");
  EXPECT_EQ(printable("\xC3\xA4"), "\xC3\xA4");
}

class ListedPathTest : public ::testing::Test {
 protected:
  const std::string folder_ = fs::canonical(test::scratchFolder("listed")).string();
};

TEST_F(ListedPathTest, LinksOnTheWayAreFollowed) {
  test::makeFolders(folder_ + "/real/deep");
  fs::create_symlink("real", folder_ + "/link");
  EXPECT_EQ(listedPath({}, folder_ + "/link/deep"), folder_ + "/real/deep");
  fs::create_symlink("deep", folder_ + "/real/last");
  EXPECT_EQ(listedPath({}, folder_ + "/link/last"), folder_ + "/real/deep");
}

TEST_F(ListedPathTest, WhatIsMountedOnThePathItselfIsNotLookedAt) {
  // A link that stands for what would hang when it is followed: it is not, as the table names the path.
  test::makeFolders(folder_ + "/real");
  fs::create_symlink("real", folder_ + "/mounted");
  EXPECT_EQ(listedPath({{folder_ + "/mounted", {}}}, folder_ + "/mounted"), folder_ + "/mounted");
}

TEST_F(ListedPathTest, APathThatIsNotThereStaysAsItIs) {
  EXPECT_EQ(listedPath({}, folder_ + "/none/below"), folder_ + "/none/below");
  EXPECT_EQ(listedPath({}, folder_ + "/none"), folder_ + "/none");
}

// ---- Whether a mount is there

MountTable with(const std::string& path, const std::string& type, const std::string& source) {
  return {{path, KernelMount{1, type, source}}};
}

TEST(MountIsThereTest, OneThatWasSeenHasItsTypeAndSource) {
  const RecordedMount mount = {"nfs://host/a", "/mnt/a", "nfs4", "host:/a"};
  EXPECT_TRUE(isThere(mount, with("/mnt/a", "nfs4", "host:/a")));
  EXPECT_FALSE(isThere(mount, {}));
  EXPECT_FALSE(isThere(mount, with("/mnt/b", "nfs4", "host:/a")));
  EXPECT_FALSE(isThere(mount, with("/mnt/a", "nfs", "host:/a")));
  EXPECT_FALSE(isThere(mount, with("/mnt/a", "nfs4", "host:/b")));
}

TEST(MountIsThereTest, OneThatWasNotSeenIsKnownByItsURL) {
  const RecordedMount mount = {"nfs://host/a%20b?port=2049", "/mnt/a", "", ""};
  EXPECT_TRUE(isThere(mount, with("/mnt/a", "nfs", "host:/a b")));
  EXPECT_TRUE(isThere(mount, with("/mnt/a", "nfs4", "host:/a b")));
  EXPECT_FALSE(isThere(mount, with("/mnt/a", "tmpfs", "host:/a b")));
  EXPECT_FALSE(isThere(mount, with("/mnt/a", "nfs", "other:/a b")));
  EXPECT_TRUE(isThere({"nfs://[fe80::1]/a", "/mnt/a", "", ""}, with("/mnt/a", "nfs4", "[fe80::1]:/a")));
  EXPECT_FALSE(isThere({"no url at all", "/mnt/a", "", ""}, with("/mnt/a", "nfs", "")));
}

// ---- The record

class MountRecordTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(fs::path(file()).parent_path());
    test::makeFolders(fs::path(file()).parent_path());
  }
  static std::string file() {
    return test::scratchHome() + "/Library/Application Support/Lumisphere/LumisphereMounts.plist";
  }
  static void writeRecord(const std::string& mounts) {
    test::writeFile(file(), "<plist version=\"1.0\"><dict><key>mounts</key><dict>" + mounts + "</dict></dict></plist>");
  }
  // What the constructor says on standard error.
  static std::string complaint() {
    testing::internal::CaptureStderr();
    EXPECT_THAT(MountRecord().mounts(), IsEmpty());
    return testing::internal::GetCapturedStderr();
  }
};

TEST_F(MountRecordTest, IsReadAgainByTheNextDaemon) {
  const MountTable table = mountTable();
  const RecordedMount seen = {"nfs://host/proc", "/proc", table.at("/proc").type, table.at("/proc").source};
  {
    MountRecord record;
    EXPECT_THAT(record.mounts(), IsEmpty());
    record.put("/proc/", seen);
    record.put("/mnt/not yet", {"nfs://host/a", "/mnt/not yet", "", ""});
    record.put("/mnt/given back", {"nfs://host/b", "/mnt/given back", "", ""});
    record.remove("/mnt/given back");
    record.remove("/mnt/never there");
  }
  const MountRecord record;
  ASSERT_EQ(record.mounts().size(), 2U);
  const RecordedMount& back = record.mounts().at("/proc/");
  EXPECT_EQ(back.url, seen.url);
  EXPECT_EQ(back.listedPath, seen.listedPath);
  EXPECT_EQ(back.type, seen.type);
  EXPECT_EQ(back.source, seen.source);
  EXPECT_EQ(record.mounts().at("/mnt/not yet").url, "nfs://host/a");
}

TEST_F(MountRecordTest, WhatIsNotThereAnyMoreIsDropped) {
  {
    MountRecord record;
    record.put("/mnt/seen", {"nfs://host/a", "/mnt/seen", "nfs4", "host:/a"});
    record.put("/proc", {"nfs://host/a", "/proc", "", ""});     // somebody else's is there
    record.put("/", {"nfs://host/a", "/", "nfs4", "host:/a"});  // and there
    record.put("/mnt/a", {"nfs://host/a", "/mnt/a", "", ""});   // may still come
  }
  EXPECT_EQ(MountRecord().mounts().size(), 1U);
  EXPECT_THAT(MountRecord().mounts(), Contains(Key("/mnt/a")));
  EXPECT_THAT(test::readFile(file()), testing::Not(HasSubstr("/mnt/seen")));
}

TEST_F(MountRecordTest, ATextAloneIsTheURL) {
  writeRecord("<key>/mnt/old</key><string>nfs://host/a</string>");
  const MountRecord record;
  ASSERT_THAT(record.mounts(), Contains(Key("/mnt/old")));
  EXPECT_EQ(record.mounts().at("/mnt/old").url, "nfs://host/a");
  EXPECT_EQ(record.mounts().at("/mnt/old").listedPath, "/mnt/old");
}

TEST_F(MountRecordTest, EntriesWithoutAURLArePassedOver) {
  writeRecord(
      "<key>/a</key><integer>1</integer><key>/b</key><dict/><key>/c</key><array/><key>/d</key><string/>"
      "<key>/e</key><dict><key>url</key><true/></dict>"
      "<key>/f</key><dict><key>url</key><string>nfs://host/f</string></dict>");
  const MountRecord record;
  EXPECT_EQ(record.mounts().size(), 1U);
  EXPECT_THAT(record.mounts(), Contains(Key("/f")));
}

TEST_F(MountRecordTest, AFileThatCannotBeReadIsReportedAndBeginsAnew) {
  for (const char* const content :
       {"no list", "<plist version=\"1.0\"><dict>", "<plist version=\"1.0\"><array/></plist>"}) {
    test::writeFile(file(), content);
    EXPECT_THAT(complaint(), HasSubstr("mounts of an earlier run cannot be told from others: ")) << content;
    EXPECT_EQ(test::readFile(file()), content) << "nothing is lost by looking at it";
  }
}

TEST_F(MountRecordTest, ASectionOfAnotherKindIsAnEmptyOne) {
  test::writeFile(file(), "<plist version=\"1.0\"><dict><key>mounts</key><array/></dict></plist>");
  EXPECT_EQ(complaint(), "");
}

TEST_F(MountRecordTest, WhatCannotBeWrittenIsReported) {
  MountRecord record;
  fs::remove_all(fs::path(file()).parent_path());
  test::writeFile(fs::path(file()).parent_path(), "a file where the folder was");
  testing::internal::CaptureStderr();
  record.put("/mnt/a", {"nfs://host/a", "/mnt/a", "", ""});
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("cannot note what is mounted: "));
  EXPECT_THAT(record.mounts(), Contains(Key("/mnt/a"))) << "it is known all the same";
}

}  // namespace
