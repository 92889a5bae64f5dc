#include <tovan/property_list_basic_file.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>

#include "tests/plist/plist_support.h"
#include "tests/support/failing_system_call.h"

namespace {

using namespace test;
using tovan::CPropertyListBasicFile;

class PropertyListBasicFileTest : public ::testing::Test {
 protected:
  const std::string folder = scratchFolder("list");
  const std::string path = folder + "/file.plist";
  const CSharedCFRef<CFStringRef> cfPath = str(path);
};

// A section of its own, as the derived files have one.
class SectionFile : public CPropertyListBasicFile {
 public:
  SectionFile(CFStringRef path, const char* key) : CPropertyListBasicFile(path), key_(str(key)) {}
  void flush(const std::string& value) const {
    flushSection(
        [&](CFMutableDictionaryRef document) { CFDictionarySetValue(document, key_.get(), str(value).get()); });
  }

 private:
  CSharedCFRef<CFStringRef> key_;
};

TEST_F(PropertyListBasicFileTest, AMissingFileReadsAsAnEmptyDictionaryAndIsNotCreated) {
  CPropertyListBasicFile file(cfPath.get());
  EXPECT_EQ(describe(file.toPropertyList()), "{}");
  EXPECT_EQ(utf8(file.fileVersion()), "1.0");
  EXPECT_EQ(utf8(file.filePath()), path);
  EXPECT_TRUE(file.refresh());
  EXPECT_FALSE(exists(path));
}

TEST_F(PropertyListBasicFileTest, AZeroLengthFileReadsAsAnEmptyDictionary) {
  writeFile(path, "");
  CPropertyListBasicFile file(cfPath.get());
  EXPECT_EQ(describe(file.toPropertyList()), "{}");
  EXPECT_EQ(utf8(file.fileVersion()), "1.0");
}

TEST_F(PropertyListBasicFileTest, ReadsTheDocumentAndItsVersion) {
  writeFile(path, document("<key>Version</key><string>1.7</string><key>a</key><integer>5</integer>"));
  CPropertyListBasicFile file(cfPath.get());
  EXPECT_EQ(describe(file.toPropertyList()), "{Version: \"1.7\", a: 5}");
  EXPECT_EQ(utf8(file.fileVersion()), "1.7");
}

TEST_F(PropertyListBasicFileTest, AVersionThatIsANumberReadsAsOnePointNought) {
  writeFile(path, document("<key>Version</key><integer>2</integer>"));
  EXPECT_EQ(utf8(CPropertyListBasicFile(cfPath.get()).fileVersion()), "1.0");
}

TEST_F(PropertyListBasicFileTest, SettingTheVersionSetsItInTheDocumentAndNullRemovesIt) {
  CPropertyListBasicFile file(cfPath.get());
  file.setFileVersion(CFSTR("2.5"));
  EXPECT_EQ(utf8(file.fileVersion()), "2.5");
  EXPECT_EQ(describe(file.toPropertyList()), "{Version: \"2.5\"}");
  file.flush();
  EXPECT_EQ(describeFile(path), "{Version: \"2.5\"}");
  file.setFileVersion(nullptr);
  EXPECT_EQ(file.fileVersion(), nullptr);
  file.flush();
  EXPECT_EQ(describeFile(path), "{}");
}

TEST_F(PropertyListBasicFileTest, AFlushCreatesTheFileForItsOwnerAlone) {
  CPropertyListBasicFile file(cfPath.get());
  file.flush();
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(PropertyListBasicFileTest, AShorterDocumentLeavesNoTrailingBytes) {
  writeFile(path, document("<key>a</key><string>" + std::string(5000, 'x') + "</string>"));
  CPropertyListBasicFile file(cfPath.get());
  file.fromPropertyList(dict("<key>a</key><string>y</string>").get());
  file.flush();
  const std::string content = readFile(path);
  EXPECT_LT(content.size(), 1000U);
  EXPECT_EQ(content.substr(content.size() - 9), "</plist>\n");
  EXPECT_EQ(describeFile(path), "{a: \"y\"}");
}

TEST_F(PropertyListBasicFileTest, WhatAKilledWriterLeftBehindTheDocumentIsIgnored) {
  writeFile(path, document("<key>a</key><integer>1</integer>") + "tail of an older, longer document</dict></plist>");
  CPropertyListBasicFile file(cfPath.get());
  EXPECT_EQ(describe(file.toPropertyList()), "{a: 1}");
}

TEST_F(PropertyListBasicFileTest, FromPropertyListCopiesAndRefusesNull) {
  CPropertyListBasicFile file(cfPath.get());
  const CSharedCFRef<CFMutableDictionaryRef> given = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  CFDictionarySetValue(given.get(), CFSTR("Version"), CFSTR("3"));
  file.fromPropertyList(given.get());
  CFDictionarySetValue(given.get(), CFSTR("later"), CFSTR("not seen"));
  EXPECT_EQ(describe(file.toPropertyList()), "{Version: \"3\"}");
  EXPECT_EQ(utf8(file.fileVersion()), "3");
  EXPECT_EQ(thrownBy([&] { file.fromPropertyList(nullptr); }),
            "4: CPropertyListBasicFile::fromPropertyList[" + pid() + "](): propertyList is NULL");
  EXPECT_EQ(describe(file.toPropertyList()), "{Version: \"3\"}");
}

TEST_F(PropertyListBasicFileTest, WritePropertyListWritesTheListAndLeavesTheDocumentAlone) {
  CPropertyListBasicFile file(cfPath.get());
  file.writePropertyList(dict("<key>a</key><true/>").get());
  EXPECT_EQ(describeFile(path), "{a: true}");
  EXPECT_EQ(describe(file.toPropertyList()), "{}");
  EXPECT_EQ(describe(file.readPropertyList()), "{a: true}");
  EXPECT_EQ(describe(file.toPropertyList()), "{}");
}

TEST_F(PropertyListBasicFileTest, TheFileIsRewrittenInPlaceThroughSymbolicLinks) {
  const std::string link = folder + "/link.plist";
  writeFile(path, document(""));
  std::filesystem::create_symlink(path, link);
  struct stat before;
  struct stat after;
  ASSERT_EQ(::stat(path.c_str(), &before), 0);
  CPropertyListBasicFile file(str(link).get());
  file.fromPropertyList(dict("<key>a</key><integer>1</integer>").get());
  file.flush();
  ASSERT_EQ(::stat(path.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(describeFile(path), "{a: 1}");
}

TEST_F(PropertyListBasicFileTest, PathsMayHoldAnyCharacter) {
  for (const std::string name :
       {"with blank", "q'uo\"te", "new\nline", "100%s%n%@", "-dash", "grün-日本-🙂", "$(id)"}) {
    const std::string strange = folder + "/" + name;
    CPropertyListBasicFile file(str(strange).get());
    file.fromPropertyList(dict("<key>a</key><integer>1</integer>").get());
    file.flush();
    EXPECT_EQ(describeFile(strange), "{a: 1}") << name;
    writeFile(strange, "no list");
    const std::string expected = "255: CPropertyListBasicFile::refresh[" + pid() + "](" + strange +
                                 "): CFPropertyListCreateFromXMLData() failed, error = ";
    EXPECT_EQ(thrownBy([&] { file.refresh(); }).substr(0, expected.size()), expected);
  }
}

TEST_F(PropertyListBasicFileTest, APathWithAZeroCharacterIsRefusedAndNotCutShort) {
  writeFile(path, document("<key>a</key><integer>1</integer>"));
  const CSharedCFRef<CFStringRef> cut = str(path + std::string(1, '\0') + "x");
  EXPECT_NE(thrownBy([&] { CPropertyListBasicFile file(cut.get()); }).find("can't get read file lock, error = Invalid"),
            std::string::npos);
}

TEST_F(PropertyListBasicFileTest, ABinaryListIsReadAndWrittenAsXML) {
  const CSharedCFRef<CFDictionaryRef> list = dict("<key>a</key><integer>7</integer>");
  const CSharedCFRef<CFDataRef> data =
      CFPropertyListCreateData(kCFAllocatorDefault, list.get(), kCFPropertyListBinaryFormat_v1_0, 0, nullptr);
  ASSERT_FALSE(data.isNull());
  writeFile(path, std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
                              static_cast<std::size_t>(CFDataGetLength(data.get()))));
  CPropertyListBasicFile file(cfPath.get());
  EXPECT_EQ(describe(file.toPropertyList()), "{a: 7}");
  file.flush();
  EXPECT_EQ(readFile(path).substr(0, 5), "<?xml");
}

// ---- Sections ------------------------------------------------------------------------------------------------------

TEST_F(PropertyListBasicFileTest, ASectionFlushKeepsWhatOthersWroteMeanwhile) {
  SectionFile first(cfPath.get(), "first");
  SectionFile second(cfPath.get(), "second");
  first.flush("1");
  second.flush("2");
  first.flush("3");
  EXPECT_EQ(describeFile(path), "{first: \"3\", second: \"2\"}");
}

TEST_F(PropertyListBasicFileTest, TheFreshDocumentOfASectionFlushIsNotStoredBack) {
  SectionFile first(cfPath.get(), "first");
  SectionFile(cfPath.get(), "second").flush("2");
  first.flush("1");
  EXPECT_EQ(describe(first.toPropertyList()), "{}");
  EXPECT_TRUE(first.fileLock().isNull());
}

TEST_F(PropertyListBasicFileTest, ASectionFlushUnderAHeldLockIsBasedOnTheDocumentInMemory) {
  SectionFile file(cfPath.get(), "first");
  writeFile(path, document("<key>other</key><integer>1</integer>"));
  ASSERT_TRUE(file.lockForRW());
  file.flush("1");
  EXPECT_FALSE(file.fileLock().isNull()) << "the caller's lock is the caller's to give back";
  EXPECT_EQ(describeFile(path), "{first: \"1\"}");
  EXPECT_TRUE(file.unlock());
}

TEST_F(PropertyListBasicFileTest, AReadModifyWriteUnderTheLockSeesEverything) {
  writeFile(path, document("<key>other</key><integer>1</integer>"));
  SectionFile file(cfPath.get(), "first");
  ASSERT_TRUE(file.lockForRW());
  file.refresh();
  file.flush("1");
  ASSERT_TRUE(file.unlock());
  EXPECT_EQ(describeFile(path), "{first: \"1\", other: 1}");
}

TEST_F(PropertyListBasicFileTest, ASectionFlushThatFailsGivesItsLockBack) {
  SectionFile file(cfPath.get(), "first");
  writeFile(path, "garbage");
  EXPECT_NE(thrownBy([&] { file.flush("1"); }), "nothing");
  EXPECT_TRUE(file.fileLock().isNull());
  EXPECT_EQ(readFile(path), "garbage");
}

// ---- Failures ------------------------------------------------------------------------------------------------------

TEST_F(PropertyListBasicFileTest, AnUnreadableListThrowsFromTheConstructorAndGoesToTheConsole) {
  writeFile(path, "<plist><dict><key>a</key></dict></plist>");
  std::string thrown;
  const std::string console = consoleOf([&] { thrown = thrownBy([&] { CPropertyListBasicFile file(cfPath.get()); }); });
  const std::string expected = "255: CPropertyListBasicFile::refresh[" + pid() + "](" + path +
                               "): CFPropertyListCreateFromXMLData() failed, error = ";
  EXPECT_EQ(thrown.substr(0, expected.size()), expected);
  EXPECT_NE(thrown.find("line 1"), std::string::npos) << thrown;
  EXPECT_NE(console.find(thrown.substr(5)), std::string::npos) << console;
}

TEST_F(PropertyListBasicFileTest, AFailedReadRefusesEveryWriteUntilAReadSucceeds) {
  writeFile(path, document("<key>a</key><integer>1</integer>"));
  CPropertyListBasicFile file(cfPath.get());
  writeFile(path, "garbage");
  EXPECT_NE(thrownBy([&] { file.refresh(); }), "nothing");
  EXPECT_EQ(describe(file.toPropertyList()), "{a: 1}") << "the document in memory stays";

  std::string thrown;
  const std::string console = consoleOf([&] { thrown = thrownBy([&] { file.flush(); }); });
  const std::string expected = "CPropertyListBasicFile::writePropertyList[" + pid() + "](" + path +
                               "): not proceeding since the last refresh failed";
  EXPECT_EQ(thrown, "255: " + expected);
  EXPECT_NE(console.find(expected), std::string::npos) << console;
  EXPECT_EQ(thrownBy([&] { file.writePropertyList(dict("").get()); }), "255: " + expected);
  EXPECT_EQ(readFile(path), "garbage");

  writeFile(path, document("<key>b</key><integer>2</integer>"));
  EXPECT_TRUE(file.refresh());
  file.flush();
  EXPECT_EQ(describeFile(path), "{b: 2}");
}

TEST_F(PropertyListBasicFileTest, OtherFailuresDoNotRefuseLaterWrites) {
  CPropertyListBasicFile file(cfPath.get());
  const CSharedCFRef<CFMutableDictionaryRef> bad = CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  CFDictionarySetValue(
      bad.get(), CFSTR("url"),
      CSharedCFRef<CFURLRef>(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("file:///tmp"), nullptr)).get());
  std::string thrown;
  const std::string console = consoleOf([&] { thrown = thrownBy([&] { file.writePropertyList(bad.get()); }); });
  const std::string expected = "255: CPropertyListBasicFile::writePropertyList[" + pid() + "](" + path +
                               "): CFPropertyListCreateXMLData() failed, error = ";
  EXPECT_EQ(thrown.substr(0, expected.size()), expected);
  EXPECT_NE(console.find(thrown.substr(5)), std::string::npos) << console;
  EXPECT_FALSE(exists(path)) << "what cannot be serialised does not even create the file";
  EXPECT_NE(thrownBy([&] { file.writePropertyList(nullptr); }).find("CFPropertyListCreateXMLData() failed"),
            std::string::npos);
  file.flush();
  EXPECT_EQ(describeFile(path), "{}");
}

TEST_F(PropertyListBasicFileTest, ARootThatIsNoDictionaryIsAnErrorAndNeverOverwritten) {
  for (const std::string root : {"<array><integer>1</integer></array>", "<string>text</string>", "<true/>"}) {
    const std::string content = "<plist version=\"1.0\">" + root + "</plist>";
    writeFile(path, document(""));
    CPropertyListBasicFile file(cfPath.get());
    writeFile(path, content);
    EXPECT_EQ(thrownBy([&] { file.refresh(); }),
              "255: CPropertyListBasicFile::refresh[" + pid() + "](" + path +
                  "): CFPropertyListCreateFromXMLData() failed, error = The root of the property list is not a "
                  "dictionary");
    EXPECT_NE(thrownBy([&] { file.flush(); }), "nothing");
    EXPECT_EQ(readFile(path), content);
  }
}

TEST_F(PropertyListBasicFileTest, ADirectoryInTheFilesPlaceCannotBeReadOrWritten) {
  CPropertyListBasicFile file(cfPath.get());
  makeFolders(path);
  std::string thrown;
  const std::string console = consoleOf([&] { thrown = thrownBy([&] { file.refresh(); }); });
  EXPECT_EQ(thrown,
            "4: CPropertyListBasicFile::refresh[" + pid() + "](" + path + "): can't read file, error = Is a directory");
  EXPECT_NE(console.find(thrown.substr(3)), std::string::npos) << console;
  EXPECT_EQ(thrownBy([&] { file.lockForRW(); }), "4: CPropertyListBasicFile::COpenFile::open[" + pid() + "](RW, " +
                                                     path + "): can't get write file lock, error = Is a directory");
}

TEST_F(PropertyListBasicFileTest, AFileThatGivesFewerBytesThanItHasCannotBeRead) {
  // The kernel gives such files the size of a page, whatever there is to read.
  const std::string shorter = "/sys/devices/system/cpu/online";
  if (!exists(shorter) || std::filesystem::file_size(shorter) == readFile(shorter).size()) {
    GTEST_SKIP() << "needs the kernel's list of processors";
  }
  std::string thrown;
  consoleOf([&] { thrown = thrownBy([&] { CPropertyListBasicFile file(str(shorter).get()); }); });
  EXPECT_EQ(thrown, "4: CPropertyListBasicFile::refresh[" + pid() + "](" + shorter +
                        "): can't read file, error = Input/output error");
}

TEST_F(PropertyListBasicFileTest, ATruncationThatFailsIsAnErrorAndTheNewDocumentStands) {
  writeFile(path, document("<key>a</key><string>" + std::string(5000, 'x') + "</string>"));
  const std::string report = folder + "/report";
  const pid_t child = ::fork();
  if (child == 0) {
    const CPropertyListBasicFile file(cfPath.get());
    if (!makeFtruncateFail(EPERM)) ::_exit(1);
    std::string thrown;
    const std::string console =
        consoleOf([&] { thrown = thrownBy([&] { file.writePropertyList(dict("<key>b</key><true/>").get()); }); });
    const bool isOnConsole = thrown.size() > 3 && console.find(thrown.substr(3)) != std::string::npos;
    writeFile(report, thrown);
    ::_exit(isOnConsole ? 0 : 2);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: the kernel takes no filter; 2: the failure is not on the console";
  EXPECT_EQ(readFile(report), "4: CPropertyListBasicFile::writePropertyList[" + std::to_string(child) + "](" + path +
                                  "): can't truncate file, error = Operation not permitted");
  EXPECT_EQ(describe(CPropertyListBasicFile(cfPath.get()).toPropertyList()), "{b: true}");
}

TEST_F(PropertyListBasicFileTest, AFifoInTheFilesPlaceIsAnErrorAndBlocksNobody) {
  CPropertyListBasicFile file(cfPath.get());
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_NE(thrownBy([&] { file.refresh(); }).find("can't read file, error = "), std::string::npos);
  std::filesystem::remove(path);
  EXPECT_TRUE(file.refresh());
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_NE(thrownBy([&] { file.flush(); }).find("can't write file, error = "), std::string::npos);
}

TEST_F(PropertyListBasicFileTest, AFileWithoutAFolderAboveItReadsEmptyAndCannotBeWritten) {
  const std::string lost = folder + "/missing/file.plist";
  CPropertyListBasicFile file(str(lost).get());
  EXPECT_EQ(describe(file.toPropertyList()), "{}");
  std::string thrown;
  consoleOf([&] { thrown = thrownBy([&] { file.flush(); }); });
  EXPECT_EQ(thrown, "4: CPropertyListBasicFile::COpenFile::open[" + pid() + "](RW, " + lost +
                        "): can't get write file lock, error = No such file or directory");
  EXPECT_FALSE(exists(folder + "/missing"));
}

TEST_F(PropertyListBasicFileTest, TheOwnFolderIsMadeWhenAFileInItIsFirstWritten) {
  const std::string own = scratchHome() + "/Library/Application Support/Lumisphere";
  std::filesystem::remove_all(scratchHome() + "/Library");
  const std::string file = own + "/LumisphereConfig.plist";
  CPropertyListBasicFile list(str(file).get());
  EXPECT_FALSE(exists(scratchHome() + "/Library")) << "reading creates nothing";
  list.flush();
  EXPECT_EQ(describeFile(file), "{}");
  for (const std::string& made : {scratchHome() + "/Library", own}) {
    struct stat status;
    ASSERT_EQ(::stat(made.c_str(), &status), 0) << made;
    EXPECT_EQ(status.st_mode & 07777U, 0700U) << made;
  }
  CPropertyListBasicFile deeper(str(own + "/sub/file.plist").get());
  EXPECT_NE(thrownBy([&] { deeper.flush(); }).find("No such file or directory"), std::string::npos);
  EXPECT_FALSE(exists(own + "/sub"));
}

TEST_F(PropertyListBasicFileTest, AFailureThatTheSystemReportsCarriesItsNumber) {
  makeFolders(path);
  try {
    CPropertyListBasicFile file(cfPath.get());
    FAIL() << "a directory was read";
  } catch (const plinth::CException& failure) {
    EXPECT_EQ(failure.getCode(), EISDIR);
  }
}

}  // namespace
