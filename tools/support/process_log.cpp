#include "tools/support/process_log.h"

#include <plinth/exception.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <tovan/global_logger.h>

#include <atomic>
#include <exception>
#include <filesystem>

#include "tools/support/log.h"
#include "tools/support/text.h"

namespace tools {
namespace {

using plinth::CSTR;
using tovan::CTovanGlobalLogger;
using tovan::CTovanLogger;
using tovan::CTovanLoggerRef;

std::atomic<bool> isLogging = false;
std::atomic<bool> hasFailed = false;

void tellFailure(const std::exception& failure) {
  if (!hasFailed.exchange(true)) logLine(std::string("the log has gaps: ") + failure.what());
}

// As the start-up of a service, but for the level.
void startWithoutConfiguration(CTovanLogger& logger, const std::string& service, unsigned int instance) {
  const plinth::CSharedCFRef<CFStringRef> stored = stringOf(tovan::TovanCorePrivate::kTovanLogFilePath);
  const plinth::CSharedCFRef<CFStringRef> folder(TovanExpandTildeInPath(stored.get()));
  std::error_code failed;
  std::filesystem::create_directories(textOf(folder.get()), failed);
  const std::string suffix = instance == 0 ? "" : "-" + std::to_string(instance);
  logger.startupLogging(CSTR(textOf(folder.get()) + service + suffix + ".log"), false);
}

void start(CTovanLogger& logger, const std::string& service, unsigned int instance) {
  try {
    logger.startupLogging(true, CSTR(service), instance);
  } catch (const plinth::CException& failure) {
    if (failure.getType() == plinth::kExceptionTypeStream) throw;  // it has started
    logLine(std::string("the log is not set up as configured: ") + failure.what());
    startWithoutConfiguration(logger, service, instance);
  }
}

}  // namespace

ProcessLog::ProcessLog(const std::string& service, unsigned int instance) {
  const CTovanLoggerRef logger = plinth::makeShared<CTovanLogger>();
  try {
    start(*logger, service, instance);
  } catch (const std::exception& failure) {
    tellFailure(failure);  // of writing: the logger has started, and goes on when it can
  }
  CTovanGlobalLogger::setLogger(logger);
  isLogging = true;
}

ProcessLog::~ProcessLog() {
  isLogging = false;
  CTovanGlobalLogger::setLogger(CTovanLoggerRef());
}

void logRecord(LogLevel level, const std::string& text) {
  if (!isLogging) return;
  try {
    CTovanGlobalLogger::log(level) << text + "\n";
  } catch (const std::exception& failure) {
    tellFailure(failure);
  }
}

void report(LogLevel level, const std::string& text) {
  logLine(text);
  logRecord(level, text);
}

LogScope::LogScope(const std::string& what, const std::string& message, LogLevel level) {
  if (!isLogging) return;
  try {
    marker_.emplace(CSTR(what), CTovanGlobalLogger::log(level), CSTR(message));
  } catch (const std::exception& failure) {
    tellFailure(failure);
  }
}

}  // namespace tools
