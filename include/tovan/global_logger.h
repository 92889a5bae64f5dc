// global_logger.h: CTovanGlobalLogger, the logger that all parts of a process share.
//
//   CTovanGlobalLogger::log(1) << "cannot mount " << url << endl;
//
// A process that sets none gets one that writes to standard error, made when it is first needed. All functions may be
// called from any thread, before main() and after it too.
#pragma once

#include <tovan/logger.h>

namespace tovan {

class TOVAN_EXPORT CTovanGlobalLogger {
 public:
  CTovanGlobalLogger() = delete;

  // The current logger, never an empty holder. The first call without one makes it and starts it as
  // CTovanLogger::startupLogging(false, "", 0) does: on standard error, at the level of the first entry of the service
  // cache. When that start-up throws, so does this call; the logger stays and writes to standard error at level 3.
  static CTovanLoggerRef getLogger();
  // Makes a logger the current one; an empty holder clears it. The former one loses this class's reference, and goes,
  // with the end of its session, if that was the last.
  static void setLogger(const CTovanLoggerRef& logger);

  // getLogger()->log(level). The stream stays valid until the calling thread's next call of either, even when the
  // logger goes meanwhile: it discards what is written then. Throw what getLogger() throws.
  static CTovanLogger::OStream& log(unsigned int level);
  static CTovanLogger::OStream& serviceLog(unsigned int level);
};

}  // namespace tovan
