#include <tovan/logger.h>

#include <plinth/exception.h>
#include <tovan/cf_util.h>

#include "logging/file_stream.h"
#include "logging/log_format.h"
#include "logging/preferences_link.h"

#include <mutex>
#include <string>

namespace tovan {

CTovanLogger::CTovanLogger()
    : mutex_(new plinth::CRecursiveMutex()),
      serviceName_(new plinth::CString()),
      activeStream_(new OBufferStream()),
      nullStream_(new ONullStream()),
      path_(plinth::CSTR("/dev/stderr")),
      standardError_(std::make_unique<FileStream>(platform::AppendFile::standardError())),
      preferences_(std::make_unique<PreferencesLink>(*this)) {
  activeStream_->redirect(kStreamKindConsole, standardError_.get());
}

CTovanLogger::~CTovanLogger() {
  preferences_.reset();
  try {
    if (activeStream_->kind() == kStreamKindFile) {
      std::string text;
      appendSessionMark(text, CTimeStamp(), kEnd);
      activeStream_->writeDirectly(text);
    }
  } catch (const std::exception& exception) {
    CFUtil::LogToConsole(exception.what());
  }
  // Whoever still retains it writes nowhere from here on.
  activeStream_->redirect(kStreamKindNull, nullptr);
}

CTovanLogger::OStream& CTovanLogger::log(unsigned int level) const {
  const bool isWritten = level <= level_.load(std::memory_order_relaxed);
  OStream& stream = isWritten ? static_cast<OStream&>(*activeStream_) : *nullStream_;
  stream.setLevel(level);
  return stream;
}

void CTovanLogger::initLogging() {}

unsigned int CTovanLogger::logLevel() const {
  const std::lock_guard lock(*mutex_);
  return level_;
}

void CTovanLogger::setLogLevel(unsigned int level) {
  const std::lock_guard lock(*mutex_);
  if (level == level_) return;
  level_ = level;
  // In one piece, so that no other thread's gets into it.
  log(level) << "Setting log level = " + std::to_string(level) + '\n';
}

plinth::CStringRef CTovanLogger::logPath() const {
  const std::lock_guard lock(*mutex_);
  return plinth::CSTR(path_);
}

plinth::CStringRef CTovanLogger::serviceName() const {
  const std::lock_guard lock(*mutex_);
  return plinth::CSTR(serviceName_);
}

}  // namespace tovan
