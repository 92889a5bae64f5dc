// tovan_config_updater.h: TovanConfigUpdater, which keeps the user's configuration file in step with the defaults that
// ship with the cluster framework.
//
// Three files take part:
//
//   user's file        ~/Library/Application Support/Lumisphere/LumisphereConfig.plist
//   previous defaults  ~/Library/Application Support/Lumisphere/LumisphereConfig.plist.default
//   master file        @Frameworks/Mervane.framework/Resources/LumisphereConfig.plist.default
//
// The master file holds the shipped defaults, the previous defaults are a copy of the master file as it was last
// merged. run(), which the daemon calls when it starts, creates the user's file from the shipped defaults when there is
// none, replaces it by them when its contents are not valid, and merges them into it when they have a newer version:
// what the user changed stays, what the user left alone takes the new default. docs/shipped-defaults.md tells the rules
// to people.
//
// Everything is done under the exclusive lock of the user's file, from reading what is there to the last byte written,
// so that updaters and writers of several processes wait for one another and nobody's change is lost. Files are
// rewritten in place and have the permissions 0600 afterwards. A process that is killed between writing the user's file
// and replacing the previous defaults leaves the earlier ones: the next merge then takes more values for changed by the
// user than were.
//
// Valid contents. The file can be read as CTovanConfigFile and as CServiceCacheFile, it has two services at least, and
// among them kClusterAdminServiceKind and kTranscoderServiceKind, each with a "Path" that is absolute (or a file URL)
// and names a file, and with a "UserID" that is -1 or more. A file of other contents is replaced as a whole, but not
// lost: before that, a copy of it is made beside it, named by the local time
// ("LumisphereConfig.plist.2026-11-21-234041", with "-2" and so on behind it when there is one of that name), and
// reported. No copy is made of an empty file and of one that equals the shipped defaults, and none stays when the
// replacement failed and left the file as it was.
//
// Reports. Each is one line that begins with the time (CTimeStamp's text) and a blank. A stream that fails does not
// keep the updater from its work.
//
// Failures are plinth::CException: CFileException with the texts below, and what the classes of the files throw. run()
// throws nothing.
//
// Threads: one object belongs to one thread at a time.
#pragma once

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>
#include <tovan/export.h>
#include <tovan/property_list_basic_file.h>

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace tovan {

// What the merge makes of one value of the new defaults.
enum class MergeOutcome : std::uint8_t {
  same,     // the user has the new default already
  kept,     // the user's value differs from the earlier default, and stays
  updated,  // the user's value is the earlier default, or there is no earlier one of the type: takes the new default
  retyped,  // the user's value is of another type: takes the new default
  added,    // the user has no value: takes the new default
};

// One value of the new defaults that is no dictionary, or that meets no dictionary of the user's.
struct SettingMerge {
  std::vector<plinth::CSharedCFRef<CFStringRef>> path;  // the keys from the root on
  plinth::CSharedCFRef<CFTypeRef> yours;                // empty when there is none, here and below
  plinth::CSharedCFRef<CFTypeRef> earlierDefault;
  plinth::CSharedCFRef<CFTypeRef> newDefault;
  MergeOutcome outcome = MergeOutcome::same;
};

class TOVAN_EXPORT TovanConfigUpdater {
 public:
  enum FileIndex : std::uint8_t { kUserFile = 0, kPreviousDefaultsFile = 1, kMasterFile = 2 };
  // The paths as they are given: absolute, or one that begins with "~/" or "@Frameworks/".
  using FilePaths = std::array<plinth::CStringRef, 3>;
  // The permissions of every file that the updater writes.
  static constexpr unsigned int kFileMode = 0600;
  enum class Step : std::uint8_t { nothing, create, replace, merge };

  // The stream gets the report lines; it must outlive the object.
  explicit TovanConfigUpdater(std::ostream& stream);
  // With other files in the places of the three. CFileException "TovanConfigUpdater: file "%s" has an unknown base
  // location" for a path that begins with "@" and another word than "Frameworks".
  TovanConfigUpdater(std::ostream& stream, const FilePaths& paths);
  ~TovanConfigUpdater();
  TovanConfigUpdater(const TovanConfigUpdater&) = delete;
  TovanConfigUpdater& operator=(const TovanConfigUpdater&) = delete;

  // The whole update: resolves the paths, does the next step, and reports it. False when that failed, which is reported
  // as well. The lines, each after its time:
  //
  //   Mervane daemon needs to copy the lumisphere config file PATH
  //   Mervane daemon needs to copy the lumisphere config file PATH (invalid contents)
  //   Mervane daemon keeps the former lumisphere config file as PATH (REASON)
  //   Mervane daemon needs to merge the lumisphere config file PATH
  //   Exception caught while copying/merging the lumisphere config file : MESSAGE
  //
  // and those of the functions below.
  bool run() noexcept;

  // What run() would do now. May report, and throws, as the three questions below do.
  Step nextStep() const;
  // What mergeLumisphereConfigFile() would do now, for every value of the shipped defaults, in no particular order.
  // Writes nothing. Throws as that does.
  std::vector<SettingMerge> planMerge() const;
  // Why the contents of the user's file are not valid; nothing when they are. Reports nothing; throws when the file
  // cannot be read.
  std::optional<std::string> contentsProblem() const;

  // Whether the user's file does not exist.
  bool needCopyLumisphereConfigFile() const;
  // Puts the shipped defaults in the place of the previous defaults and then of the user's file, whatever that holds.
  // Throws, with both untouched, as throwFileNotFoundException() does when there is no master file, CFileException
  // "TovanConfigUpdater: file "%s" is empty", and when it cannot be read as a property list.
  void copyLumisphereConfigFile();
  // The same when the user's file does not exist or is empty, which is looked at again under its lock; whether it was.
  bool createLumisphereConfigFile();
  // Whether the contents of the user's file are valid (see above). An exception is reported as "Exception caught while
  // checking contents of the lumisphere config file : MESSAGE", and counts as not valid.
  bool lumisphereConfigFileContentsValid() const;
  // Whether the version of the master file is higher than that of the user's file, as version numbers (1.10 is higher
  // than 1.9); an absent one counts as 1.0. False, with "Mervane daemon can't find the master config file PATH"
  // reported, when there is no master file. Throws as throwFileNotFoundException() does when there is no user's file,
  // CFileException "TovanConfigUpdater: file "%s" is empty" for an empty master file, and when one cannot be read.
  bool needMergeLumisphereConfigFile() const;
  // Merges the master file into the user's file, which takes its version, with the previous defaults as the base. When
  // there are none, the user's values of this moment count as such (deliberately: so all of them take the new
  // defaults). Writes the user's file when anything changed, be it the version alone, and then replaces the previous
  // defaults by the master file. Does so whichever of the versions is the higher one; run() compares them once more
  // under the lock of the user's file, and merges only newer defaults. Throws, with the user's file as it was, as
  // throwFileNotFoundException() does when the user's or the master file is missing, CFileException
  // "TovanConfigUpdater: file "%s" is empty" for the master file, and when one of the three cannot be read.
  void mergeLumisphereConfigFile();

  // Merges new defaults into a dictionary; whether anything changed. For each key and value of the new defaults:
  //
  // - what the target lacks, or has with a value of another type, takes the new default;
  // - two dictionaries are merged in turn, over the previous defaults' dictionary of that key, if it is one;
  // - any other value of the target that differs stays when the previous defaults hold one of the same type and the
  //   target's differs from that, and takes the new default when not.
  //
  // Keys that only the target has stay. previousDefaults may be null, which reads as empty.
  bool mergeSettingsDict(CFMutableDictionaryRef target, CFDictionaryRef previousDefaults,
                         CFDictionaryRef newDefaults) const;

  // The absolute path of a file, as last resolved: by the constructor and by run().
  const plinth::CStringRef& filePath(FileIndex index) const;
  void resolveFilePaths();
  // "~/" is the home folder; "@Frameworks/" the folder that holds the frameworks, which is the one that this library
  // was loaded from, else kTovanFrameworksInstallPath. Other paths stay as they are.
  static plinth::CStringRef resolveFilePath(const plinth::CStringRef& path);
  static bool isUserHomeBasedFilePath(const plinth::CStringRef& path);  // begins with "~"
  static plinth::CStringRef resolveUserHomeBasedFilePath(const plinth::CStringRef& path);
  static bool isRelativeFilePath(const plinth::CStringRef& path);  // begins with "@"
  static plinth::CStringRef resolveRelativeFilePath(const plinth::CStringRef& path);

  // Puts the bytes of a file in the place of another, each under its lock. The target is created with permissions 0600
  // when it is missing; after that, `mode` becomes its permissions when it is neither 0 nor 0600. CFileException
  // "TovanConfigUpdater::copyFile: stat() on file %s failed, error = %s", and the same for open(), read(), write() and
  // chmod().
  void copyFile(const plinth::CStringRef& from, const plinth::CStringRef& to, unsigned int mode) const;
  // Changes a file's permissions when they differ. CFileException "TovanConfigUpdater::setFilePermissions: stat() on
  // file %s failed, error = %s", and the same for chmod().
  void setFilePermissions(const plinth::CStringRef& path, unsigned int mode) const;
  // CFileException "TovanConfigUpdater: file "%s" not found".
  [[noreturn]] void throwFileNotFoundException(const plinth::CStringRef& path) const;
  bool isFilePresent(const plinth::CStringRef& path) const;
  // Both null, or both there and equal.
  static bool isEqual(CFStringRef a, CFStringRef b);

 private:
  CFStringRef pathOf(FileIndex index) const { return resolved_[index]->getStringRef(); }
  void report(const std::string& text) const noexcept;
  void reportException(const char* doing, const char* message) const noexcept;
  enum class Merging : std::uint8_t { anyDefaults, newerDefaults };
  void update();
  void requirePresent(FileIndex index) const;
  plinth::CSharedCFRef<CFDataRef> shippedDefaults() const;
  // Of the master file as it was opened for reading; throws when it was missing then, or is empty.
  plinth::CSharedCFRef<CFDataRef> contentOfMaster(const CPropertyListBasicFile& master) const;
  // Under the lock of the user's file. False, and nothing done, when newer defaults are wanted and these are not.
  bool merge(Merging merging);
  bool replaceLumisphereConfigFile();
  void installDefaults(CFDataRef defaults, const CPropertyListBasicFile::COpenFile& user) const;
  void replacePreviousDefaults(CFDataRef content) const;

  std::ostream& stream_;
  FilePaths given_;
  FilePaths resolved_;
};

}  // namespace tovan
