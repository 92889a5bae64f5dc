// intercepted_read.h: something that happens just when a file is read.
#pragma once

#include <functional>
#include <string>

namespace test {

// Calls the action in front of the first read of the file, by whatever descriptor, as long as the object lives. One at
// a time, for the reads of this thread.
class InterceptedRead {
 public:
  InterceptedRead(const std::string& path, const std::function<void()>& action);
  ~InterceptedRead();
  InterceptedRead(const InterceptedRead&) = delete;
  InterceptedRead& operator=(const InterceptedRead&) = delete;

  // How often the action was called: 0 or 1.
  int count() const { return count_; }
  // Called in front of every read of this program.
  static void beforeRead(int descriptor);

 private:
  std::string path_;
  std::function<void()> action_;
  int count_ = 0;
};

}  // namespace test
