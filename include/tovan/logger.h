// logger.h: CTovanLogger, the process log: one line of XML per message, in a file of the service's own or on standard
// error. What messages and marks are written with follows in log_stream.h and log_mark.h, which this header includes;
// global_logger.h has the logger that a whole process shares.
//
//   const CTovanLoggerRef logger(new CTovanLogger());
//   logger->startupLogging(true, CSTR("transcoder"), 2);  // ~/Library/Logs/Lumisphere/transcoder-2.log
//   logger->log(3) << "job " << number << " finished" << endl;
//
// Levels. A message is logged at a level, a plain number, and is written when that is at most the logger's current
// level: a larger current level lets more through. 3 is the level of a new logger, of a message and of a service for
// which nothing else is configured.
//
// The file. UTF-8, an element per line, built only by appending; several sessions and several processes may append to
// one file, whose elements each go out in one write. docs/process-log.md describes it. In short:
//
//   <?xml version="1.0" encoding="UTF-8" standalone="yes"?>
//   <logs tms="354290709.250" tmt="03/24/2012 14:05:09.250" pnm="transcoder">    (both only in an empty file)
//   <mrk tms="..." tmt="..." pid="4711" kind="begin" what="log-session"/>        (at every start-up)
//   <log tms="..." tmt="..." pid="4711" lvl="1" msg="..."/>                      (a message; without lvl at level 3)
//   <mrk tms="..." tmt="..." pid="4711" kind="end" what="log-session"/>          (when the logger is destroyed)
//
// "tms" is the moment in seconds since 2001-01-01 00:00:00 GMT, "tmt" the same moment in the system time zone, as
// CTimeStamp writes it, both rounded to the millisecond. The end tag </logs> is never in the file, only in the reply of
// logDataAsString(), so that the next session can append.
//
// Failures. A file that cannot be opened is reported on standard error, and so is everything that is logged from then
// on; nothing is thrown. Writing to a stream that has failed (a full disk) throws; see log_stream.h.
//
// Threads. Any number of threads may use one logger. Its recursive mutex guards its state; each stream serialises what
// is written into it.
#pragma once

#include <plinth/mutex.h>
#include <plinth/string.h>
#include <tovan/export.h>

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNotificationCenter.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace plinth {
class CXMLService;
}

namespace tovan {

class CTovanLogger;
using CTovanLoggerRef = plinth::CSharedObjectRef<CTovanLogger>;

class TOVAN_EXPORT CTovanLogger : public virtual plinth::CSharedObject {
 public:
  class OStream;
  class OBufferStream;
  class ONullStream;
  class CMark;
  class CScopeMarker;
  using OStreamRef = plinth::CSharedObjectRef<OStream>;
  using CMarkRef = plinth::CSharedObjectRef<CMark>;

  static constexpr unsigned int kDefaultLevel = 3;

  // The numbers of these three are part of the interface.
  enum StreamKind : std::int32_t {
    kStreamKindNull = 0,  // discards everything
    kStreamKindConsole = 1,
    kStreamKindFile = 2,
  };
  enum MarkKind : std::int32_t {
    kMarkKindUnknown = 0,
    kMarkKindMark = 1,  // a plain one
    kMarkKindBegin = 2,
    kMarkKindEnd = 3,
  };
  // Why there is no log to give; every other number reads as a general error.
  enum LogErrorKind : std::int32_t {
    kLogErrorServiceDown = 0,
    kLogErrorLoggerNotAvailable = 1,
    kLogErrorQueryNotSupported = 2,
    kLogErrorNotLoggingToFile = 3,
    kLogErrorNotParsable = 4,
    kLogErrorGeneral = 5,
  };

  // Writes to standard error at level 3 until a start-up; nothing is written here. The path is "/dev/stderr".
  CTovanLogger();
  CTovanLogger(const CTovanLogger&) = delete;
  CTovanLogger& operator=(const CTovanLogger&) = delete;

 protected:
  // Writes the end of the session when the log goes to a file, and closes the file. A message that was not ended is not
  // written. Ends the observation of the preferences, and waits for a change that another thread is just applying.
  // Nobody may be logging; a stream of log() that somebody still retains discards what is written into it from here on.
  ~CTovanLogger() override;

 public:
  // The start-ups. A logger is started once: a second start-up of any kind throws plinth::CParamException "Logging
  // started already" and leaves the first as it is, which counts even when its file could not be opened.

  // The start-up of a service. Level and truncation are those of the service's entry in the service cache (the user's
  // override, else the entry's own), else of the cache's first entry, else 3 and no truncation. To a file: the log goes
  // to "~/Library/Logs/Lumisphere//NAME.log" or, for an instance other than 0, "...//NAME-INSTANCE.log" (with two
  // slashes, which is deliberate), in a folder made with mode 0700 or set to it; the service's name and level are
  // kept. Else to standard error. Then the level is set as by setLogLevel() and the preferences are observed as by
  // setPrefsChangedHandler(true).
  //
  // Throws what reading the cache throws (the logger is not started then) and what writing throws. An empty holder
  // counts as the empty name.
  virtual void startupLogging(bool toFile, const plinth::CStringRef& serviceName, unsigned int instance);

