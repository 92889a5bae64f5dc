// The open and locked file, and the guard that gives its lock back.
#include <plinth/exception.h>
#include <tovan/property_list_basic_file.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/system/error_text.h"
#include "platform/system/locked_file.h"
#include "plist/configuration_folder.h"
#include "plist/path_text.h"

namespace tovan {
namespace {

using plinth::CException;
using plinth::CSharedCFRef;

platform::Descriptor openLocked(const std::string& path, platform::FileLock lock) {
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return platform::Descriptor();
  }
  return platform::openLocked(path.c_str(), lock);
}

}  // namespace

CPropertyListBasicFile::COpenFile::COpenFile(CFStringRef path, std::int32_t mode)
    : path_(CSharedCFRef<CFStringRef>::retaining(path)), mode_(mode) {
  open();
}

CPropertyListBasicFile::COpenFile::COpenFile(std::int32_t descriptor) : mode_(kOpenAdopted), descriptor_(descriptor) {}

CPropertyListBasicFile::COpenFile::~COpenFile() { close(); }

bool CPropertyListBasicFile::COpenFile::open() {
  if (descriptor_ != -1) return false;
  const std::string path = pathText(path_.get());
  const int process = static_cast<int>(::getpid());
  if (mode_ != kOpenForRead && mode_ != kOpenForRW) {
    throw CException(plinth::kExceptionTypeSystemCall,
                     "CPropertyListBasicFile::COpenFile::open[%d](%s): wrong open mode = %d", process, path.c_str(),
                     static_cast<int>(mode_));
  }
  const bool reading = mode_ == kOpenForRead;
  const platform::FileLock lock = reading ? platform::FileLock::shared : platform::FileLock::exclusive;
  platform::Descriptor file = openLocked(path, lock);
  if (!file && !reading && errno == ENOENT) {
    if (makeConfigurationFolderOf(path)) {
      file = openLocked(path, lock);
    } else {
      errno = ENOENT;
    }
  }
  lastError_ = file ? 0 : errno;
  if (file) {
    descriptor_ = file.release();
    return true;
  }
  if (reading && lastError_ == ENOENT) return false;
  const char* const format =
      reading ? "CPropertyListBasicFile::COpenFile::open[%d](Read, %s): can't get read file lock, error = %s"
              : "CPropertyListBasicFile::COpenFile::open[%d](RW, %s): can't get write file lock, error = %s";
  throw CException(plinth::kExceptionTypeSystemCall, lastError_, format, process, path.c_str(),
                   platform::errorText(lastError_).c_str());
}

bool CPropertyListBasicFile::COpenFile::close() {
  if (descriptor_ == -1) return false;
  ::close(std::exchange(descriptor_, -1));
  return true;
}

CPropertyListBasicFile::CFileLockMonitor::~CFileLockMonitor() {
  if (!file_->fileLock().isNull()) file_->unlock();
}

}  // namespace tovan
