// The start-ups of CTovanLogger.
#include <plinth/exception.h>
#include <tovan/logger.h>
#include <tovan/service_cache_file.h>

#include "logging/file_stream.h"
#include "logging/log_folder.h"
#include "logging/log_format.h"
#include "platform/system/process_id.h"
#include "platform/system/scoped_umask.h"

#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace tovan {
namespace {

using platform::AppendFile;
using plinth::CStringRef;

constexpr const char* kStandardErrorPath = "/dev/stderr";
constexpr mode_t kLogMask = 0122;  // deliberately this one: a new file gets 0644

struct Settings {
  unsigned int level = CTovanLogger::kDefaultLevel;
  bool truncates = false;
};

// What the service cache says about a service or, when it does not know it, about the first one it knows.
Settings configuredSettings(const CStringRef& serviceName) {
  const CServiceCacheFile cache;
  CServiceCacheEntry entry;
  if (!cache.get(serviceName->getStringRef(), entry) && !cache.getAtIndex(0, entry)) return {};
  bool isOverridden = false;
  std::int32_t level = entry.logLevel(true, isOverridden);
  if (!isOverridden) level = entry.logLevel(false, isOverridden);
  bool truncates = entry.truncateLog(true, isOverridden);
  if (!isOverridden) truncates = entry.truncateLog(false, isOverridden);
  return {static_cast<unsigned int>(level), truncates};
}

AppendFile openLog(const CStringRef& path) {
  const std::string name = path->str();
  if (name == kStandardErrorPath) return AppendFile::standardError();
  if (name.find('\0') != std::string::npos) return AppendFile();
  const platform::ScopedUmask mask(kLogMask);
  return AppendFile::open(name,
                          isInLogFolder(path) ? AppendFile::FolderLink::refused : AppendFile::FolderLink::allowed);
}

void reportUnopened(const CStringRef& path) {
  AppendFile::standardError().write(
      "CTovanLogger::startupLogging[" + std::to_string(platform::processId()) + "]: failed to open log file " +
      path->str() +
      ". Logging to stderr instead. The file likely already exists with prohibitive permissions - try deleting it.\n");
}

// Log files are written at their end, also by streams that have not looked for it yet.
std::streamoff endOf(std::ostream& target) {
  return target.good() ? std::streamoff(target.rdbuf()->pubseekoff(0, std::ios_base::end, std::ios_base::out)) : -1;
}

}  // namespace

void CTovanLogger::throwIfStarted() const {
  if (started_) throw plinth::CParamException("Logging started already");
}

void CTovanLogger::markStarted(const CStringRef& path, bool isFileLogging) {
  throwIfStarted();
  started_ = true;
  isFileLogging_ = isFileLogging;
  path_ = plinth::CSTR(path);
}

void CTovanLogger::startupLogging(bool toFile, const CStringRef& serviceName, unsigned int instance) {
  const CStringRef name = plinth::CString::nullToEmptyString(serviceName);
  Settings settings;
  {
    const std::lock_guard lock(*mutex_);
    throwIfStarted();
    settings = configuredSettings(name);
    if (toFile) {
      serviceName_ = plinth::CSTR(name);
      level_ = settings.level;
      makeLogFolder();
      startupLogging(logPathOf(name, instance), settings.truncates);
    } else {
      startupLogging(plinth::CSTR(kStandardErrorPath), false);
    }
  }
  setLogLevel(settings.level);
  setPrefsChangedHandler(true);
}

void CTovanLogger::startupLogging(const CStringRef& path, bool truncate) {
  if (path.isNull()) throw plinth::CNullPointerException("Error: path is null!");
  const std::lock_guard lock(*mutex_);
  markStarted(path, true);
  AppendFile opened = openLog(path);
  if (!opened || !startFile(std::make_unique<FileStream>(std::move(opened)), truncate)) return reportUnopened(path);
  initLogging();
}

bool CTovanLogger::startFile(std::unique_ptr<FileStream> file, bool truncate) {
  // Of processes that start on one file at once, one finds it empty and writes its header.
  const AppendFile::Turn turn(file->file());
  if (truncate && !file->truncate()) return false;
  file_ = std::move(file);
  const bool isConsole = *path_ == *plinth::CSTR(kStandardErrorPath);
  // Nobody else's message comes between.
  const std::lock_guard streamLock(*activeStream_->mutex());
  activeStream_->redirect(isConsole ? kStreamKindConsole : kStreamKindFile, file_.get());
  startSession();
  return true;
}

void CTovanLogger::startupLogging(const OStreamRef& stream) {
  if (stream.isNull()) throw plinth::CNullPointerException("Error: stream is null!");
  const std::lock_guard lock(*mutex_);
  const bool isFile = stream->kind() == kStreamKindFile;
  markStarted(isFile ? stream->path() : plinth::makeShared<plinth::CString>(), isFile);
  givenStream_ = stream;
  {
    const std::lock_guard streamLock(*activeStream_->mutex());
    activeStream_->redirect(stream->kind(), stream->target());
    startSession();
  }
  initLogging();
}

void CTovanLogger::startSession() {
  if (activeStream_->kind() != kStreamKindFile) return;
  std::string text;
  std::ostream* const target = activeStream_->target();
  if (target != nullptr && endOf(*target) == 0) appendFileHeader(text, CTimeStamp());
  appendSessionMark(text, CTimeStamp(), kBegin);
  activeStream_->writeDirectly(text);
}

}  // namespace tovan
