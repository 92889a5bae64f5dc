// task2.h: CTask2, a child process whose input is a terminal and whose output is kept.
//
// The child leads a session of its own. Its standard input is a pseudo-terminal, its controlling terminal; its standard
// output and error are one pipe, read by getTaskOutput(). Descriptors above 2 that are not close-on-exec stay open in
// the child. The pipe holds some 64 KB: a child that prints more waits until somebody reads, so read before you wait.
//
// A task of this kind can also be held by references; a new one has one. Its environment is the user's alone (CTask's
// addUserEnv) unless one is set. CTask's rules hold otherwise.
#pragma once

#include <tovan/task.h>

#include <plinth/mutex.h>
#include <plinth/shared_object.h>
#include <plinth/string.h>

#include <cstdio>

namespace tovan {

class TOVAN_EXPORT CTask2 : public CTask, public plinth::CSharedObject {
 public:
  // The arguments behind the program's own name.
  CTask2(const char* path, const char* const* args);
  CTask2(const char* path, const CArgsBuilder& args);
  // Waits for the child, however long it takes, and closes the terminal.
  ~CTask2() override;

  // What the child has printed since it was launched, or since the last call. Waits until the child, and every process
  // that inherited its output, has ended or closed it; the other operations wait meanwhile. The text is UTF-8; a byte
  // that is not reads as U+FFFD. An empty holder when nothing was launched or the terminal is closed.
  plinth::CStringRef getTaskOutput();
  // Closes the terminal and the pipe; output not read yet is lost, and a child still running loses its terminal
  // (SIGHUP).
  void closeTerminal();

 protected:
  // Opens the pipe and the terminal; -1, with errno, when one of them cannot be had.
  int on_fork() override;
  // Does not call CTask's.
  int on_exec() override;
  int post_fork() override;

 private:
  void openTerminal();
  void openOutput();

  plinth::CMutexRef guard_;  // guards what follows
  int master_ = -1;
  int slave_ = -1;
  std::FILE* output_ = nullptr;  // owns the pipe's read end while it is open
  int readEnd_ = -1;
  int writeEnd_ = -1;
};

using CTask2Ref = plinth::CSharedObjectRef<CTask2>;

}  // namespace tovan
