#include <tovan/property_list_basic_file.h>

#include <plinth/exception.h>
#include <tovan/cf_util.h>

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFPropertyList.h>

#include <unistd.h>

#include <cerrno>

#include "platform/system/error_text.h"
#include "platform/system/exit_gate.h"
#include "plist/path_text.h"
#include "plist/whole_file.h"

namespace tovan {
namespace {

using plinth::CException;
using plinth::CSharedCFRef;
using plinth::CSharedObjectRef;

constexpr plinth::ExceptionType kSystemCall = plinth::kExceptionTypeSystemCall;
constexpr plinth::ExceptionType kListFailure = plinth::kExceptionTypeUnknown;

CFStringRef versionKey() { return CFSTR("Version"); }
CFStringRef defaultVersion() { return CFSTR("1.0"); }

// Reading has always reported itself under the name of refresh.
constexpr const char* kRead = "refresh";
constexpr const char* kWrite = "writePropertyList";

[[noreturn]] void throwSystemError(const char* function, CFStringRef path, const char* what, int error) {
  throw CException(kSystemCall, error, "CPropertyListBasicFile::%s[%d](%s): can't %s file, error = %s", function,
                   static_cast<int>(::getpid()), pathText(path).c_str(), what, platform::errorText(error).c_str());
}

[[noreturn]] void throwListError(const char* function, CFStringRef path, const char* call, CFTypeRef reason) {
  throw CException(kListFailure, "CPropertyListBasicFile::%s[%d](%s): %s() failed, error = %@", function,
                   static_cast<int>(::getpid()), pathText(path).c_str(), call, reason);
}

// Runs a read or a write; what it throws is also written to the console.
template <class Work>
auto reportingFailures(Work work) {
  try {
    return work();
  } catch (const CException& failure) {
    CFUtil::LogToConsole(failure.getMessage()->getUTF8Ptr());
    throw;
  }
}

}  // namespace

CPropertyListBasicFile::CPropertyListBasicFile(CFStringRef path)
    : filePath_(CSharedCFRef<CFStringRef>::retaining(path)), fileVersion_(defaultVersion()) {
  refresh();
}

CPropertyListBasicFile::CPropertyListBasicFile(CFStringRef path, std::int32_t lockMode)
    : filePath_(CSharedCFRef<CFStringRef>::retaining(path)), fileVersion_(defaultVersion()) {
  if (lockMode == kOpenForRead) lockForRead();
  if (lockMode == kOpenForRW) lockForRW();
  refresh();
}

CPropertyListBasicFile::~CPropertyListBasicFile() = default;

bool CPropertyListBasicFile::refresh() {
  const CSharedCFRef<CFDictionaryRef> list = readPropertyList();
  fromPropertyList(list.get());
  return !list.isNull();
}

CSharedCFRef<CFDictionaryRef> CPropertyListBasicFile::readPropertyList() const {
  lastRefreshFailed_ = true;
  CSharedCFRef<CFDictionaryRef> list = reportingFailures([this] {
    return readLocked(fileLock_.isNull() ? *plinth::makeShared<COpenFile>(filePath_.get(), kOpenForRead) : *fileLock_);
  });
  lastRefreshFailed_ = false;
  return list;
}

CSharedCFRef<CFDictionaryRef> CPropertyListBasicFile::readLocked(const COpenFile& file) const {
  if (file.descriptor() >= 0) {
    const CSharedCFRef<CFDataRef> data = readWhole(file.descriptor());
    if (data.isNull()) throwSystemError(kRead, filePath_.get(), "read", errno);
    if (CFDataGetLength(data.get()) > 0) {
      CFErrorRef reason = nullptr;
      const CSharedCFRef<CFPropertyListRef> list =
          CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, &reason);
      const CSharedCFRef<CFErrorRef> ownedReason(reason);
      // The text names the function that has always stood in it.
      constexpr const char* kParser = "CFPropertyListCreateFromXMLData";
      if (list.isNull()) throwListError(kRead, filePath_.get(), kParser, reason);
      if (CFGetTypeID(list.get()) != CFDictionaryGetTypeID()) {
        throwListError(kRead, filePath_.get(), kParser, CFSTR("The root of the property list is not a dictionary"));
      }
      return CSharedCFRef<CFDictionaryRef>::retaining(static_cast<CFDictionaryRef>(list.get()));
    }
  }
  const CSharedCFRef<CFMutableDictionaryRef> empty(CFUtil::CFDictMakeMutable());
  if (empty.isNull()) {
    throw CException(kListFailure, "CPropertyListBasicFile::%s[%d](%s): CFDictionaryCreateMutable() failed", kRead,
                     static_cast<int>(::getpid()), pathText(filePath_.get()).c_str());
  }
  return empty;
}

