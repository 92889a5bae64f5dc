#include "tools/support/termination_signals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <utility>

namespace tools {
namespace {

constexpr int kTerminations[] = {SIGTERM, SIGINT};
constexpr char kSignalled = 's';
constexpr char kQuit = 'q';

std::atomic<int> writeEnd = -1;
std::atomic<bool> arrived = false;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free, "the handler uses them");

void writeByte(char byte) {
  while (::write(writeEnd, &byte, 1) < 0 && errno == EINTR) {
  }
}

void terminationArrived(int) {
  const int error = errno;
  arrived = true;
  writeByte(kSignalled);
  errno = error;
}

void nothing(int) {}

void handle(int signal, void (*handler)(int)) {
  struct sigaction former {};
  ::sigaction(signal, nullptr, &former);
  if (former.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  ::sigaction(signal, &action, nullptr);
}

void changeMask(int how) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : kTerminations) sigaddset(&signals, signal);
  ::pthread_sigmask(how, &signals, nullptr);
}

void perform(void* action) { (*static_cast<std::function<void()>*>(action))(); }

}  // namespace

TerminationSignals::TerminationSignals(std::function<void()> action)
    : action_(std::move(action)), loop_(CFRunLoopGetCurrent()) {
  CFRunLoopSourceContext context{};
  context.info = &action_;
  context.perform = perform;
  source_ = CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
  CFRunLoopAddSource(loop_, source_.get(), kCFRunLoopCommonModes);
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "no pipe for signals");
  readEnd_ = ends[0];
  writeEnd = ends[1];
  changeMask(SIG_BLOCK);  // for the forwarder: the signals are this thread's, which decides when it takes them
  forwarder_ = std::thread([this] { forward(); });
  for (const int signal : kTerminations) handle(signal, terminationArrived);
  handle(SIGPIPE, nothing);
  changeMask(SIG_UNBLOCK);
}

TerminationSignals::~TerminationSignals() {
  changeMask(SIG_BLOCK);
  for (const int signal : kTerminations) handle(signal, SIG_DFL);
  writeByte(kQuit);
  forwarder_.join();
  CFRunLoopSourceInvalidate(source_.get());
  ::close(writeEnd.exchange(-1));
  ::close(readEnd_);
}

bool TerminationSignals::haveArrived() noexcept { return arrived; }

void TerminationSignals::forward() const {
  for (;;) {
    char byte = 0;
    const ssize_t count = ::read(readEnd_, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count != 1 || byte == kQuit) return;
    CFRunLoopSourceSignal(source_.get());
    CFRunLoopWakeUp(loop_);
  }
}

}  // namespace tools
