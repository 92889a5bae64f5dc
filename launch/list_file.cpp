#include "launch/list_file.h"

#include "foundation/replacement_file.h"
#include "platform/system/error_text.h"

#include <plinth/exception.h>

#include <CoreFoundation/CFStream.h>
#include <CoreFoundation/CFURL.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace tovan {

using plinth::CParamException;
using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

void requirePath(const CStringRef& path) {
  if (!path || path->getLength() == 0) throw plinth::CNullPointerException("Error: filePath is null!");
}

void requireValid(CFPropertyListRef list) {
  if (!CFPropertyListIsValid(list, kCFPropertyListXMLFormat_v1_0)) {
    throw CParamException("Property list not valid xml format");
  }
}

[[noreturn]] void throwCannotOpenForReading(const CStringRef& path, int error) {
  throw CParamException("Couldn't open read stream from file %s, error = %d", path->getUTF8Ptr(), error);
}

[[noreturn]] void throwCannotOpenForWriting(const CStringRef& path, int error) {
  throw CParamException("Couldn't open write stream to file %s, error = %d", path->getUTF8Ptr(), error);
}

[[noreturn]] void throwCannotWrite(const CStringRef& path, const CStringRef& reason) {
  throw CParamException("Couldn't write property list to file %s, error = %s", path->getUTF8Ptr(),
                        reason->getUTF8Ptr());
}

// What went wrong with a list, and with its stream when it is the stream that failed.
CStringRef reasonOf(const CSharedCFRef<CFStringRef>& listError, const CFStreamError& streamError) {
  CStringRef reason = CString::nullToEmptyString(CSTR(listError.get()));
  if (streamError.domain != kCFStreamErrorDomainPOSIX) return reason;
  return CString::sprintf("%@: %s", reason->getStringRef(), platform::errorText(streamError.error).c_str());
}

// Null for a path that no file can have.
CSharedCFRef<CFURLRef> fileURL(const std::string& path) {
  return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                 static_cast<CFIndex>(path.size()), false);
}

// Writes to the file `at`; `path` is the name that messages use.
void writeThroughStream(const std::string& at, const CStringRef& path, CFPropertyListRef list) {
  const CSharedCFRef<CFWriteStreamRef> stream(CFWriteStreamCreateWithFile(kCFAllocatorDefault, fileURL(at).get()));
  if (!stream) throwCannotOpenForWriting(path, EINVAL);
  if (!CFWriteStreamOpen(stream.get())) throwCannotOpenForWriting(path, CFWriteStreamGetError(stream.get()).error);
  CFStringRef error = nullptr;
  const CFIndex written = CFPropertyListWriteToStream(list, stream.get(), kCFPropertyListXMLFormat_v1_0, &error);
  const CStringRef reason = reasonOf(CSharedCFRef<CFStringRef>(error), CFWriteStreamGetError(stream.get()));
  CFWriteStreamClose(stream.get());
  if (written <= 0) throwCannotWrite(path, reason);
}

// Whether another file may take this one's place: it is a regular file that this process may write, or there is nothing
// at all. Everything else (a protected file, a folder, a FIFO, a link that leads nowhere) is the stream's to refuse or
// to create.
bool isReplaceable(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0) {
    return S_ISREG(info.st_mode) && ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
  }
  return errno == ENOENT && ::lstat(path.c_str(), &info) != 0;
}

// Truncating the file on a full disk would lose it.
bool isOutOfSpace(int error) { return error == ENOSPC || error == EDQUOT; }

}  // namespace

CSharedCFRef<CFPropertyListRef> readListFile(const CStringRef& path) {
  requirePath(path);
  const auto url = fileURL(path->str());
  const CSharedCFRef<CFReadStreamRef> stream(CFReadStreamCreateWithFile(kCFAllocatorDefault, url.get()));
  if (!stream) throwCannotOpenForReading(path, EINVAL);
  if (!CFReadStreamOpen(stream.get())) throwCannotOpenForReading(path, CFReadStreamGetError(stream.get()).error);
  CFStringRef error = nullptr;
  CSharedCFRef<CFPropertyListRef> list(
      CFPropertyListCreateFromStream(kCFAllocatorDefault, stream.get(), 0, kCFPropertyListImmutable, nullptr, &error));
  const CStringRef reason = reasonOf(CSharedCFRef<CFStringRef>(error), CFReadStreamGetError(stream.get()));
  CFReadStreamClose(stream.get());
  if (!list) {
    throw CParamException("Couldn't read property list from file %s, error = %s", path->getUTF8Ptr(),
                          reason->getUTF8Ptr());
  }
  requireValid(list.get());
  return list;
}

void writeListFile(const CStringRef& path, CFPropertyListRef list) {
  requirePath(path);
  requireValid(list);
  const std::string file = path->str();
  if (!fileURL(file)) throwCannotOpenForWriting(path, EINVAL);
  if (isReplaceable(file)) {
    ReplacementFile replacement(file);
    if (replacement.error() == 0) {
      writeThroughStream(replacement.path(), path, list);
      const int error = replacement.replace();
      if (error != 0) throwCannotWrite(path, CSTR(platform::errorText(error)));
      return;
    }
    if (isOutOfSpace(replacement.error())) throwCannotOpenForWriting(path, replacement.error());
  }
  writeThroughStream(file, path, list);
}

}  // namespace tovan
