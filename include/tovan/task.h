// task.h: CTask, a program run as a child process and watched until it ends.
//
// A task is idle (nothing was launched), running, or exited; an idle or exited one can be launched, again and again.
// The owner holds it by value or by pointer. One thread at a time sets it up and launches it; isRunning(), processID(),
// terminate() and the two waits may be called from any number of threads.
//
// Every launch starts one detached thread, which waits for the child and calls on_exit(). A task is over, isRunning()
// false and the waits released, when that hook, with all its overrides, has returned. The thread touches the task no
// more from then on: whoever has seen that the task is over may destroy it at once. To destroy a running task is a
// fatal error of the program: the destructor writes one line to standard error and ends the process with status -1.
//
// The child has the launching thread's signal mask and working directory, this process's standard streams, and no other
// descriptor. Signals that this process handles are back at their default from its first instant. The child of a task
// belongs to the task: a host that collects it itself, or ignores SIGCHLD, makes the task end with exit code -1.
#pragma once

#include <tovan/args_builder.h>
#include <tovan/export.h>

#include <plinth/conditional_mutex.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace tovan {

class TOVAN_EXPORT CTask {
 public:
  // Calls the four setters below, in this order. Every text is copied; each may be null.
  CTask(const char* path, const char* const* args, const char* const* env, const char* shell);
  CTask(const CTask&) = delete;
  CTask& operator=(const CTask&) = delete;
  // Fatal while the child runs, see above.
  virtual ~CTask();

  // The program. The first argument becomes its file name, those behind it stay.
  void setPath(const char* path);
  // The program's file name and then the strings of a null-terminated list; null adds nothing to the file name.
  void setArgs(const char* const* args);
  // The entries NAME=VALUE of a null-terminated list, instead of those set before; null leaves none.
  void setEnv(const char* const* env);
  // Kept for whoever asks; no shell takes part in a launch. The text is the task's, null when there is none.
  void setShell(const char* shell);
  const char* shell() const noexcept;
  // What follows the last "/" of the path, the whole path when it has none, "" without a path. The text is the task's,
  // until the path is set anew.
  const char* getFileName() const noexcept;

  // Starts the child. 0, or an errno value; a hook's own result when it is not 0 (of which -1, all bits set, is one);
  // -1 also when the task is running, whose child is left alone. errno then has the reason, where there is one. A
  // program that cannot be executed is no failure here: the child then ends with the errno value as its exit status.
  // When on_exec() throws, that status is 255.
  //
  // When the child is there but no thread can be had to watch it, it is killed and collected, on_exit() is called with
  // 9 by the calling thread, and the result is the thread's errno value.
  std::uint32_t launch();

  // Whether a launched child has not ended yet, as described above.
  bool isRunning() const noexcept;
  // The last child's process id, kept when it has ended; -1 when nothing was launched.
  std::int32_t processID() const noexcept;
  // Asks a running child to end, with SIGTERM. No other process ever gets that signal: neither before the launch, nor
  // when the child was collected and its number was given away again.
  void terminate();

  // Wait until the child has ended; they return at once when none runs. Within on_exit() they return at once, too.
  //
  // The exit status of the last child that ended, or the number of the signal that ended it (the two cannot be told
  // apart), or -1 when its end could not be learnt; 0 before the first.
  int waitForTask();
  // False when the time, in seconds, is over first; times are read as CConditionalMutex reads them.
  bool waitForTaskWithTimeout(double seconds);

  // Adds HOME, LOGNAME and USER, each unless the environment has an entry of that name, as the effective user's
  // password entry has them; nothing for a user without entry or name.
  void addUserEnv(CArgsBuilder& environment) const;

 protected:
  // The hooks of a launch, in the order of their calls. An override calls the one that it overrides. The first three
  // return 0, or an error that ends the launch.

  // In the parent, before the fork. Makes the waits wait.
  virtual int on_fork();
  // In the child, before it becomes the program; an error is its exit status. The child of a threaded program may only
  // make async-signal-safe calls here; what needs the heap or a lock belongs into on_fork(). Signals are blocked.
  // Closes every descriptor but the standard streams.
  virtual int on_exec();
  // In the parent, after the fork. An error ends the child with SIGTERM.
  virtual int post_fork();
  // On the watching thread, when the child has been collected. Keeps the code. Exceptions are reported on the console.
  virtual void on_exit(int code);

 private:
  int start();
  int forkChild(const CArgsBuilder& environment);
  int startWatching();
  int collect() noexcept;
  void finish(int code) noexcept;
  void signalChild(int signal) noexcept;

  std::optional<std::string> path_;
  CArgsBuilder args_;
  CArgsBuilder env_;
  std::optional<std::string> shell_;
  std::atomic<std::int32_t> processID_{-1};
  plinth::CConditionalMutex exitCondition_;  // 0 while the child runs, 1 when it has ended
  std::atomic<bool> hasExited_{false};       // set while exitCondition_ is held
  std::atomic<std::int32_t> exitCode_{0};
  std::mutex signalGuard_;   // a signal and the collection of the child exclude each other
  bool isCollected_ = true;  // guarded by signalGuard_
};

}  // namespace tovan
