#include <tovan/task.h>

#include "launch/task_exit_code.h"
#include "platform/system/child_process.h"
#include "platform/system/console_log.h"
#include "platform/system/user_database.h"

#include <plinth/exception.h>

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <thread>

namespace tovan {
namespace {

constexpr int kArgumentRoom = 25;
constexpr int kEnvironmentRoom = 10;
constexpr int kEnded = 1;
constexpr std::uint32_t kRefused = static_cast<std::uint32_t>(-1);
constexpr int kHookThrew = 255;
constexpr char kDestructedWhileRunning[] = "CTask illegal operation: attempt to destruct a running task\n";

// The task whose on_exit() this thread is in.
constinit thread_local const CTask* endingTask = nullptr;

std::optional<std::string> ownCopy(const char* text) {
  return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

const char* textOf(const std::optional<std::string>& text) { return text ? text->c_str() : nullptr; }

void addUnlessThere(CArgsBuilder& environment, const std::string& name, const std::string& value) {
  if (environment.findArg(name.c_str()) < 0) environment.addArg((name + "=" + value).c_str());
}

// 0, or the reason why the user could not be looked up.
int addUser(CArgsBuilder& environment) {
  const std::optional<platform::UserEntry> user = platform::findUser(::geteuid());
  if (!user) return errno;
  if (user->name.empty()) return 0;
  addUnlessThere(environment, "HOME", user->home);
  addUnlessThere(environment, "LOGNAME", user->name);
  addUnlessThere(environment, "USER", user->name);
  return 0;
}

}  // namespace

CTask::CTask(const char* path, const char* const* args, const char* const* env, const char* shell)
    : args_(kArgumentRoom), env_(kEnvironmentRoom), exitCondition_(kEnded) {
  setPath(path);
  setArgs(args);
  setEnv(env);
  setShell(shell);
}

CTask::~CTask() {
  if (isRunning()) {
    // The process ends whether or not anybody can read the reason.
    [[maybe_unused]] const auto written =
        ::write(STDERR_FILENO, kDestructedWhileRunning, sizeof kDestructedWhileRunning - 1);
    ::_exit(-1);
  }
  // Whoever saw the exited flag without waiting lets the watching thread leave the condition first.
  exitCondition_.lockWithBlocking();
  exitCondition_.unlock();
}

void CTask::setPath(const char* path) {
  path_ = ownCopy(path);
  if (args_.size() == 0) {
    args_.addArg(getFileName());
  } else {
    args_.replaceArg(0, getFileName());
  }
}

void CTask::setArgs(const char* const* args) {
  args_.clear();
  args_.addArg(getFileName());
  args_.addArgs(args);
}

void CTask::setEnv(const char* const* env) {
  env_.clear();
  env_.addArgs(env);
}

void CTask::setShell(const char* shell) { shell_ = ownCopy(shell); }

const char* CTask::shell() const noexcept { return textOf(shell_); }

const char* CTask::getFileName() const noexcept {
  if (!path_) return "";
  const std::size_t slash = path_->rfind('/');
  return path_->c_str() + (slash == std::string::npos ? 0 : slash + 1);
}

void CTask::addUserEnv(CArgsBuilder& environment) const { addUser(environment); }

bool CTask::isRunning() const noexcept { return processID_ > 0 && !hasExited_; }

std::int32_t CTask::processID() const noexcept { return processID_; }

std::uint32_t CTask::launch() {
  if (isRunning()) {
    errno = EBUSY;
    return kRefused;
  }
  const int result = start();
  if (result > 0) errno = result;
  return static_cast<std::uint32_t>(result);
}

int CTask::start() {
  processID_ = -1;
  hasExited_ = false;
  if (const int error = on_fork(); error != 0) return error;
  CArgsBuilder environment(kEnvironmentRoom);
  environment.addArgs(env_.getArgs());
  if (const int error = addUser(environment); error != 0) return error;
  if (const int error = forkChild(environment); error != 0) return error;
  const int hookResult = post_fork();
  if (const int error = startWatching(); error != 0) return error;
  if (hookResult != 0) terminate();
  return hookResult;
}

int CTask::forkChild(const CArgsBuilder& environment) {
  const platform::BlockedSignals blocked;
  const pid_t child = ::fork();
  if (child < 0) return errno;
  if (child > 0) {
    const std::lock_guard guard(signalGuard_);
    isCollected_ = false;
    processID_ = child;
    return 0;
  }
  // From here to the end: async-signal-safe calls only, and no way back into the parent's code.
  int error = kHookThrew;
  try {
    error = on_exec();
  } catch (...) {
  }
  if (error == 0) {
    blocked.releaseInChild();
    const char* const path = textOf(path_);
    if (path != nullptr) ::execve(path, args_.getArgs(), environment.getArgs());
    error = path != nullptr ? errno : EFAULT;
  }
  ::_exit(error);
}

int CTask::startWatching() {
  int error = ENOMEM;
  try {
    const platform::BlockedSignals blocked;
    std::thread([this] { finish(collect()); }).detach();
    return 0;
  } catch (const std::system_error& failure) {
    error = failure.code().value();
  } catch (const std::bad_alloc&) {
  }
  signalChild(SIGKILL);
  finish(collect());
  return error;
}

// Waits for the child. From the moment of its collection on its number is no longer signalled.
int CTask::collect() noexcept {
  const pid_t child = processID_;
  const bool hasEnded = platform::awaitEndOfChild(child);
  const std::lock_guard guard(signalGuard_);
  isCollected_ = true;
  int status;
  return hasEnded && platform::collectChild(child, status) ? exitCodeOf(status) : -1;
}

// The exited flag and the condition are set together, as the last step: nothing of this object is used afterwards.
void CTask::finish(int code) noexcept {
  endingTask = this;
  try {
    on_exit(code);
  } catch (const std::exception& exception) {
    platform::consoleLog((std::string("CTask::on_exit failed, exception = ") + exception.what() + ".").c_str());
  } catch (...) {
    platform::consoleLog("CTask::on_exit failed, exception = unknown.");
  }
  endingTask = nullptr;
  exitCondition_.lockWithBlocking();
  hasExited_ = true;
  exitCondition_.unlockAndSetValue(kEnded);
}

void CTask::terminate() {
  if (isRunning()) signalChild(SIGTERM);
}

void CTask::signalChild(int signal) noexcept {
  const std::lock_guard guard(signalGuard_);
  const pid_t child = processID_;
  // A host that collects children itself may have collected this one.
  if (!isCollected_ && platform::isOwnChild(child)) ::kill(child, signal);
}

int CTask::waitForTask() {
  if (!isRunning() || endingTask == this) return exitCode_;
  exitCondition_.lockWhenValueSet(kEnded);
  const int code = exitCode_;
  exitCondition_.unlock();
  return code;
}

bool CTask::waitForTaskWithTimeout(double seconds) {
  if (!isRunning() || endingTask == this) return true;
  if (!exitCondition_.lockWithTimeoutWhenValueSet(kEnded, seconds)) return false;
  exitCondition_.unlock();
  return true;
}

int CTask::on_fork() {
  exitCondition_.lockWithBlocking();
  exitCondition_.unlockAndSetValue(0);
  return 0;
}

int CTask::on_exec() {
  platform::closeDescriptorsFrom(STDERR_FILENO + 1);
  return 0;
}

int CTask::post_fork() { return 0; }

void CTask::on_exit(int code) { exitCode_ = code; }

}  // namespace tovan
