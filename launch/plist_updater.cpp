#include <tovan/plist_updater.h>

#include "launch/list_file.h"
#include "launch/xml_list.h"
#include "platform/system/error_text.h"
#include "platform/system/scoped_umask.h"

#include <tovan/cf_util.h>

#include <plinth/exception.h>

#include <CoreFoundation/CFString.h>

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <string>
#include <vector>

namespace tovan {

using plinth::CNullPointerException;
using plinth::CParamException;
using plinth::CSharedCFRef;
using plinth::CStringRef;

namespace {

bool isEmpty(const CStringRef& path) { return !path || path->getLength() == 0; }

bool isDictionary(CFTypeRef object) { return object != nullptr && CFGetTypeID(object) == CFDictionaryGetTypeID(); }

CFDictionaryRef asDictionary(CFTypeRef object) {
  return isDictionary(object) ? static_cast<CFDictionaryRef>(object) : nullptr;
}

// The "Version" string, or null.
CFStringRef versionOf(CFPropertyListRef list) {
  CFStringRef version = nullptr;
  CFUtil::CFDictGetString(asDictionary(list), CFSTR("Version"), version);
  return version;
}

void requireValid(CFPropertyListRef list) {
  if (!CFPropertyListIsValid(list, kCFPropertyListXMLFormat_v1_0)) {
    throw CParamException("Property list not valid xml format");
  }
}

CSharedCFRef<CFPropertyListRef> deepCopy(CFPropertyListRef list) {
  return CFPropertyListCreateDeepCopy(kCFAllocatorDefault, list, kCFPropertyListImmutable);
}

bool isPresent(const char* path) {
  struct statvfs info {};
  return ::statvfs(path, &info) == 0;
}

// Everything in front of the last component: "." for a path without a slash.
std::string folderPart(const std::string& path) {
  const std::string::size_type slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  const std::string::size_type end = path.find_last_not_of('/', slash);
  return end == std::string::npos ? "/" : path.substr(0, end + 1);
}

// With exactly that mode, whatever the file-creation mask is. 0 or an errno.
int makeFolder(const std::string& folder, unsigned int mode) {
  const platform::ScopedUmask umask(0);
  return ::mkdir(folder.c_str(), static_cast<mode_t>(mode)) == 0 ? 0 : errno;
}

[[noreturn]] void throwCannotMake(const std::string& folder, int error) {
  throw CParamException("mkdir(%s) failed, error = %s", folder.c_str(), platform::errorText(error).c_str());
}

}  // namespace

CPListUpdater::CPListUpdater(const CStringRef& path, Reading reading) : filePath_(path) {
  if (!isEmpty(filePath_) && reading == Reading::atOnce) refresh();
}

CPListUpdater::~CPListUpdater() = default;

void CPListUpdater::refresh() { plistData_ = fileExists() ? readFile(filePath_) : nullptr; }

void CPListUpdater::setPListData(CFPropertyListRef list) {
  // The list may be the one that is dropped here.
  const auto given = CSharedCFRef<CFPropertyListRef>::retaining(list);
  plistData_ = nullptr;
  if (list == nullptr) return;
  requireValid(list);
  plistData_ = deepCopy(list);
}

bool CPListUpdater::updateIfNeeded(const CStringRef& xml) {
  if (!xml) throw CNullPointerException("Error: plistString is null!");
  return updateIfNeeded(listFromXML(xml->str()).get());
}

bool CPListUpdater::updateIfNeeded(CFPropertyListRef list) {
  if (list == nullptr) throw CNullPointerException("Error: plistData is null!");
  requireValid(list);
  if (plistData_ && !needMerge(list)) return false;
  merge(list);
  writeFile(filePath_, plistData_.get());
  return true;
}

bool CPListUpdater::needMerge(CFPropertyListRef list) const {
  const CFStringRef current = versionOf(plistData_.get());
  const CFStringRef given = versionOf(list);
  if (current == nullptr || given == nullptr) return true;
  return CFStringCompare(current, given, kCFCompareNumerically) == kCFCompareLessThan;
}

void CPListUpdater::merge(CFPropertyListRef list) {
  if (list == nullptr) throw CNullPointerException("Error: plistData is null!");
  requireValid(list);
  const CFDictionaryRef current = asDictionary(plistData_.get());
  const CFDictionaryRef source = asDictionary(list);
  if (current == nullptr || source == nullptr) {
    plistData_ = deepCopy(list);
    return;
  }
  const CSharedCFRef<CFMutableDictionaryRef> merged(CFUtil::CFDictMakeMutableCopy(current));
  // The new list stands for the previous one on purpose: every value that differs is replaced.
  merge(merged.get(), source, source);
  plistData_ = deepCopy(merged.get());
}

void CPListUpdater::merge(CFMutableDictionaryRef target, CFDictionaryRef previous, CFDictionaryRef source) const {
  if (target == nullptr || source == nullptr) return;
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(source));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(source, keys.data(), values.data());
  for (std::size_t i = 0; i < count; ++i) {
    const CFTypeRef given = values[i];
    const CFTypeRef held = CFDictionaryGetValue(target, keys[i]);
    const CFTypeRef before = previous != nullptr ? CFDictionaryGetValue(previous, keys[i]) : nullptr;
    if (held == nullptr || CFGetTypeID(held) != CFGetTypeID(given)) {  // NOLINT(bugprone-branch-clone): a rule each
      CFDictionarySetValue(target, keys[i], given);
    } else if (isDictionary(given)) {
      const CSharedCFRef<CFMutableDictionaryRef> inner(CFUtil::CFDictMakeMutableCopy(asDictionary(held)));
      merge(inner.get(), asDictionary(before), asDictionary(given));
      CFDictionarySetValue(target, keys[i], inner.get());
    } else if (!CFEqual(held, given) && !CFEqual(held, before)) {
      CFDictionarySetValue(target, keys[i], given);
    }
  }
}

CSharedCFRef<CFPropertyListRef> CPListUpdater::readFile(const CStringRef& path) const { return readListFile(path); }

void CPListUpdater::writeFile(const CStringRef& path, CFPropertyListRef list) const { writeListFile(path, list); }

bool CPListUpdater::flush() const {
  if (!plistData_) throw CNullPointerException("Error: _plistData is null!");
  writeFile(filePath_, plistData_.get());
  return true;
}

bool CPListUpdater::isFilePresent(const CStringRef& path) const {
  return !isEmpty(path) && isPresent(path->getUTF8Ptr());
}

bool CPListUpdater::fileExists() const { return isFilePresent(filePath_); }

bool CPListUpdater::parentDirExists() const {
  return !isEmpty(filePath_) && isPresent(folderPart(filePath_->str()).c_str());
}

void CPListUpdater::makeParentDir(unsigned int mode) {
  if (isEmpty(filePath_)) throw CNullPointerException("Error: filePath is null!");
  const std::string folder = folderPart(filePath_->str());
  if (const int error = makeFolder(folder, mode)) throwCannotMake(folder, error);
}

bool CPListUpdater::makeParentDirIfNeeded(unsigned int mode) {
  if (isEmpty(filePath_)) throw CNullPointerException("Error: filePath is null!");
  if (parentDirExists()) return false;
  const std::string folder = folderPart(filePath_->str());
  const int error = makeFolder(folder, mode);
  // Somebody else made it in the meantime.
  if (error == EEXIST && parentDirExists()) return false;
  if (error != 0) throwCannotMake(folder, error);
  return true;
}

}  // namespace tovan
