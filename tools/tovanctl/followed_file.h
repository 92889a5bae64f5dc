// followed_file.h: a file that grows, is emptied, is replaced, goes and comes back, and what is appended to it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tools/tovanctl/log_source.h"

namespace tovanctl {

// Waits for what happens in a folder, by the kernel's notifications where it has any, else by looking again.
class FolderWatch {
 public:
  explicit FolderWatch(std::string folder);
  ~FolderWatch();
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  // Returns when something may have happened, when a signal came, and at the latest after half a second.
  void wait();

 private:
  void watchAgain();

  std::string folder_;
  int descriptor_ = -1;
  int watch_ = -1;
};

// The bytes of whichever file is at a path.
class FollowedFile {
 public:
  enum class Event {
    missing,    // there is no file now
    found,      // there is one now, where there was none
    truncated,  // it was emptied, and perhaps written anew
    replaced,   // another one is in its place
  };
  using TakeBytes = std::function<void(std::string_view)>;
  // Before the first bytes of another file, or of one that was emptied.
  using TakeEvent = std::function<void(Event)>;

  FollowedFile(LogSource source, TakeBytes takeBytes, TakeEvent takeEvent);

  // Takes what came since the last look. CommandError(kFailed) when the file cannot be read.
  void look();

 private:
  // What is at the path, compared to the file that is open.
  enum class Place { same, replaced, missing };

  bool open();
  Place placeOfFile() const;
  bool isRewritten() const;
  void restart();
  void readOn();
  void keepBeginning();

  const LogSource source_;
  TakeBytes takeBytes_;
  TakeEvent takeEvent_;
  LogFile file_;
  bool isMissing_ = false;
  std::uint64_t offset_ = 0;
  // The first bytes, which tell an emptied file that has grown again from one that has only grown: a log begins with
  // the moment at which it was begun.
  std::string beginning_;
};

}  // namespace tovanctl
