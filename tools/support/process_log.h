// process_log.h: the log of a process that runs on its own, in the logger that the process shares. docs/daemon.md says
// what is logged.
#pragma once

#include <tovan/logger.h>

#include <optional>
#include <string>

namespace tools {

// How much a record matters: those up to the service's log level are written.
enum LogLevel : unsigned int {
  kLogFailure = 1,
  kLogWarning = 2,
  kLogUsual = 3,
  kLogDetail = 4,
};

// While the object lives, the process logs to the file of a service's instance; with its end the log has the mark of
// the session's end. Without one, logRecord() and LogScope do nothing. Changes of the level arrive on the run loop of
// the thread that made the object. One at a time.
//
// Where the configuration cannot be read, the level is the usual one, and stays that.
class ProcessLog {
 public:
  ProcessLog(const std::string& service, unsigned int instance);
  ~ProcessLog();
  ProcessLog(const ProcessLog&) = delete;
  ProcessLog& operator=(const ProcessLog&) = delete;
};

// None of these throws: what cannot be logged, because the disk is full, is lost, and is told once on standard error.
void logRecord(LogLevel level, const std::string& text);
// In the log, and as a line for people on standard error.
void report(LogLevel level, const std::string& text);

// Marks the time of its life in the log: what is done, and what it is done with.
class LogScope {
 public:
  explicit LogScope(const std::string& what, const std::string& message = "", LogLevel level = kLogUsual);
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  std::optional<tovan::CTovanLogger::CScopeMarker> marker_;
};

}  // namespace tools
