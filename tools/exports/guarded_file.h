// guarded_file.h: files that decide what is exported: read without trusting their place, written in one step.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace exports {

struct GuardedText {
  std::string text;
  uid_t owner = 0;
};

// The whole file; nothing when there is none. Failure, naming the path, for a symbolic link in its place, for what is
// no regular file, can be written by others than its owner or is larger than 8 MiB, and when it cannot be read.
std::optional<GuardedText> readGuarded(const std::string& path);

// Puts the text in the place of the file, mode 0644, by way of a file beside it and a rename: a reader sees the former
// text or this one. Makes the folder when it is missing. Failure, naming the path; the former file is untouched then.
void replaceFile(const std::string& path, std::string_view text);

}  // namespace exports
