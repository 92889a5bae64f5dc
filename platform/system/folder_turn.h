// folder_turn.h: FolderTurn, taking turns at changing the files of a folder.
#pragma once

#include "platform/system/descriptor.h"
#include "platform/system/export.h"

#include <string>

namespace platform {

// Keeps others that take a turn in the same folder away for a scope, in this process and in others. The lock lies on
// the folder itself, so it leaves no file behind, is there whether a file is or not, and outlives a file's replacement.
// Whoever may read the folder could hold it for ever: a turn is waited for a second at most, and a folder that can't be
// opened or locked is not waited for. What is done under it must therefore be safe without it.
class PLATFORM_EXPORT FolderTurn {
 public:
  explicit FolderTurn(const std::string& folder) noexcept;
  ~FolderTurn();
  FolderTurn(const FolderTurn&) = delete;
  FolderTurn& operator=(const FolderTurn&) = delete;

  // Whether the others do stay away.
  bool isTaken() const noexcept { return static_cast<bool>(folder_); }

 private:
  Descriptor folder_;
};

}  // namespace platform
