// What the updater does. Where its files lie and how they are copied: tovan_config_updater_files.cpp.
#include <tovan/tovan_config_updater.h>

#include <plinth/exception.h>
#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/service_cache_file.h>
#include <tovan/time_stamp.h>
#include <tovan/tovan_config_file.h>

#include <unistd.h>

#include <exception>
#include <ostream>

#include "plist/configuration_contents.h"
#include "plist/path_text.h"
#include "plist/settings_merge.h"
#include "plist/updater_files.h"

namespace tovan {
namespace {

using plinth::CSharedCFRef;
using OpenFile = CPropertyListBasicFile::COpenFile;

constexpr const char* kCopying = "copying/merging";
constexpr const char* kChecking = "checking contents of";
constexpr const char* kUnknown = "an exception of unknown type";

CFStringRef versionKey() { return CFSTR("Version"); }

// Opens the user's file, creating it when it is missing, and waits for its lock, which lasts as long as the result.
plinth::CSharedObjectRef<OpenFile> lockedForWriting(CFStringRef path) {
  return plinth::makeShared<OpenFile>(path, CPropertyListBasicFile::kOpenForRW);
}

// Why a kept copy is not valid; nothing when it is.
std::optional<std::string> problemOfCopy(const plinth::CStringRef& copy) {
  try {
    return problemOfConfiguration(copy->getStringRef());
  } catch (const plinth::CException& failure) {
    return failure.what();
  }
}

// Whether an open file has exactly these bytes; false when that cannot be told.
bool isContent(CFDataRef content, const OpenFile& file) {
  try {
    return CFEqual(contentOf(file.descriptor(), pathText(file.path())).get(), content) != 0;
  } catch (const plinth::CException&) {
    return false;
  }
}

// The version decides, as numbers; an absent one counts as 1.0.
bool isNewer(const CPropertyListBasicFile& master, const CPropertyListBasicFile& user) {
  return CFStringCompare(master.fileVersion(), user.fileVersion(), kCFCompareNumerically) == kCFCompareGreaterThan;
}

}  // namespace

// ---- The whole update

bool TovanConfigUpdater::run() noexcept {
  try {
    resolveFilePaths();
    update();
    return true;
  } catch (const std::exception& failure) {  // all of the library's are of this class
    reportException(kCopying, failure.what());
  } catch (...) {
    reportException(kCopying, kUnknown);
  }
  return false;
}

void TovanConfigUpdater::update() {
  const std::string path = pathText(pathOf(kUserFile));
  switch (nextStep()) {
    case Step::nothing:
      return;
    case Step::create:
      report("Mervane daemon needs to copy the lumisphere config file " + path);
      if (!createLumisphereConfigFile()) update();  // somebody else has made it meanwhile
      return;
    case Step::replace:
      report("Mervane daemon needs to copy the lumisphere config file " + path + " (invalid contents)");
      if (!replaceLumisphereConfigFile()) update();  // or put it right
      return;
    case Step::merge:
      report("Mervane daemon needs to merge the lumisphere config file " + path);
      if (!merge(Merging::newerDefaults)) update();  // or somebody else has merged what is as new
      return;
  }
}

TovanConfigUpdater::Step TovanConfigUpdater::nextStep() const {
  if (needCopyLumisphereConfigFile()) return Step::create;
  if (!lumisphereConfigFileContentsValid()) return Step::replace;
  return needMergeLumisphereConfigFile() ? Step::merge : Step::nothing;
}

// ---- Copying

bool TovanConfigUpdater::needCopyLumisphereConfigFile() const { return !isFilePresent(filePath(kUserFile)); }

void TovanConfigUpdater::copyLumisphereConfigFile() {
  const CSharedCFRef<CFDataRef> defaults = shippedDefaults();
  installDefaults(defaults.get(), *lockedForWriting(pathOf(kUserFile)));
}

bool TovanConfigUpdater::createLumisphereConfigFile() {
  const CSharedCFRef<CFDataRef> defaults = shippedDefaults();
  const auto user = lockedForWriting(pathOf(kUserFile));
  const CSharedCFRef<CFDataRef> content = contentOf(user->descriptor(), pathText(pathOf(kUserFile)));
  if (CFDataGetLength(content.get()) > 0) return false;
  installDefaults(defaults.get(), *user);
  return true;
}

// What is judged in the end is the copy that is kept: exactly what would be lost, as it is under the lock. False when
// it turns out to be valid.
bool TovanConfigUpdater::replaceLumisphereConfigFile() {
  const CSharedCFRef<CFDataRef> defaults = shippedDefaults();
  const std::string path = pathText(pathOf(kUserFile));
  const auto user = lockedForWriting(pathOf(kUserFile));
  const CSharedCFRef<CFDataRef> content = contentOf(user->descriptor(), path);
  if (CFDataGetLength(content.get()) == 0 || CFEqual(content.get(), defaults.get())) {
    installDefaults(defaults.get(), *user);
    return true;
  }
  const plinth::CStringRef copy = keepDatedCopy(path, content.get());
  const std::optional<std::string> problem = problemOfCopy(copy);
  if (!problem) {
    ::unlink(copy->getUTF8Ptr());
    return false;
  }
  const std::string kept =
      "Mervane daemon keeps the former lumisphere config file as " + copy->str() + " (" + *problem + ")";
  try {
    installDefaults(defaults.get(), *user);
  } catch (...) {
    // Each start would leave one more copy of a file that is still there.
    if (isContent(content.get(), *user)) {
      ::unlink(copy->getUTF8Ptr());
    } else {
      report(kept);
    }
    throw;
  }
  report(kept);
  return true;
}

// The previous defaults come first: an update that is cut short in between finds no user's file, or the invalid one.
void TovanConfigUpdater::installDefaults(CFDataRef defaults, const OpenFile& user) const {
  replacePreviousDefaults(defaults);
  replaceContent(user.descriptor(), pathText(pathOf(kUserFile)), defaults);
  setFilePermissions(filePath(kUserFile), kFileMode);
}

void TovanConfigUpdater::replacePreviousDefaults(CFDataRef content) const {
  replaceFile(pathText(pathOf(kPreviousDefaultsFile)), content);
  setFilePermissions(filePath(kPreviousDefaultsFile), kFileMode);
}

// ---- Contents

std::optional<std::string> TovanConfigUpdater::contentsProblem() const {
  return problemOfConfiguration(pathOf(kUserFile));
}

bool TovanConfigUpdater::lumisphereConfigFileContentsValid() const {
  try {
    return !contentsProblem();
  } catch (const std::exception& failure) {
    reportException(kChecking, failure.what());
  } catch (...) {
    reportException(kChecking, kUnknown);
  }
  return false;
}

// ---- Merging

bool TovanConfigUpdater::needMergeLumisphereConfigFile() const {
  requirePresent(kUserFile);
  if (!isFilePresent(filePath(kMasterFile))) {
    report("Mervane daemon can't find the master config file " + pathText(pathOf(kMasterFile)));
    return false;
  }
  const CPropertyListBasicFile master(pathOf(kMasterFile), CPropertyListBasicFile::kOpenForRead);
  contentOfMaster(master);  // throws when there is none
  return isNewer(master, CPropertyListBasicFile(pathOf(kUserFile)));
}

void TovanConfigUpdater::mergeLumisphereConfigFile() { merge(Merging::anyDefaults); }

bool TovanConfigUpdater::merge(Merging merging) {
  requirePresent(kMasterFile);
  requirePresent(kUserFile);
  // What becomes the previous defaults is what was merged, even if another master file is put there meanwhile.
  const CPropertyListBasicFile master(pathOf(kMasterFile), CPropertyListBasicFile::kOpenForRead);
  const CSharedCFRef<CFDataRef> defaults = contentOfMaster(master);
  CPropertyListBasicFile user(pathOf(kUserFile), CPropertyListBasicFile::kOpenForRW);
  // An updater of older defaults that waited for the lock does not take newer ones back.
  if (merging == Merging::newerDefaults && !isNewer(master, user)) return false;
  if (!isFilePresent(filePath(kPreviousDefaultsFile))) {
    replacePreviousDefaults(contentOf(user.fileLock()->descriptor(), pathText(pathOf(kUserFile))).get());
  }
  const CPropertyListBasicFile previous(pathOf(kPreviousDefaultsFile));
  const bool isOtherVersion = !isEqual(user.fileVersion(), master.fileVersion());
  if (isOtherVersion) user.setFileVersion(master.fileVersion());
  const CSharedCFRef<CFMutableDictionaryRef> merged(CFUtil::CFDictMakeMutableCopy(user.toPropertyList().get()));
  const bool isChanged =
      mergeSettingsDict(merged.get(), previous.toPropertyList().get(), master.toPropertyList().get());
  if (!isChanged && !isOtherVersion) return true;
  user.fromPropertyList(merged.get());
  user.flush();
  setFilePermissions(filePath(kUserFile), kFileMode);
  replacePreviousDefaults(defaults.get());
  return true;
}

bool TovanConfigUpdater::mergeSettingsDict(CFMutableDictionaryRef target, CFDictionaryRef previousDefaults,
                                           CFDictionaryRef newDefaults) const {
  return mergeSettings(target, previousDefaults, newDefaults);
}

std::vector<SettingMerge> TovanConfigUpdater::planMerge() const {
  requirePresent(kMasterFile);
  requirePresent(kUserFile);
  const CPropertyListBasicFile master(pathOf(kMasterFile), CPropertyListBasicFile::kOpenForRead);
  contentOfMaster(master);  // throws when there is none
  const CPropertyListBasicFile user(pathOf(kUserFile));
  const bool hasPrevious = isFilePresent(filePath(kPreviousDefaultsFile));
  const CPropertyListBasicFile previous(pathOf(hasPrevious ? kPreviousDefaultsFile : kUserFile));
  const CSharedCFRef<CFDictionaryRef> yours = user.toPropertyList();
  const CSharedCFRef<CFDictionaryRef> earlier = previous.toPropertyList();
  const CSharedCFRef<CFMutableDictionaryRef> merged(CFUtil::CFDictMakeMutableCopy(yours.get()));
  const bool isOtherVersion = !isEqual(user.fileVersion(), master.fileVersion());
  if (isOtherVersion) CFUtil::CFDictSetString(merged.get(), versionKey(), master.fileVersion());
  std::vector<SettingMerge> steps;
  mergeSettings(merged.get(), earlier.get(), master.toPropertyList().get(), &steps);
  if (!isOtherVersion) return steps;
  // The version is the master's whatever the user and the earlier defaults say.
  std::erase_if(steps, [](const SettingMerge& step) {
    return step.path.size() == 1 && CFEqual(step.path.front().get(), versionKey());
  });
  const CFTypeRef before = CFDictionaryGetValue(yours.get(), versionKey());
  steps.push_back({{CSharedCFRef<CFStringRef>::retaining(versionKey())},
                   CSharedCFRef<CFTypeRef>::retaining(before),
                   CSharedCFRef<CFTypeRef>::retaining(CFDictionaryGetValue(earlier.get(), versionKey())),
                   CSharedCFRef<CFTypeRef>::retaining(CFDictionaryGetValue(merged.get(), versionKey())),
                   before == nullptr ? MergeOutcome::added : MergeOutcome::updated});
  return steps;
}

// ---- Reports

void TovanConfigUpdater::report(const std::string& text) const noexcept {
  try {
    stream_ << std::string(CTimeStamp().getText()) + " " + text + "\n" << std::flush;
  } catch (...) {
    // There is nobody to tell.
    return;
  }
}

void TovanConfigUpdater::reportException(const char* doing, const char* message) const noexcept {
  try {
    report(std::string("Exception caught while ") + doing + " the lumisphere config file : " + message);
  } catch (...) {
    return;  // no memory
  }
}

}  // namespace tovan
