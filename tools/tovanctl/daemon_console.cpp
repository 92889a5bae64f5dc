#include "tools/tovanctl/daemon_console.h"

#include <fcntl.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <unistd.h>

#include <filesystem>

#include "tools/tovanctl/values.h"

namespace tovanctl {

DaemonConsole::DaemonConsole() {
  const plinth::CSharedCFRef<CFStringRef> folder(
      TovanExpandTildeInPath(string(tovan::TovanCorePrivate::kTovanLogFilePath).get()));
  const std::string path = text(folder.get()) + "mervaned-console.txt";
  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (file < 0) return;
  former_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  if (former_ >= 0 && ::dup2(file, STDERR_FILENO) >= 0) path_ = path;
  ::close(file);
}

DaemonConsole::~DaemonConsole() {
  if (former_ < 0) return;
  ::dup2(former_, STDERR_FILENO);
  ::close(former_);
}

}  // namespace tovanctl
