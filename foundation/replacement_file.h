// replacement_file.h: ReplacementFile, a new file that takes the place of another when it is complete.
#pragma once

#include <string>

namespace tovan {

// It lies, under a name of its own beginning with a dot, in the folder of the file it replaces, and has that file's
// permissions and, where this process may give them, its owner and group; without an old file, the permissions of any
// new file. A symbolic link is followed, so the file it leads to is what is replaced.
//
// An object that goes without having replaced anything removes its file; a process that is killed leaves it behind.
class ReplacementFile {
 public:
  // Creates the file, empty. Check error().
  explicit ReplacementFile(const std::string& path);
  ~ReplacementFile();
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  // Why the file could not be created; 0 when it was.
  int error() const noexcept { return error_; }
  // Where to write the new content.
  const std::string& path() const noexcept { return path_; }
  // Sees the content onto the disk, so that replace() need not wait for that any more. Nothing may be written after it.
  // 0 or errno.
  int flush();
  // Sees the content onto the disk, unless flush() has, and puts it in place. 0, or the errno of what failed: the old
  // file is untouched then.
  int replace();

 private:
  void create(const std::string& folder);
  void takePermissionsOf(const std::string& file);

  std::string target_;
  std::string path_;
  int error_ = 0;
  bool isFlushed_ = false;
};

}  // namespace tovan
