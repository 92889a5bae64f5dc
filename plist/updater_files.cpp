#include "plist/updater_files.h"

#include <plinth/exception.h>
#include <tovan/property_list_basic_file.h>
#include <tovan/time_stamp.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/system/descriptor.h"
#include "platform/system/error_text.h"
#include "platform/system/exit_gate.h"
#include "plist/whole_file.h"

namespace tovan {
namespace {

using plinth::CSharedCFRef;

constexpr const char* kCopy = "copyFile";
constexpr mode_t kOwnerOnly = 0600;

// "2026-11-21-234041", from the text that begins "11/21/2026 23:40:41".
std::string dateForName() {
  const std::string time = CTimeStamp().getText();
  return time.substr(6, 4) + "-" + time.substr(0, 2) + "-" + time.substr(3, 2) + "-" + time.substr(11, 2) +
         time.substr(14, 2) + time.substr(17, 2);
}

}  // namespace

void throwUpdaterFailure(const char* function, const char* call, const std::string& path, int error) {
  throw plinth::CFileException(error, "TovanConfigUpdater::%s: %s() on file %s failed, error = %s", function, call,
                               path.c_str(), platform::errorText(error).c_str());
}

CSharedCFRef<CFDataRef> contentOf(int descriptor, const std::string& path) {
  CSharedCFRef<CFDataRef> content = readWhole(descriptor);
  if (content.isNull()) throwUpdaterFailure(kCopy, "read", path, errno);
  return content;
}

void replaceContent(int descriptor, const std::string& path, CFDataRef content) {
  const platform::ExitHold hold(descriptor);
  if (!writeWhole(descriptor, content) || !truncateTo(descriptor, static_cast<off_t>(CFDataGetLength(content)))) {
    throwUpdaterFailure(kCopy, "write", path, errno);
  }
}

void replaceFile(const std::string& path, CFDataRef content) {
  plinth::CSharedObjectRef<CPropertyListBasicFile::COpenFile> file;
  try {
    file = plinth::makeShared<CPropertyListBasicFile::COpenFile>(plinth::CSTR(path)->getStringRef(),
                                                                 CPropertyListBasicFile::kOpenForRW);
  } catch (const plinth::CException& failure) {
    throwUpdaterFailure(kCopy, "open", path, failure.getCode());
  }
  replaceContent(file->descriptor(), path, content);
}

plinth::CStringRef keepDatedCopy(const std::string& path, CFDataRef content) {
  const std::string first = path + "." + dateForName();
  platform::Descriptor copy;
  std::string name = first;
  for (int number = 2; !copy; ++number) {
    copy = platform::Descriptor::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kOwnerOnly);
    if (copy) break;
    if (errno != EEXIST) throwUpdaterFailure(kCopy, "open", name, errno);
    name = first + "-" + std::to_string(number);
  }
  const bool isWritten = writeWhole(copy.get(), content) && ::fsync(copy.get()) == 0;
  if (!isWritten) {
    const int error = errno;
    ::unlink(name.c_str());
    throwUpdaterFailure(kCopy, "write", name, error);
  }
  return plinth::CSTR(name);
}

}  // namespace tovan
