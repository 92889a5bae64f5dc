#include <tovan/task2.h>

#include "launch/task_output.h"
#include "platform/system/pseudo_terminal.h"

#include <plinth/exception.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tovan {

using platform::Descriptor;
using plinth::CAutoMutex;
using plinth::CIOException;
using plinth::CStringRef;

namespace {

void closeAndForget(int& descriptor) noexcept { Descriptor(std::exchange(descriptor, -1)); }

// The same open file on a number that the child's standard streams, which may be closed here, do not need.
Descriptor aboveStandardStreams(Descriptor descriptor) noexcept {
  if (!descriptor || descriptor.get() > STDERR_FILENO) return descriptor;
  return Descriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

struct Pipe {
  Descriptor readEnd;
  Descriptor writeEnd;
};

Pipe openPipe() noexcept {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return {};
  Descriptor readEnd(ends[0]);
  Descriptor writeEnd(ends[1]);
  return {aboveStandardStreams(std::move(readEnd)), aboveStandardStreams(std::move(writeEnd))};
}

// Terminal input with parity or framing errors is not marked by escape bytes.
void stopMarkingErrors(const Descriptor& terminal) {
  termios settings;
  if (::tcgetattr(terminal.get(), &settings) != 0) throw CIOException(errno, "tcgetattr failed'");
  settings.c_iflag &= ~static_cast<tcflag_t>(PARMRK);
  if (::tcsetattr(terminal.get(), TCSANOW, &settings) != 0) throw CIOException(errno, "tcsetattr failed'");
}

}  // namespace

CTask2::CTask2(const char* path, const char* const* args)
    : CTask(path, args, nullptr, nullptr), guard_(plinth::makeShared<plinth::CMutex>()) {}

CTask2::CTask2(const char* path, const CArgsBuilder& args) : CTask2(path, args.getArgs()) {}

CTask2::~CTask2() {
  waitForTask();
  closeTerminal();
}

void CTask2::openTerminal() {
  const CAutoMutex lock(guard_);
  Pipe pipe = openPipe();
  if (!pipe.readEnd || !pipe.writeEnd) throw CIOException(errno, "pipe failed'");
  platform::PseudoTerminal terminal = platform::openPseudoTerminal();
  terminal.master = aboveStandardStreams(std::move(terminal.master));
  terminal.slave = aboveStandardStreams(std::move(terminal.slave));
  if (!terminal.master || !terminal.slave) throw CIOException(errno, "failed to open tty'");
  stopMarkingErrors(terminal.slave);
  readEnd_ = pipe.readEnd.release();
  writeEnd_ = pipe.writeEnd.release();
  master_ = terminal.master.release();
  slave_ = terminal.slave.release();
}

int CTask2::on_fork() {
  if (const int error = CTask::on_fork(); error != 0) return error;
  try {
    closeTerminal();
    openTerminal();
    return 0;
  } catch (const plinth::CException& exception) {
    errno = exception.getCode();
    return -1;
  }
}

// The descriptors are all above 2 here, so none of these steps closes what another one needs.
int CTask2::on_exec() {
  ::close(master_);
  ::setsid();  // fails only for a child that leads a session already
  if (::dup2(slave_, STDIN_FILENO) < 0) return errno;
  ::close(slave_);
  if (::ioctl(STDIN_FILENO, TIOCSCTTY, 0) != 0) return errno;
  ::close(readEnd_);
  if (::dup2(writeEnd_, STDOUT_FILENO) < 0 || ::dup2(writeEnd_, STDERR_FILENO) < 0) return errno;
  ::close(writeEnd_);
  return 0;
}

void CTask2::openOutput() {
  const CAutoMutex lock(guard_);
  closeAndForget(writeEnd_);
  output_ = ::fdopen(readEnd_, "r");
  if (output_ == nullptr) throw plinth::CParamException(errno, "Failed to open file from pipe: %d", readEnd_);
  readEnd_ = -1;
}

int CTask2::post_fork() {
  try {
    openOutput();
    return 0;
  } catch (const plinth::CException& exception) {
    errno = exception.getCode();
    return errno;
  }
}

CStringRef CTask2::getTaskOutput() {
  const CAutoMutex lock(guard_);
  return output_ != nullptr ? readOutput(output_) : nullptr;
}

void CTask2::closeTerminal() {
  const CAutoMutex lock(guard_);
  closeAndForget(master_);
  if (output_ != nullptr) std::fclose(std::exchange(output_, nullptr));
  closeAndForget(slave_);
  closeAndForget(readEnd_);
  closeAndForget(writeEnd_);
}

}  // namespace tovan
