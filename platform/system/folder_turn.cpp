#include "platform/system/folder_turn.h"

#include <sys/file.h>

#include <chrono>
#include <thread>

namespace platform {

FolderTurn::FolderTurn(const std::string& folder) noexcept
    : folder_(Descriptor::open(folder.c_str(), O_RDONLY | O_DIRECTORY)) {
  using namespace std::chrono_literals;
  if (!folder_) return;
  const auto deadline = std::chrono::steady_clock::now() + 1s;
  while (::flock(folder_.get(), LOCK_EX | LOCK_NB) != 0) {
    if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > deadline) {
      folder_.reset();
      return;
    }
    std::this_thread::sleep_for(1ms);
  }
}

// Unlocked rather than only closed: a child that was forked meanwhile may still have the descriptor.
FolderTurn::~FolderTurn() {
  if (folder_) ::flock(folder_.get(), LOCK_UN);
}

}  // namespace platform