  // To the file at a path (as it is, no "~" is expanded), emptied first when `truncate` is set, appended to otherwise;
  // a new one gets mode 0644. An empty file gets the header, every file the begin of the session. The path
  // "/dev/stderr" means this process's standard error, which gets neither, and can always be started.
  //
  // The file is opened without waiting, and it must be a regular one: what stands in its place as a symbolic link,
  // FIFO, socket or directory, or the log folder's place as a symbolic link, is not opened. Below "/dev/" devices are
  // opened too, and the links there are followed. When it is not opened, the line
  //   CTovanLogger::startupLogging[PID]: failed to open log file PATH. Logging to stderr instead. The file likely
  //   already exists with prohibitive permissions - try deleting it.
  // (in one) goes to standard error and so does the log; the logger has started then, and initLogging() is not called.
  //
  // Throws plinth::CNullPointerException "Error: path is null!".
  virtual void startupLogging(const plinth::CStringRef& path, bool truncate);

  // To a stream of the caller's: its kind and target are taken over. A stream of kind file gets the header when its
  // target is empty, the begin of the session, and its end. The stream is retained; its target must live as long as
  // this logger. Throws plinth::CNullPointerException "Error: stream is null!".
  virtual void startupLogging(const OStreamRef& stream);

  // The stream to write one message into, to be ended with a newline or endl: the log when `level` is at most the
  // current level, else a stream that discards everything. The stream's message level is set to `level`. It belongs to
  // the logger. A message that is filtered out costs neither memory nor a system call.
  virtual OStream& log(unsigned int level) const;

 protected:
  // Called at the end of a successful start-up by path or stream (and so of the service's), with the mutex held; does
  // nothing here.
  virtual void initLogging();

 public:
  unsigned int logLevel() const;
  // A new level is followed by the message "Setting log level = NUMBER" at that level, so it is always written; setting
  // the current one again writes nothing. Throws what writing throws; the level is set all the same.
  void setLogLevel(unsigned int level);

  // Adds (true) or removes (false) this logger as observer of kTovanPrefsChangedNotification from kPrefExternalID. The
  // thread that adds it is the one whose run loop must turn. Adding twice is adding once.
  void setPrefsChangedHandler(bool on);
  // What is called then. With user info that holds "headless" as true and no "logging" nothing happens; otherwise a
  // logger with a service name takes its level from the service cache again (the override, else the entry's own; no
  // entry, no change). A failure to read the cache or to write is reported on the console. `observer` is the logger;
  // null does nothing. The other arguments are not looked at.
  static void tovanPrefsChanged(CFNotificationCenterRef center, void* observer, CFStringRef name, const void* object,
                                CFDictionaryRef userInfo);

  // The log as one XML document, with its end tag: the file as long as it was at the beginning of the call, copied in
  // pieces of 256 bytes. The error document kLogErrorNotLoggingToFile when the log does not go to a file; empty when
  // the file is empty or cannot be opened, or is none any more (nothing is waited for).
  std::string logDataAsString() const;
  // The document that says why there is no log: a header, one record and the end tag.
  static std::string logErrorDataAsString(LogErrorKind kind);

  // A message as it may stand between the double quotes of an attribute. Text for which <log msg="TEXT"/> is a document
  // that CXMLService reads is never changed, so "&amp;" stays, and so does an apostrophe. Otherwise every byte but the
  // letters, digits, blank and ! # $ % ' ( ) * + , - . / : ; = ? @ [ ] \ ^ _ ` { | } ~ becomes %XX. Bytes that are not
  // UTF-8 cannot be escaped so: then < > & " become the entities of XML, tab and line breaks character references, and
  // every byte that is not UTF-8 and every character that XML forbids U+FFFD.
  static std::string escapedString(std::string_view text);
  // The same; an empty holder is given back as it is.
  static plinth::CStringRef escapedString(const plinth::CStringRef& text);

  // Whether an element's name is "mrk".
  static bool isMark(const plinth::CXMLService& element);

  // Where the log goes or, when its file could not be opened, was meant to go; empty for a stream that is no file.
  plinth::CStringRef logPath() const;
  // The name given to the start-up of a service that logs to a file; empty otherwise. Never an empty holder.
  plinth::CStringRef serviceName() const;

 private:
  class FileStream;
  class PreferencesLink;

  void markStarted(const plinth::CStringRef& path, bool isFileLogging);
  void throwIfStarted() const;
  bool startFile(std::unique_ptr<FileStream> file, bool truncate);
  void startSession();
  void reloadLogLevel();

  plinth::CMutexRef mutex_;
  bool started_ = false;
  plinth::CStringRef serviceName_;
  std::unique_ptr<FileStream> file_;
  plinth::CSharedObjectRef<OBufferStream> activeStream_;
  plinth::CSharedObjectRef<ONullStream> nullStream_;
  bool isFileLogging_ = false;
  plinth::CStringRef path_;
  std::atomic<unsigned int> level_ = kDefaultLevel;  // written under the mutex
  std::unique_ptr<FileStream> standardError_;
  OStreamRef givenStream_;  // whose target the active stream writes to
  std::unique_ptr<PreferencesLink> preferences_;
};

}  // namespace tovan

#include <tovan/log_mark.h>
#include <tovan/log_stream.h>