void CPropertyListBasicFile::fromPropertyList(CFDictionaryRef list) {
  if (list == nullptr) {
    throw CException(kSystemCall, "CPropertyListBasicFile::fromPropertyList[%d](): propertyList is NULL",
                     static_cast<int>(::getpid()));
  }
  document_ = CSharedCFRef<CFMutableDictionaryRef>(CFUtil::CFDictMakeMutableCopy(list));
  CFStringRef version = nullptr;
  CFUtil::CFDictGetString(document_.get(), versionKey(), version);
  fileVersion_ = CSharedCFRef<CFStringRef>::retaining(version == nullptr ? defaultVersion() : version);
}

CSharedCFRef<CFDictionaryRef> CPropertyListBasicFile::toPropertyList() const { return document_; }

void CPropertyListBasicFile::flush() const { writePropertyList(document_.get()); }

void CPropertyListBasicFile::writePropertyList(CFDictionaryRef list) const {
  reportingFailures([this, list] {
    if (lastRefreshFailed_) {
      throw CException(kListFailure, "CPropertyListBasicFile::%s[%d](%s): not proceeding since the last refresh failed",
                       kWrite, static_cast<int>(::getpid()), pathText(filePath_.get()).c_str());
    }
    CFErrorRef reason = nullptr;
    const CSharedCFRef<CFDataRef> data =
        CFPropertyListCreateData(kCFAllocatorDefault, list, kCFPropertyListXMLFormat_v1_0, 0, &reason);
    const CSharedCFRef<CFErrorRef> ownedReason(reason);
    if (data.isNull()) throwListError(kWrite, filePath_.get(), "CFPropertyListCreateXMLData", reason);
    writeLocked(fileLock_.isNull() ? *plinth::makeShared<COpenFile>(filePath_.get(), kOpenForRW) : *fileLock_,
                data.get());
  });
}

void CPropertyListBasicFile::writeLocked(const COpenFile& file, CFDataRef data) const {
  const platform::ExitHold hold(file.descriptor());
  if (!writeWhole(file.descriptor(), data)) throwSystemError(kWrite, filePath_.get(), "write", errno);
  if (!truncateTo(file.descriptor(), static_cast<off_t>(CFDataGetLength(data)))) {
    throwSystemError(kWrite, filePath_.get(), "truncate", errno);
  }
}

bool CPropertyListBasicFile::lockForRead() const {
  if (!fileLock_.isNull()) return false;
  const CSharedObjectRef<COpenFile> file = plinth::makeShared<COpenFile>(filePath_.get(), kOpenForRead);
  if (file->descriptor() < 0) return false;
  fileLock_ = file;
  return true;
}

bool CPropertyListBasicFile::lockForRW() const {
  if (!fileLock_.isNull()) return false;
  fileLock_ = plinth::makeShared<COpenFile>(filePath_.get(), kOpenForRW);
  return true;
}

bool CPropertyListBasicFile::unlock() const {
  if (fileLock_.isNull()) return false;
  fileLock_ = nullptr;
  return true;
}

CSharedObjectRef<CPropertyListBasicFile::COpenFile> CPropertyListBasicFile::fileLock() const { return fileLock_; }

CFStringRef CPropertyListBasicFile::filePath() const noexcept { return filePath_.get(); }

CFStringRef CPropertyListBasicFile::fileVersion() const noexcept { return fileVersion_.get(); }

void CPropertyListBasicFile::setFileVersion(CFStringRef version) {
  fileVersion_ = CSharedCFRef<CFStringRef>::retaining(version);
  CFUtil::CFDictSetString(document_.get(), versionKey(), version);
}

void CPropertyListBasicFile::flushSection(const std::function<void(CFMutableDictionaryRef document)>& change) const {
  CSharedCFRef<CFDictionaryRef> document = document_;
  CSharedObjectRef<CFileLockMonitor> monitor;
  if (fileLock_.isNull()) {
    lockForRW();
    monitor = plinth::makeShared<CFileLockMonitor>(this);
    document = readPropertyList();
  }
  const CSharedCFRef<CFMutableDictionaryRef> copy(CFUtil::CFDictMakeMutableCopy(document.get()));
  change(copy.get());
  writePropertyList(copy.get());
}

}  // namespace tovan
