#include <tovan/global_logger.h>

#include <pthread.h>

#include <mutex>
#include <utility>

namespace tovan {
namespace {

// Held while the first logger is made and while one is replaced. A thread that asks for the logger while it makes it is
// told so by an exception.
constinit pthread_once_t once = PTHREAD_ONCE_INIT;
constinit plinth::CMutex* changeMutex = nullptr;

plinth::CMutex& changes() {
  ::pthread_once(&once, [] { changeMutex = new plinth::CMutex(); });
  return *changeMutex;
}

// Held for the few instructions that take a reference or exchange the pointer, and never while anything is called.
constinit std::mutex currentMutex;
constinit CTovanLogger* current = nullptr;  // with a reference, which is never given back at exit

CTovanLoggerRef copyCurrent() {
  const std::lock_guard lock(currentMutex);
  return CTovanLoggerRef::retaining(current);
}

// Takes a reference; the caller gets the one to the former logger.
CTovanLogger* makeCurrent(const CTovanLoggerRef& logger) noexcept {
  if (logger) logger->Retain();
  const std::lock_guard lock(currentMutex);
  return std::exchange(current, logger.get());
}

// The stream that a thread was given last. Its logger may be replaced before the thread has written into it.
constinit thread_local CTovanLogger::OStream* kept = nullptr;
constinit thread_local bool isThreadEnding = false;

class KeptStream {
 public:
  ~KeptStream() {
    if (kept != nullptr) kept->Release();
    kept = nullptr;
    isThreadEnding = true;
  }
  void keep(CTovanLogger::OStream& stream) const noexcept {
    stream.Retain();
    if (kept != nullptr) kept->Release();
    kept = &stream;
  }
};
thread_local const KeptStream keptStream;

}  // namespace

CTovanLoggerRef CTovanGlobalLogger::getLogger() {
  if (CTovanLoggerRef logger = copyCurrent()) return logger;
  const std::lock_guard lock(changes());
  CTovanLoggerRef logger = copyCurrent();  // somebody else was faster
  if (!logger) {
    logger = plinth::makeShared<CTovanLogger>();
    try {
      logger->startupLogging(false, plinth::makeShared<plinth::CString>(), 0);
    } catch (...) {
      makeCurrent(logger);
      throw;
    }
    makeCurrent(logger);
  }
  return logger;
}

void CTovanGlobalLogger::setLogger(const CTovanLoggerRef& logger) {
  CTovanLogger* former = nullptr;
  {
    const std::lock_guard lock(changes());
    former = makeCurrent(logger);
  }
  // Not under the mutex: its destructor may log.
  if (former != nullptr) former->Release();
}

CTovanLogger::OStream& CTovanGlobalLogger::log(unsigned int level) {
  const CTovanLoggerRef logger = getLogger();
  CTovanLogger::OStream& stream = logger->log(level);
  if (&stream != kept && !isThreadEnding) keptStream.keep(stream);
  return stream;
}

CTovanLogger::OStream& CTovanGlobalLogger::serviceLog(unsigned int level) { return log(level); }

}  // namespace tovan
