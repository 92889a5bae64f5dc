#include <tovan/global_logger.h>

#include <pthread.h>

#include <mutex>

namespace tovan {
namespace {

constinit pthread_once_t once = PTHREAD_ONCE_INIT;
constinit plinth::CMutex* mutex = nullptr;
constinit CTovanLogger* current = nullptr;  // with a reference, which is never given back at exit

plinth::CMutex& globalMutex() {
  ::pthread_once(&once, [] { mutex = new plinth::CMutex(); });
  return *mutex;
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
  const std::lock_guard lock(globalMutex());
  if (current == nullptr) {
    current = new CTovanLogger();
    current->startupLogging(false, plinth::makeShared<plinth::CString>(), 0);
  }
  return CTovanLoggerRef::retaining(current);
}

void CTovanGlobalLogger::setLogger(const CTovanLoggerRef& logger) {
  CTovanLogger* former = logger.get();
  if (former != nullptr) former->Retain();
  {
    const std::lock_guard lock(globalMutex());
    std::swap(former, current);
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
